// A virtual printer plugged into a USB device controller: carries out on the bus what the protocol engine asks for.
#pragma once

#include "platform/dispatch/Queue.h"
#include "virtual_printer/VirtualJournal.h"
#include "virtual_printer/VirtualPrinter.h"
#include "vkgadget/GadgetError.h"
#include "vkgadget/GadgetPort.h"

#include <condition_variable>
#include <memory>
#include <mutex>
#include <optional>
#include <string>

namespace zul {

/// Which of these settings a gadget cannot have, as a sentence for people; empty when it can have all.
std::string problemOfGadget(const VirtualPrinterSettings& settings);

/// Main queue, except for what the port calls on its threads. The queue must have ended before this is destroyed.
class GadgetPrinter {
  public:
    /// The queue and the clock must outlive the printer and its timers.
    GadgetPrinter(MainQueue& mainQueue, Clock& clock, VirtualPrinterSettings settings, const std::string& name,
                  std::shared_ptr<VirtualJournal> journal);
    ~GadgetPrinter() { stop(); }
    GadgetPrinter(const GadgetPrinter&) = delete;
    GadgetPrinter& operator=(const GadgetPrinter&) = delete;

    /// Makes the gadget and plugs it in. Throws GadgetError.
    void start(const std::string& udc);
    /// Unplugs it and takes it out of the system. Safe to call twice.
    void stop();

  private:
    // On the threads of the port.
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
    std::optional<std::size_t> _writer; // the interface whose frame is under way
    VirtualPrinter _printer;
    unsigned _attachCount = 0; // so that no departure of one attachment is carried out in a later one
    bool _stopping = false;

    GadgetPort _port; // last: its threads use all of the above
};

} // namespace zul
