// Carries out the effects of the protocol engine on a real bus: delayed replies, restarts, departures. Bytes arrive on
// the port's threads, which also carry out an immediate departure; all later effects run on the main queue.
#include "vkgadget/GadgetPrinter.h"

#include "platform/dispatch/Clock.h"
#include "platform/dispatch/Queue.h"
#include "platform/foundation/Data.h"
#include "platform/foundation/Format.h"
#include "virtual_printer/VirtualJournal.h"
#include "virtual_printer/VirtualModels.h"
#include "virtual_printer/VirtualPrinter.h"
#include "virtual_printer/VirtualPrinterSettings.h"
#include "vkgadget/ConfigfsGadget.h"
#include "vkgadget/Descriptors.h"
#include "vkgadget/FunctionFs.h"
#include "vkgadget/GadgetError.h"
#include "vkgadget/Host.h"

#include <algorithm>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <iostream>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace zul {

namespace {

constexpr std::size_t kHeaderSize = 32; // of a frame

GadgetIdentity identityOf(const VirtualPrinter& printer) {
    return {.vendorID = printer.vendorID(),
            .productID = printer.productID(),
            .manufacturer = printer.manufacturerText(),
            .product = printer.productText(),
            .serialNumber = printer.serialText().value_or("")};
}

} // namespace

std::string problemOfGadget(const VirtualPrinterSettings& settings) {
    if (settings.location) return "a gadget's place on the bus is given by --udc, not by \"location\"";
    const auto isHolder = [](const VirtualFault& fault) { return fault.kind == VirtualFaultKind::holder; };
    if (std::any_of(settings.faults.begin(), settings.faults.end(), isHolder)) {
        return "the fault \"holder\" is another program on the host, which a device cannot play";
    }
    return {};
}

GadgetPrinter::GadgetPrinter(MainQueue& mainQueue, Clock& clock, VirtualPrinterSettings settings,
                             const std::string& name, std::shared_ptr<VirtualJournal> journal)
    : _mainQueue(mainQueue), _clock(clock), _settings(std::move(settings)), _journal(std::move(journal)),
      _printer(_settings, [this](const VirtualCommand& command) { sawCommand(command); }),
      _port(name, identityOf(_printer), _settings.interfaces,
            {.received = [this](std::size_t interface, const Data& bytes) { return received(interface, bytes); },
             .configured = [this](bool isConfigured) { configured(isConfigured); },
             .controlled = [this](const SetupRequest& request, bool answered) { controlled(request, answered); }}) {}

void GadgetPrinter::start(const std::string& udc) {
    _udc = udc;
    _port.open();
    attach();
}

void GadgetPrinter::stop() {
    {
        const std::lock_guard lock(_mutex);
        _stopping = true;
    }
    _changed.notify_all();
    _port.close();
}

// ---- on the threads of the port -------------------------------------------------------------------------------------

std::size_t GadgetPrinter::received(std::size_t interface, const Data& bytes) {
    if (!waitForTurn(interface)) return 0;
    takeTime(bytes.size());
    VirtualEffects effects;
    std::size_t wanted = 0;
    {
        const std::lock_guard lock(_mutex);
        effects = _printer.receive(bytes);
        wanted = _printer.bytesWanted();
        // A rest of a header's size may be the start of the next frame: let the other interface write first.
        if (wanted == kHeaderSize) _writer.reset();
    }
    _changed.notify_all();
    for (const VirtualTransfer& transfer : effects.transfers) send(interface, transfer);
    if (effects.stallsOut) _port.stallWrites(interface);
    if (effects.departure) schedule(*effects.departure);
    return wanted;
}

// All interfaces lead to one printer, which could not distinguish their frames. Returns false if the bytes are lost
// because the printer has left meanwhile.
bool GadgetPrinter::waitForTurn(std::size_t interface) {
    std::unique_lock lock(_mutex);
    const unsigned attachment = _attachCount;
    _changed.wait(lock, [&] { return _stopping || attachment != _attachCount || !_writer || *_writer == interface; });
    if (_stopping || attachment != _attachCount) return false;
    _writer = interface;
    return true;
}

void GadgetPrinter::resetPrinter() {
    {
        const std::lock_guard lock(_mutex);
        _printer.reset();
        _writer.reset();
    }
    _changed.notify_all();
}

void GadgetPrinter::takeTime(std::size_t bytes) {
    // A command takes no measurable time; only full packets do.
    if (bytes < kHighSpeedPacketSize) return;
    std::unique_lock lock(_mutex);
    _changed.wait_for(lock, std::chrono::microseconds(1000000LL * static_cast<long long>(bytes) / _settings.speed),
                      [this] { return _stopping; });
}

void GadgetPrinter::send(std::size_t interface, const VirtualTransfer& transfer) {
    if (transfer.isStall) {
        _port.stallReads(interface);
    } else if (transfer.delay.count() == 0) {
        _port.send(interface, transfer.bytes);
    } else {
        unsigned attachment = 0;
        {
            const std::lock_guard lock(_mutex);
            attachment = _attachCount;
        }
        after(transfer.delay,
              [this, interface, attachment, bytes = transfer.bytes] { sendLate(interface, attachment, bytes); });
    }
}

// A delayed reply is lost when the printer leaves, as with a real printer.
void GadgetPrinter::sendLate(std::size_t interface, unsigned attachment, const Data& bytes) {
    {
        const std::lock_guard lock(_mutex);
        if (attachment != _attachCount || _stopping) return;
    }
    _port.send(interface, bytes);
}

void GadgetPrinter::configured(bool configured) {
    if (!configured) resetPrinter();
}

void GadgetPrinter::controlled(const SetupRequest& request, bool answered) {
    journal("control", formatted("%02x %u", unsigned{request.requestType}, unsigned{request.request}),
            answered ? "" : "stall");
    if (answered && !request.isDeviceToHost()) resetPrinter();
}

void GadgetPrinter::sawCommand(const VirtualCommand& command) {
    VirtualJournalEntry entry;
    entry.printer = _settings.serial;
    entry.event = "command";
    entry.command = command.text;
    entry.length = static_cast<std::uint32_t>(command.payload.size());
    if (!command.payload.empty()) entry.sha256 = sha256Of(command.payload);
    _journal->add(std::move(entry));
}

void GadgetPrinter::journal(const std::string& event, const std::string& command, const std::string& result) {
    VirtualJournalEntry entry;
    entry.printer = _settings.serial;
    entry.event = event;
    entry.command = command;
    entry.result = result;
    _journal->add(std::move(entry));
}

// ---- arrival and departure ------------------------------------------------------------------------------------------

void GadgetPrinter::attach() {
    std::optional<VirtualDeparture> restartsByItself;
    std::string deviceID;
    std::string serialNumber;
    std::string what;
    {
        const std::lock_guard lock(_mutex);
        _printer.attach();
        _writer.reset();
        restartsByItself = _printer.departureAfterAttach();
        ++_attachCount;
        deviceID = _printer.answersDeviceID() ? _printer.deviceID() : "";
        serialNumber = _printer.serialText().value_or("");
        what = _printer.isLoader() ? "in its loader" : "with firmware " + _printer.firmware();
    }
    _port.setDeviceID(deviceID);
    _port.setSerialNumber(serialNumber);
    // Identity and serial number are set by now: the host reads them as soon as the gadget is plugged in.
    journal("arrive");
    _port.plugInto(_udc);
    report("on " + _udc + " " + what);
    if (restartsByItself) schedule(*restartsByItself);
}

void GadgetPrinter::schedule(const VirtualDeparture& departure) {
    unsigned attachment = 0;
    {
        const std::lock_guard lock(_mutex);
        attachment = _attachCount;
    }
    if (departure.after.count() == 0) {
        leave(attachment, departure); // immediately: the host must not complete the rest of its write
        return;
    }
    after(departure.after, [this, attachment, departure] { leave(attachment, departure); });
}

void GadgetPrinter::leave(unsigned attachment, const VirtualDeparture& departure) {
    {
        const std::lock_guard lock(_mutex);
        if (attachment != _attachCount || _stopping) return;
        ++_attachCount;
        _writer.reset();
    }
    _changed.notify_all();
    try {
        _port.unplug();
    } catch (const GadgetError& error) {
        fail(error);
        return;
    }
    journal("leave");
    report(departure.comesBack ? formatted("left the bus, back in %d ms", departure.away.count())
                               : std::string("left the bus for good"));
    if (!departure.comesBack) return;
    after(departure.away, [this, departure] { comeBack(departure); });
}

void GadgetPrinter::comeBack(const VirtualDeparture& departure) {
    try {
        if (departure.elsewhere) {
            auto others = freeUdcs();
            std::erase(others, _udc);
            if (others.empty()) throw GadgetError("no other USB device controller is free to come back on");
            _udc = others.front();
        }
        attach();
    } catch (const GadgetError& error) {
        fail(error);
    }
}

// The timer itself must not use the printer, which may be destroyed before it; the queue ends first.
void GadgetPrinter::after(Clock::Duration time, Block block) {
    _clock.callAt(_clock.now() + time,
                  [&queue = _mainQueue, block = std::move(block)]() mutable { queue.async(std::move(block)); });
}

void GadgetPrinter::fail(const GadgetError& error) {
    std::cerr << "vkgadget: " << error.what() << std::endl;
    _mainQueue.quit(1);
}

void GadgetPrinter::report(const std::string& text) const {
    std::cout << "vkgadget: " << _settings.model->name << " " << _settings.serial << " " << text << std::endl;
}

} // namespace zul
