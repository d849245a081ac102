// The function's side of the gadget: a FunctionFS mount with endpoint 0 and the bulk endpoints of each interface as
// files.
#pragma once

#include "platform/files/ScopedFd.h"
#include "platform/foundation/Data.h"

#include <cstdint>
#include <filesystem>
#include <optional>
#include <string>
#include <vector>

namespace zul {

/// A control request that the host sent to the interface.
struct SetupRequest {
    std::uint8_t requestType = 0;
    std::uint8_t request = 0;
    std::uint16_t value = 0;
    std::uint16_t index = 0;
    std::uint16_t length = 0;
    bool isDeviceToHost() const { return (requestType & 0x80) != 0; }
};

enum class FunctionEventKind { bind, unbind, enable, disable, setup, other };

struct FunctionEvent {
    FunctionEventKind kind = FunctionEventKind::other;
    SetupRequest setup;
};

/// Each endpoint has one thread that uses it; they may all be different ones. Interfaces are counted from 0. open()
/// throws GadgetError.
class FunctionFs {
  public:
    /// name is the configfs function's instance.
    FunctionFs(std::string name, int interfaces);
    ~FunctionFs() { close(); }
    FunctionFs(const FunctionFs&) = delete;
    FunctionFs& operator=(const FunctionFs&) = delete;

    /// Mounts, writes the descriptors, opens the endpoints.
    void open();
    /// The gadget loses its function and is unbound by the kernel. No thread may be inside a call.
    void close();

    /// Waits for the next event; nullopt when a signal came. Endpoint 0's thread.
    std::optional<FunctionEvent> nextEvent();
    /// Answers an IN request (with at most what it asked for) or takes an OUT request's data. Endpoint 0's thread.
    void answer(const SetupRequest& request, const Data& reply);
    /// Refuses a request: the host sees a stall. Endpoint 0's thread.
    void refuse(const SetupRequest& request);

    /// Reads what one transfer brings, waiting while no host is there. The size is that of buffer, a multiple of the
    /// packet size. Negative: an errno (EINTR at a signal, ESHUTDOWN when the host or the plug went).
    int readOut(std::size_t interface, Data& buffer);
    /// Writes data as one transfer and an empty packet when no short packet would end it; returns when the host has it.
    /// 0, or a negative errno (EAGAIN without a host).
    int writeIn(std::size_t interface, const Data& data, std::size_t packetSize);
    /// Halts the endpoint that the host reads from, or the one that it writes to, until the host clears it; its
    /// transfers there fail at once. On the thread that uses the endpoint, since a call in progress holds it.
    void haltIn(std::size_t interface);
    void haltOut(std::size_t interface);

    /// Bytes per packet of the bulk endpoints at the speed in use; known from the enable event on.
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
    std::vector<EndpointPair> _pairs; // by interface; as many as there will be, from the beginning
};

} // namespace zul
