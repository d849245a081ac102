// A virtual printer on a USB device controller: carries out the effects of the protocol engine on the bus.
#pragma once

#include "platform/dispatch/Clock.h"
#include "platform/dispatch/Queue.h"
#include "platform/foundation/Data.h"
#include "virtual_printer/VirtualJournal.h"
#include "virtual_printer/VirtualPrinter.h"
#include "virtual_printer/VirtualPrinterSettings.h"
#include "vkgadget/FunctionFs.h"
#include "vkgadget/GadgetConnection.h"
#include "vkgadget/GadgetError.h"

#include <condition_variable>
#include <cstddef>
#include <memory>
#include <mutex>
#include <optional>
#include <string>

namespace zul {

/// The settings that a gadget cannot have, as a sentence for people; empty if it can have all.
std::string problemOfGadget(const VirtualPrinterSettings& settings);

/// Main queue, except for calls of the port's threads. The queue must have ended before this object is destroyed.
class GadgetPrinter {
  public:
    /// The queue and the clock must outlive the printer and its timers.
    GadgetPrinter(MainQueue& mainQueue, Clock& clock, VirtualPrinterSettings settings, const std::string& name,
                  std::shared_ptr<VirtualJournal> journal);
    ~GadgetPrinter() { stop(); }
    GadgetPrinter(const GadgetPrinter&) = delete;
    GadgetPrinter& operator=(const GadgetPrinter&) = delete;

    /// Creates the gadget and plugs it in. Throws GadgetError.
    void start(const std::string& udc);
    /// Unplugs and removes the gadget. May be called twice.
    void stop();

  private:
    // Called on the threads of the port.
    std::size_t received(std::size_t interface, const Data& bytes);
    bool waitForTurn(std::size_t interface);
    void configured(bool configured);
    void controlled(const SetupRequest& request, bool answered);
    void takeTime(std::size_t bytes);
    void send(std::size_t interface, const VirtualTransfer& transfer);
    void sendLate(std::size_t interface, unsigned attachment, const Data& bytes);
    void resetPrinter();

    void attach();
    void schedule(const VirtualDeparture& departure);
    void leave(unsigned attachment, const VirtualDeparture& departure);
    void comeBack(const VirtualDeparture& departure);
    void after(Clock::Duration time, Block block);
    void fail(const GadgetError& error);
    void journal(const std::string& event, const std::string& command = {}, const std::string& result = {});
    void sawCommand(const VirtualCommand& command);
    void report(const std::string& text) const;

    MainQueue& _mainQueue;
    Clock& _clock;
    const VirtualPrinterSettings _settings;
    const std::shared_ptr<VirtualJournal> _journal;
    std::string _udc;

    std::mutex _mutex;                  // guards the printer, _writer, _attachCount and _stopping
    std::condition_variable _changed;   // any of the last three
    std::optional<std::size_t> _writer; // the interface whose frame is incomplete
    VirtualPrinter _printer;
    unsigned _attachCount = 0; // keeps a departure of one attachment from ending a later one
    bool _stopping = false;

    GadgetConnection _port; // last: its threads use all of the above
};

} // namespace zul
