// The function of the gadget: a FunctionFS mount with files for endpoint 0 and for the bulk endpoints of each
// interface.
#pragma once

#include "platform/files/ScopedFd.h"
#include "platform/foundation/Data.h"

#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <optional>
#include <string>
#include <vector>

namespace zul {

/// A control request to the interface.
struct SetupRequest {
    std::uint8_t requestType = 0;
    std::uint8_t request = 0;
    std::uint16_t value = 0;
    std::uint16_t index = 0;
    std::uint16_t length = 0;
    /// The top bit of bmRequestType.
    bool isDeviceToHost() const { return (requestType & 0x80) != 0; }
};

enum class FunctionEventKind { bind, unbind, enable, disable, setup, other };

struct FunctionEvent {
    FunctionEventKind kind = FunctionEventKind::other;
    SetupRequest setup;
};

/// Each endpoint is used by one thread; they may all be different. Interfaces are numbered from 0. open() throws
/// GadgetError.
class FunctionFs {
  public:
    /// name: of the function instance in configfs.
    FunctionFs(std::string name, int interfaces);
    ~FunctionFs() { close(); }
    FunctionFs(const FunctionFs&) = delete;
    FunctionFs& operator=(const FunctionFs&) = delete;

    /// Mounts FunctionFS, writes the descriptors and opens the endpoints.
    void open();
    /// Closes the function; the kernel then unbinds the gadget. No thread may be inside a call.
    void close();

    /// Waits for the next event; nullopt after a signal. Endpoint 0's thread.
    std::optional<FunctionEvent> nextEvent();
    /// Replies to an IN request (at most the requested size) or receives an OUT request's data. Endpoint 0's thread.
    void answer(const SetupRequest& request, const Data& reply);
    /// Stalls a request. Endpoint 0's thread.
    void refuse(const SetupRequest& request);

    /// Reads one transfer, blocking while no host is present. Reads up to the size of buffer, a multiple of the packet
    /// size. Returns the byte count, or a negative errno (EINTR after a signal, ESHUTDOWN when the host or the
    /// connection is gone).
    int readOut(std::size_t interface, Data& buffer);
    /// Writes data as one transfer, with a zero-length packet if no short packet ends it, and returns when the host has
    /// received it. Returns 0 or a negative errno (EAGAIN without a host).
    int writeIn(std::size_t interface, const Data& data, std::size_t packetSize);
    /// Halts the endpoint that the host reads from, or the one that it writes to, until the host clears the halt; its
    /// transfers there fail at once. Call on the endpoint's own thread, because a call in progress holds the endpoint.
    void haltIn(std::size_t interface);
    void haltOut(std::size_t interface);

    /// Bytes per packet of the bulk endpoints at the current speed; valid from the enable event on.
    std::size_t packetSize() const;

  private:
    struct EndpointPair {
        ScopedFd out;
        ScopedFd in;
    };

    std::string _name;
    std::filesystem::path _folder;
    bool _mounted = false;
    ScopedFd _control;
    std::vector<EndpointPair> _pairs; // by interface; has its final size from the constructor on
};

} // namespace zul
