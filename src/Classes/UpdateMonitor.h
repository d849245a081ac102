// Watches the updates of all printers, from the events that the engine tells, and says in plain facts where each one
// stands: the phase, since when, the bytes, the last sign of life, and what became of it. It never changes what the
// engine does. Shared by the command line and the window. Any thread.
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
    enteringLoader, // the command is sent; the printer has not left yet
    loaderGone,     // it has left and should come back as its loader
    loaderBack,     // it is back and is being asked
    writing,        // the image is being written
    programming,    // all bytes are there; the printer programs its flash and will leave
    restarting,     // it has left and should come back with the new firmware
    restarted,      // it is back and is being asked; its tables follow once it is idle
    colorTables,    // table n of m
    done,           // the engine has reported
};

/// What a finished update lacks.
enum class UpdateShortfall { none, imageNotTaken, archiveRefused, versionUnread, otherVersion, tablesMissing, noTable };

/// What one update has come to.
struct UpdateState {
    std::string key;
    UpdatePhase phase = UpdatePhase::checking;
    Clock::TimePoint begun;        // the update
    Clock::TimePoint phaseBegun;   // this phase
    Clock::TimePoint lastSign;     // last byte of the image or table, answer or bus event
    Clock::TimePoint lastProgress; // last byte of the image or table, or change of phase: what brings the end nearer
    std::uint32_t bytesDone = 0;   // of the frame that is being written
    std::uint32_t bytesTotal = 0;
    std::int64_t table = 0; // n of m
    std::int64_t tables = 0;
    std::string tableName;
    std::optional<std::string> previousVersion;
    std::optional<std::string> currentVersion; // last one read since the update began
    std::optional<std::string> offeredVersion;
    std::string rawStatus;           // last status that came
    std::optional<IOReturn> failure; // of the last write that failed since the update began
    bool isAttached = true;
    bool isFinished = false;        // the engine has reported
    bool anyTable = false;          // as the engine reported
    std::int64_t tablesWritten = 0; // tables whose name and contents the bus both took
    bool isBackInLoader = false;    // in firmware update mode again although the image was sent
    bool isImageTaken = false;      // the bus took the whole image
    bool isRefused = false;         // the last command that brings the end nearer failed: failure says how
    bool isArchiveRefused = false;  // the files were damaged when they were needed
    bool isAnswerMissing = false;   // the last question was not answered

    /// The version read afterwards is the offered one and every table went through: facts, not the report.
    bool hasSucceeded() const;
    /// The first thing that keeps it from having succeeded.
    UpdateShortfall shortfall() const;
    /// While the printer must not be disturbed, and the update not be broken off.
    bool isDelicate() const { return phase >= UpdatePhase::enteringLoader && phase <= UpdatePhase::colorTables; }
    /// It answers, and something keeps it from being ready: an open cover, no paper, a head that cools down.
    bool isWaitingUntilReady() const;
    /// It will not go on by itself: advice is due at once.
    bool isStuck() const { return isBackInLoader || isRefused || isArchiveRefused; }
};

class UpdateMonitor final : public PrinterEventsOutlet {
  public:
    /// changed is called after every change of a followed printer, on the event's thread; it may only post.
    UpdateMonitor(Clock& clock, std::function<void(const std::string& key)> changed);

    /// Begins to follow a printer, with what is known of it now. tables: how many its archive has.
    void beginUpdate(const std::string& key, std::optional<std::string> installed, std::optional<std::string> offered,
                     std::int64_t tables);
    /// What the archive offers, for an update that was begun without knowing it.
    void setOffer(const std::string& key, std::optional<std::string> offered, std::int64_t tables);
    /// A person has answered a question: the time before it was theirs, not the printer's.
    void touch(const std::string& key);
    void endUpdate(const std::string& key);
    std::optional<UpdateState> state(const std::string& key) const;

    void printerEvent(const PrinterEvent& event) override;

  private:
    static bool isSignOfLife(const PrinterEvent& event);
    bool apply(UpdateState& state, const PrinterEvent& event);
    void applyBytes(UpdateState& state, const PrinterEvent& event);
    void beginImage(UpdateState& state);
    void applyDeparture(UpdateState& state);
    void applyCommand(UpdateState& state, const PrinterEvent& event);
    void applyStatus(UpdateState& state, const PrinterEvent& event);
    void enter(UpdateState& state, UpdatePhase phase);

    Clock& _clock;
    const std::function<void(const std::string&)> _changed;
    mutable std::mutex _mutex;
    std::map<std::string, UpdateState> _states;
    std::map<std::string, bool> _nameWritten; // whether the table's name, which goes first, was taken
};

} // namespace zul
