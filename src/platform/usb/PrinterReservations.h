// Which process uses a printer. All processes of a machine share the printers: print services and further instances of
// this product's programs. A bus checks here before it claims an interface.
#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>

namespace zul {

/// Activities of a process that has reserved a printer: it updates it, or its operator has claimed it.
inline constexpr const char* kUpdateActivity = "update";
inline constexpr const char* kClaimActivity = "claim";

/// The process that uses a printer's interface, as far as the system reports it.
struct InterfaceHolder {
    enum class Kind {
        unknown,   // some process; the system does not report which
        process,   // a process that has the device open
        printing,  // a print job through the kernel's printer driver
        ownProgram // a process of this product that has reserved the printer
    };
    Kind kind = Kind::unknown;
    std::string program = {};  // name of the process; empty if not known
    int pid = 0;               // 0 if not known
    std::string activity = {}; // ownProgram: "update", "claim", "counter reset" and the like
    std::string phase = {};    // ownProgram, during an update: the name of its phase
    std::int64_t since = 0;    // ownProgram: when the reservation began, in seconds since 1970; 0 if not known
    std::string deviceID = {}; // ownProgram: the printer's IEEE 1284 device ID; empty if not known

    bool operator==(const InterfaceHolder&) const = default;
};

/// Reservations by processes of this product, one per printer. Printers are identified by key (keyUSBdevice).
class PrinterReservations {
  public:
    virtual ~PrinterReservations() = default;
    /// The other process that has reserved this printer; nullopt if no process or this one has. Waits up to 300 ms for
    /// the other process's reply. Any thread.
    virtual std::optional<InterfaceHolder> heldElsewhere(const std::string& deviceKey) = 0;
    /// Calls released once when the other process's reservation ends, at once if there is none. released runs on a
    /// private thread and may only post. Destroying the returned object ends the watch. Any thread.
    [[nodiscard]] virtual std::shared_ptr<void> watch(const std::string& deviceKey, std::function<void()> released) = 0;
};

} // namespace zul
