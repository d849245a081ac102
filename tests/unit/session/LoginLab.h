// A private message bus for a test, and a login service on it.
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

/// The bus as a child process.
class PrivateBus {
  public:
    PrivateBus();
    const std::string& address() const { return _address; }

  private:
    TemporaryFolder _folder;
    std::unique_ptr<ChildProcess> _daemon;
    std::string _address;
};

/// The locks of the login service; detects when a lock's descriptor is closed. Runs on a thread of its own.
class FakeLoginService {
  public:
    /// refused: the kinds of locks that are refused to this user.
    explicit FakeLoginService(const std::string& address, std::string refused = {});
    ~FakeLoginService();

    /// "what|who|why|mode" of each request.
    std::vector<std::string> asked();
    /// Waits for the first request.
    void waitUntilAsked();
    bool isHeld();
    /// Waits for the release of the last lock.
    void waitUntilReleased();

  private:
    static int inhibit(sd_bus_message* call, void* context, void* error);
    int answer(sd_bus_message* call, void* error);
    void serve();

    const std::string _refused;
    sd_bus* _bus = nullptr;
    sd_bus_slot* _slot = nullptr;
    ScopedFd _end; // readable once the service has to end
    std::mutex _mutex;
    std::condition_variable _isAsked;
    std::vector<std::string> _asked;
    ScopedFd _ours; // the other end of the last lock
    std::thread _thread;
};

} // namespace zul::test
