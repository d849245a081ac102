// Follows the updates of all printers from the events that the engine reports: the phase of each and its duration, the
// bytes, the last sign of life. It gives no verdicts and never influences the engine. Any thread.
#pragma once

#include "Classes/PrinterEvents.h"
#include "platform/dispatch/Clock.h"
#include "platform/usb/PrinterReservations.h"
#include "update/UpdateState.h"

#include <cstdint>
#include <functional>
#include <map>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

namespace zul {

/// What is known of a printer when its update begins.
struct UpdateBeginning {
    std::string key;
    std::uint32_t attachment = 0; // token of the printer's service; 0: not known, events of all attachments are used
    std::optional<std::string> installedVersion = {};
    std::optional<std::string> availableVersion = {};
    std::int64_t tables = 0; // how many the archive has for it
};

class UpdateMonitor final : public PrinterEventsOutlet {
  public:
    /// changed is called after every change of a followed printer, on the event's thread; it may only post a block.
    UpdateMonitor(Clock& clock, std::function<void(const std::string& key)> changed);

    /// Begins to follow a printer. The state of an earlier update of it is lost.
    void beginUpdate(const UpdateBeginning& beginning);
    /// Sets what the archive has, for an update that was begun without it: the firmware version and the number of
    /// tables. Ignored for a printer that is not followed.
    void setAvailable(const std::string& key, std::optional<std::string> available, std::int64_t tables);
    /// Restarts the times without progress and without a sign of life, because the operator has answered a question:
    /// the printer had to wait until then. Ignored for a printer that is not followed.
    void touch(const std::string& key);
    /// Stops following the printer and forgets its state.
    void endUpdate(const std::string& key);
    /// A copy of the state; nullopt if the printer is not followed.
    std::optional<UpdateState> state(const std::string& key) const;

    // The questions below are about any printer, in an update or not. They are false or empty for one that is not
    // attached.

    /// The attached printer has reported its status since it was attached.
    bool hasReportedStatus(const std::string& key) const;
    /// The other process that holds the attached printer, according to the last open; nullopt if none does.
    std::optional<InterfaceHolder> holder(const std::string& key) const;
    /// In the current or last round of queries the attached printer left a query without a reply, or gave none that can
    /// belong to it, even after the pipe was emptied.
    bool isNotAnswering(const std::string& key) const;
    /// The attached printer did not report its device ID when it was attached.
    bool isIdentityMissing(const std::string& key) const;
    /// A whole round of queries has ended since the printer was attached: its stored device info is its own, and not
    /// that of an earlier printer with this key.
    bool wasAskedForAll(const std::string& key) const;
    /// The keys of all attached printers. A late event may add the key of one that has left: look the printer up.
    std::vector<std::string> attachedKeys() const;

    /// Applies the event, then calls changed if it was a change. Any thread.
    void printerEvent(const PrinterEvent& event) override;

  private:
    /// The current attachment of a printer, in an update or not.
    struct Attachment {
        std::uint32_t token = 0;
        bool hasReportedStatus = false;
        std::optional<InterfaceHolder> holder = {};
        bool isNotAnswering = false;
        bool isIdentityMissing = false;
        bool wasAskedForAll = false;
        bool hasFailedInRound = false; // a query without its reply since the end of the last round of queries
    };
    struct Visitor;
    /// Of the attached printer with this key; a default one if there is none.
    Attachment attachment(const std::string& key) const;
    /// Keeps _attachments up to date. The caller holds the mutex.
    void noteAttachment(const PrinterEvent& event);
    /// The event is not about the printer object that is being updated.
    static bool isOfAnotherAttachment(const UpdateState& state, const PrinterEvent& event);

    Clock& _clock;
    const std::function<void(const std::string&)> _changed;
    mutable std::mutex _mutex; // for the three maps, all by key
    std::map<std::string, UpdateState> _states;
    std::map<std::string, Attachment> _attachments;
    std::map<std::string, bool> _nameWritten; // the name of the current table, which is sent before it, was written
};

} // namespace zul
