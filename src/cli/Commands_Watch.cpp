// The command watch: prints arrivals, departures and every changed entry of the device info as they happen.
// Called by main() on the main queue.
#include "Classes/DeviceInfoKeys.h"
#include "Classes/TBUSBPrinter.h"
#include "cli/Commands.h"
#include "cli/ExitStatus.h"
#include "cli/Program.h"
#include "platform/foundation/KeyValueObserving.h"
#include "platform/foundation/PrintableText.h"
#include "session/PrinterInfo.h"
#include "session/Session.h"

#include <algorithm>
#include <map>
#include <memory>
#include <nlohmann/json.hpp>
#include <set>
#include <string>

namespace zul::cli {

namespace {

using nlohmann::json;

// Two entries are announced under the name of their property instead of their key.
std::string factOfNotice(const std::string& keyPath) {
    if (keyPath == "lifetimeCounter") return HOLVEN_TBPrinterLifetimeCounter;
    return keyPath == "usbISerialString" ? HOLVEN_ZUL_USB_ISerialisSet : keyPath;
}

class Watcher final : public KeyValueObserver, public SessionObserver, public std::enable_shared_from_this<Watcher> {
  public:
    explicit Watcher(Program& program) : _program(program) {}

    void begin() {
        // Registered before the list is read, so that no arrival in between is missed. Without a context: the list, not
        // a printer.
        _program.session.controller->addObserver(weak_from_this(), "printers", nullptr);
        compareList();
    }

    // Called on the thread that makes the change; the output is written on the main queue.
    void observeValueForKeyPath(const std::string& keyPath, KeyValueObservable& /*object*/, void* context) override {
        const auto weak = weak_from_this();
        if (context == nullptr) {
            _program.session.mainQueue.async([weak] {
                if (const auto self = weak.lock()) self->compareList();
            });
            return;
        }
        const auto printer = static_cast<TBUSBPrinterZUL*>(context)->shared_from_this();
        // Copied now: on the main queue it may have changed again.
        const auto value = static_cast<TBUSBPrinterZUL*>(context)->deviceInfoDict()->entries();
        const std::string key = factOfNotice(keyPath);
        const auto fact = value.find(key);
        const json held = fact == value.end() ? json(nullptr) : jsonOf(fact->second);
        _program.session.mainQueue.async([weak, printer, key, held] {
            if (const auto self = weak.lock()) self->showValue(*printer, key, held);
        });
    }

    void updateDidChange(const std::string& /*key*/) override {}
    void updateDidEnd(const std::string& /*key*/) override {}
    void conditionsMayHaveChanged() override { compareConditions(); }
    void interruptedDidChange() override { compareConditions(); }
    void unusablePrintersDidChange() override { compareConditions(); }
    void unusablePrinterDidArrive(const std::string& message) override { _program.output.note(message); }

  private:
    void compareList() {
        const auto now = _program.session.printers();
        for (auto shown = _shown.begin(); shown != _shown.end();) {
            if (std::find(now.begin(), now.end(), *shown) == now.end()) {
                // With the same three values as at the registration.
                (*shown)->removeObserver(weak_from_this(), KeyValueObservable::kEveryKey, shown->get());
                show(**shown, "departed", "", nullptr);
                shown = _shown.erase(shown);
            } else {
                ++shown;
            }
        }
        for (const auto& printer : now) {
            if (!_shown.insert(printer).second) continue;
            show(*printer, "arrived", "", nullptr);
            for (const auto& [key, value] : printer->deviceInfoDict()->entries())
                showValue(*printer, key, jsonOf(value));
            printer->addObserver(weak_from_this(), KeyValueObservable::kEveryKey, printer.get());
        }
        compareConditions();
    }

    // The conditions that list shows beside the status: which process uses a printer, an update to be completed,
    // missing replies.
    void compareConditions() {
        for (const auto& printer : _shown) {
            if (!_program.output.isJson()) {
                const std::string text = conditionText(_program.session.supervisor, *printer);
                showValue(*printer, "condition", text.empty() ? json(nullptr) : json(text));
                continue;
            }
            const json conditions = conditionOf(_program.session.supervisor, *printer);
            for (const auto& [key, value] : conditions.items()) {
                // Reports a condition when it begins and when it ends, but not that it is absent at the start.
                if (value != json(false) || _last[printer->keyUSBdevice()].contains(key)) {
                    showValue(*printer, key, value);
                }
            }
        }
    }

    // An entry that was read again with the same value is not a change.
    void showValue(const TBUSBPrinter& printer, const std::string& key, const json& value) {
        json& last = _last[printer.keyUSBdevice()][key];
        if (last == value) return; // also for keys that are states of the object, not entries of the device info
        last = value;
        show(printer, "changed", key, value);
    }

    void show(const TBUSBPrinter& printer, const char* event, const std::string& key, const json& value) {
        write(printer, event, key, value);
        if (_program.output.isLost()) _program.quit(kDone); // the reader has closed standard output
    }

    void write(const TBUSBPrinter& printer, const char* event, const std::string& key, const json& value) {
        if (_program.output.isJson()) {
            json line = {{"event", event}, {"printer", printer.keyUSBdevice()}, {"location", printer.locationText()}};
            if (!key.empty()) {
                line["key"] = key;
                line["value"] = value;
            }
            _program.output.object(line);
            return;
        }
        std::string text = printer.keyUSBdevice() + "  " + event;
        text += key.empty() ? "  " + printer.descriptionUTF8() + " at " + printer.locationText()
                            : "  " + key + " = " + oneLineText(value);
        _program.output.line(printableInLine(text));
    }

    Program& _program;
    std::set<Program::Printer> _shown;
    std::map<std::string, std::map<std::string, json>> _last;
};

} // namespace

void runWatch(Program& program) {
    static std::shared_ptr<Watcher> watcher; // kept until the process ends
    watcher = std::make_shared<Watcher>(program);
    program.noteUnusable();
    program.session.setObserver(watcher.get());
    watcher->begin();
}

} // namespace zul::cli
