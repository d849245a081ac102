// One transfer request on its way through the mocked usbfs.
#pragma once

#include <cstdint>
#include <string>
#include <umockdev.h>
#include <utility>

namespace zul {

class MockUrb {
  public:
    /// From the argument of a submit call; copies the request and its buffer out of the client.
    static MockUrb submitted(UMockdevIoctlData* argument);
    MockUrb(MockUrb&& other) noexcept;
    MockUrb& operator=(MockUrb&& other) noexcept;
    ~MockUrb();

    bool isControl() const;
    bool isIn() const;
    std::uint8_t endpoint() const;
    /// Bytes of data, without the set-up of a control request.
    std::size_t length() const;
    std::string data() const;
    /// The eight bytes of set-up.
    const unsigned char* setup() const;
    /// The client's address of the request, by which it gives it up.
    unsigned long address() const;

    /// Ends the transfer: bytes for the client (cut to its buffer), or the count that was taken from it.
    void complete(int status, const std::string& bytes);
    void completeOut(int status, std::size_t taken);
    /// Goes on waiting with so much done already.
    void hold(const std::string& bytes);
    void holdOut(std::size_t taken);
    /// The client gives it up; what was done stays done.
    void giveUp();
    bool isDone() const { return _done; }
    /// Hands the finished transfer to the client through the argument of a reap call.
    void reapInto(UMockdevIoctlData* argument);

  private:
    MockUrb() = default;
    UMockdevIoctlData* _urb = nullptr;
    UMockdevIoctlData* _buffer = nullptr;
    bool _done = false;
};

} // namespace zul
