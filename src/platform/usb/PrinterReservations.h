// Which process uses a printer. Printers are shared by all processes of a machine: print services, and further copies
// of this project's own programs. A bus asks here before it takes an interface.
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
        process,   // a program that has the device open
        printing,  // a print job that goes through the kernel's printer driver
        ownProgram // a process of this project, which has reserved the printer
    };
    Kind kind = Kind::unknown;
    std::string program = {};  // name of the process; empty if not known
    int pid = 0;               // 0 if not known
    std::string activity = {}; // ownProgram: "update", "claim", "counter reset" and the like
    std::string phase = {};    // ownProgram, during an update: the name of its phase
    std::int64_t since = 0;    // ownProgram: when the reservation began, in seconds since 1970; 0 if not known

    bool operator==(const InterfaceHolder&) const = default;
};

/// The reservations of this project's own processes, one per printer. A printer is named by its key (keyUSBdevice).
class PrinterReservations {
  public:
    virtual ~PrinterReservations() = default;
    /// The other process that has reserved this printer; nullopt if none has, or if this process has it. Waits at most
    /// 300 ms for the other process's answer. Any thread.
    virtual std::optional<InterfaceHolder> heldElsewhere(const std::string& deviceKey) = 0;
    /// Calls released once when the other process's reservation ends, at once if there is none. released runs on a
    /// thread of the reservations and may only post. Dropping the returned object ends the watch. Any thread.
    [[nodiscard]] virtual std::shared_ptr<void> watch(const std::string& deviceKey, std::function<void()> released) = 0;
};

} // namespace zul
