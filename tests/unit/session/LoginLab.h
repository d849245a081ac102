// A message bus of a test's own, and a login service on it.
#pragma once

#include "platform/files/ScopedFd.h"
#include "support/TemporaryFolder.h"
#include "unit/update/ChildProcess.h"

#include <condition_variable>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

struct sd_bus;
struct sd_bus_message;
struct sd_bus_slot;

namespace zul::test {

/// The bus as a process.
class PrivateBus {
  public:
    PrivateBus();
    const std::string& address() const { return _address; }

  private:
    TemporaryFolder _folder;
    std::unique_ptr<ChildProcess> _daemon;
    std::string _address;
};

/// The login service, as far as its locks go: it sees when a lock's descriptor is closed. Serves on a thread of its
/// own.
class FakeLoginService {
  public:
    /// refused: the kinds of locks that this user may not have.
    explicit FakeLoginService(const std::string& address, std::string refused = {});
    ~FakeLoginService();

    /// "what|who|why|mode" of each question.
    std::vector<std::string> asked();
    /// Waits for the first question.
    void waitUntilAsked();
    bool isHeld();
    /// Waits for the end of the lock that was given last.
    void waitUntilReleased();

  private:
    static int inhibit(sd_bus_message* call, void* context, void* error);
    int answer(sd_bus_message* call, void* error);
    void serve();

    const std::string _refused;
    sd_bus* _bus = nullptr;
    sd_bus_slot* _slot = nullptr;
    ScopedFd _end; // readable once the service is to end
    std::mutex _mutex;
    std::condition_variable _isAsked;
    std::vector<std::string> _asked;
    ScopedFd _ours; // the other end of the lock that was given last
    std::thread _thread;
};

} // namespace zul::test
