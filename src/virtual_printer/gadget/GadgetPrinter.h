// A virtual printer plugged into a USB device controller: carries out on the bus what the protocol engine asks for.
#pragma once

#include "platform/dispatch/Queue.h"
#include "virtual_printer/VirtualJournal.h"
#include "virtual_printer/VirtualPrinter.h"
#include "virtual_printer/gadget/GadgetError.h"
#include "virtual_printer/gadget/GadgetPort.h"

#include <condition_variable>
#include <memory>
#include <mutex>
#include <optional>
#include <string>

namespace zul {

/// What of these settings no gadget can do, told for people; empty when it can all be done.
std::string problemOfGadget(const VirtualPrinterSettings& settings);

/// Main queue, except for what the port calls on its threads. The queue must have ended before this goes.
class GadgetPrinter {
  public:
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
    void sendLate(std::size_t interface, unsigned stay, const Data& bytes);
    void resetPrinter();

    void attach();
    void schedule(const VirtualDeparture& departure);
    void leave(unsigned stay, const VirtualDeparture& departure);
    void comeBack(const VirtualDeparture& departure);
    void fail(const GadgetError& error);
    void journal(const std::string& event, const std::string& command = {}, const std::string& result = {});
    void sawCommand(const VirtualCommand& command);
    void tell(const std::string& text) const;

    MainQueue& _mainQueue;
    Clock& _clock;
    const VirtualPrinterSettings _settings;
    const std::shared_ptr<VirtualJournal> _journal;
    std::string _udc;

    std::mutex _mutex;                  // guards the printer, _writer, _stay and _stopping
    std::condition_variable _changed;   // any of the last three
    std::optional<std::size_t> _writer; // the interface whose frame is under way
    VirtualPrinter _printer;
    unsigned _stay = 0; // counts the times on the bus, so that no departure is carried out in a later one
    bool _stopping = false;

    GadgetPort _port; // last: its threads use all of the above
};

} // namespace zul
