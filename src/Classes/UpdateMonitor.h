// Watches the updates of all printers, from the events that the engine tells, and says in plain facts where each one
// stands: the phase, since when, the bytes, the last sign of life, and the verdict. It never changes what the engine
// does. Shared by the command line and the window.
#pragma once

#include "Classes/PrinterEvents.h"
#include "platform/dispatch/Clock.h"

#include <cstdint>
#include <functional>
#include <map>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

namespace zul {

enum class UpdatePhase {
    checking,       // archive, questions, readiness
    enteringLoader, // the command was sent; the printer has not left yet
    loaderGone,     // it has left and should come back as its loader
    loaderBack,     // it is back and is being asked
    writing,        // the image is being written
    programming,    // all bytes are there; the printer programs its flash and will leave
    restarting,     // it has left and should come back with the new firmware
    restarted,      // it is back and is being asked; waits until it is idle
    colorTables,    // table n of m
    done,           // the engine has reported
};

/// The name that progress lines and JSON use: "checking", "entering loader", …
const char* nameOfPhase(UpdatePhase phase);

struct UpdateState {
    std::string key;
    UpdatePhase phase = UpdatePhase::checking;
    Clock::TimePoint begun;      // when the update began
    Clock::TimePoint phaseBegun; // when this phase began
    Clock::TimePoint lastSign;   // last byte, answer or bus event
    std::uint32_t bytesDone = 0;
    std::uint32_t bytesTotal = 0;
    std::int64_t table = 0; // n of m
    std::int64_t tables = 0;
    std::string tableName;
    std::optional<std::string> previousVersion;
    std::optional<std::string> currentVersion; // last version read
    std::optional<std::string> offeredVersion;
    std::string rawStatus;           // last raw status
    std::optional<IOReturn> failure; // of the last write that failed, in this update
    bool attached = true;
    bool finished = false;   // the engine has reported
    bool anyTable = false;   // as the engine reported
    int tableWriteErrors = 0; // table writes that the bus refused
    int tablesWritten = 0;    // tables whose two commands both went through
    bool loaderStillThere = false; // came back in firmware update mode after the image

    /// True when the update is finished, the version read afterwards is the offered one and every table went through.
    bool succeeded() const;
};

/// How long a state usually takes, for "expected within"; nothing where it depends on the operator.
std::optional<Clock::Duration> expectedDuration(UpdatePhase phase);

/// In plain words: where the printer stands, and what the operator should do if it stays so.
std::string describeState(const UpdateState& state, Clock::TimePoint now);
std::string adviceForStall(const UpdateState& state);

class UpdateMonitor final : public PrinterEventsOutlet {
  public:
    /// changed is called on the event's thread after every change; it may only post. events: a further listener.
    UpdateMonitor(Clock& clock, std::function<void(const std::string& key)> changed,
                  PrinterEventsOutlet* further = nullptr);

    /// Begins to follow a printer; what is known of it now.
    void beginUpdate(const std::string& key, std::optional<std::string> installed, std::optional<std::string> offered,
                     std::int64_t tables);
    void endUpdate(const std::string& key);
    std::optional<UpdateState> state(const std::string& key) const;
    std::vector<UpdateState> states() const;
    /// Seconds without a byte, an answer or a bus event.
    Clock::Duration silence(const std::string& key) const;

    void printerEvent(const PrinterEvent& event) override;

  private:
    void apply(UpdateState& state, const PrinterEvent& event);
    void applyCommand(UpdateState& state, const PrinterEvent& event);
    void enter(UpdateState& state, UpdatePhase phase);

    Clock& _clock;
    const std::function<void(const std::string&)> _changed;
    PrinterEventsOutlet* const _further;
    mutable std::mutex _mutex;
    std::map<std::string, UpdateState> _states;
};

} // namespace zul
