// One transfer request in the mocked usbfs.
#pragma once

#include <cstdint>
#include <string>
#include <umockdev.h>
#include <utility>

namespace zul {

class MockUrb {
  public:
    /// From the argument of a submit call; copies the request and its buffer from the client.
    static MockUrb submitted(UMockdevIoctlData* argument);
    MockUrb(MockUrb&& other) noexcept;
    MockUrb& operator=(MockUrb&& other) noexcept;
    ~MockUrb();

    bool isControl() const;
    bool isIn() const;
    std::uint8_t endpoint() const;
    /// Bytes of data, without the setup packet of a control request.
    std::size_t length() const;
    std::string data() const;
    /// The eight bytes of the setup packet.
    const unsigned char* setup() const;
    /// The client's address of the request, which identifies it in a discard call.
    unsigned long address() const;

    /// Ends the transfer with bytes for the client (cut to its buffer), or with the count of accepted bytes.
    void complete(int status, const std::string& bytes);
    void completeOut(int status, std::size_t taken);
    /// Keeps waiting after this much was transferred.
    void hold(const std::string& bytes);
    void holdOut(std::size_t taken);
    /// The client cancels the transfer; transferred bytes remain.
    void giveUp();
    bool isDone() const { return _done; }
    /// Returns the finished transfer to the client through the argument of a reap call.
    void reapInto(UMockdevIoctlData* argument);

  private:
    MockUrb() = default;
    UMockdevIoctlData* _urb = nullptr;
    UMockdevIoctlData* _buffer = nullptr;
    bool _done = false;
};

} // namespace zul
