// Follows the updates of all printers from the events that the engine reports: the phase of each, for how long, the
// bytes, the last sign of life. It judges nothing and never changes what the engine does. Any thread.
#pragma once

#include "Classes/PrinterEvents.h"
#include "update/UpdateState.h"

#include <functional>
#include <map>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

namespace zul {

/// What an update begins with.
struct UpdateBeginning {
    std::string key;
    std::uint32_t attachment = 0; // token of the printer's service; 0: not known, events of all attachments are used
    std::optional<std::string> installedVersion = {};
    std::optional<std::string> offeredVersion = {};
    std::int64_t tables = 0; // how many its archive has
};

class UpdateMonitor final : public PrinterEventsOutlet {
  public:
    /// changed is called after every change of a followed printer, on the event's thread; it may only post.
    UpdateMonitor(Clock& clock, std::function<void(const std::string& key)> changed);

    /// Begins to follow a printer; an earlier update of it is forgotten.
    void beginUpdate(const UpdateBeginning& beginning);
    /// What the archive has, for an update that was begun without knowing it.
    void setOffer(const std::string& key, std::optional<std::string> offered, std::int64_t tables);
    /// A person has answered a question: the time before it was theirs, not the printer's.
    void touch(const std::string& key);
    void endUpdate(const std::string& key);
    std::optional<UpdateState> state(const std::string& key) const;
    /// The attached printer has answered a question for its status since it was attached.
    bool hasReportedStatus(const std::string& key) const;
    /// The other program that holds the attached printer; nullopt if none does, as far as the last open showed.
    std::optional<InterfaceHolder> holder(const std::string& key) const;

    /// The attached printer did not answer its last questions as it should.
    bool isNotAnswering(const std::string& key) const;
    /// The attached printer did not report its device ID when it was attached.
    bool isIdentityMissing(const std::string& key) const;
    /// The attached printer has been asked for everything since it was attached: what is stored of it is its own.
    bool wasAskedForAll(const std::string& key) const;
    /// The keys of all attached printers.
    std::vector<std::string> attachedKeys() const;

    void printerEvent(const PrinterEvent& event) override;

  private:
    /// One attachment of a printer that need not be in an update.
    struct Attachment {
        std::uint32_t token = 0;
        bool hasReportedStatus = false;
        std::optional<InterfaceHolder> holder = {};
        bool isNotAnswering = false;
        bool isIdentityMissing = false;
        bool wasAskedForAll = false;
        bool hasFailedInRound = false; // since the end of the last round of questions
    };
    struct Visitor;
    /// Of the attached printer with this key; a default one if there is none.
    Attachment attachment(const std::string& key) const;
    void noteAttachment(const PrinterEvent& event);
    static bool isOfAnotherAttachment(const UpdateState& state, const PrinterEvent& event);

    Clock& _clock;
    const std::function<void(const std::string&)> _changed;
    mutable std::mutex _mutex;
    std::map<std::string, UpdateState> _states;
    std::map<std::string, Attachment> _attachments;
    std::map<std::string, bool> _nameWritten; // whether the table's name, which is sent first, was taken
};

} // namespace zul
