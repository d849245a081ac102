// One virtual printer as a protocol engine: bytes in, transfers out, and what happens on the bus because of them. It
// has no USB, no time and no threads of its own: its owner (the embedded bus, the USB gadget) passes it the bytes in
// order, one call at a time, and carries out the effects that it returns.
#pragma once

#include "platform/foundation/Data.h"
#include "virtual_printer/VirtualPrinterSettings.h"
#include "virtual_printer/VirtualTableMemory.h"

#include <chrono>
#include <functional>
#include <map>
#include <optional>
#include <span>
#include <string>
#include <vector>

namespace zul {

/// One transfer towards the host: ended by a short packet.
struct VirtualTransfer {
    Data bytes;
    bool isStall = false;               // instead: the pipe stalls
    std::chrono::milliseconds delay{0}; // before it is ready
};

/// The printer leaves the bus.
struct VirtualDeparture {
    std::chrono::milliseconds after{0}; // from now; 0: in the middle of what is being sent
    std::chrono::milliseconds away{0};
    bool comesBack = true;
    bool elsewhere = false; // on another port
};

/// What came of the bytes that were given.
struct VirtualEffects {
    std::vector<VirtualTransfer> transfers;
    std::optional<VirtualDeparture> departure;
    bool stallsOut = false; // the host's write fails
};

/// A command that is complete.
struct VirtualCommand {
    std::string text; // without the blanks after it
    Data payload;
    Data header; // the frame's bytes before the payload
};

class VirtualPrinter {
  public:
    /// sawCommand is called with each complete command, from receive().
    explicit VirtualPrinter(VirtualPrinterSettings settings,
                            std::function<void(const VirtualCommand&)> sawCommand = {});

    /// Takes bytes of the bulk OUT pipe, in pieces of any size. What follows a departure of 0 or a stall is not taken;
    /// bytes outside a frame are skipped.
    VirtualEffects receive(std::span<const std::uint8_t> bytes);
    /// How many bytes the frame under way still needs: the rest of its header, then the rest of its payload.
    std::size_t bytesWanted() const;
    /// A reset of the bus or of the printer: a frame that was under way is forgotten.
    void reset();
    /// The printer is attached (again): takes the mode, the firmware and the settings it restarted with.
    void attach();
    /// Some firmware restarts by itself once it runs: asked after each attach.
    std::optional<VirtualDeparture> departureAfterAttach();
    /// Counts an open of the interface; how long another program holds it from now on, if it does.
    std::optional<std::chrono::milliseconds> holderAtOpen();

    bool isLoader() const { return _isLoader; }
    const std::string& firmware() const { return _firmware; }
    /// Whether it answers the request for its IEEE 1284 device ID.
    bool answersDeviceID() const { return _answersDeviceID; }
    const VirtualPrinterSettings& settings() const { return _settings; }
    const VirtualTableMemory& tables() const { return _tables; }
    /// Counters by letter: A, B, M, P and T (matte), and L (lifetime).
    std::uint32_t counter(char letter) const;

    // What the device's strings and descriptors say.
    /// The IEEE 1284 device ID without its two bytes of length.
    std::string deviceID() const;
    std::string manufacturerText() const { return "Zul Imaging Company"; }
    std::string productText() const;
    /// nullopt while the USB serial setting is off; a change takes effect at the next attach.
    std::optional<std::string> serialText() const;
    std::uint16_t vendorID() const { return _settings.vendorID; }
    /// The model's; a loader may have another.
    std::uint16_t productID() const;

  private:
    void takeHeader(VirtualEffects& effects);
    void finishFrame(VirtualEffects& effects);
    void handle(const VirtualCommand& command, VirtualEffects& effects);
    void handleInLoader(const VirtualCommand& command, VirtualEffects& effects);
    void handleWrite(const VirtualCommand& command);
    std::optional<std::string> answerTo(const VirtualCommand& command);
    std::optional<std::string> counterAnswer(const std::string& text) const;
    std::string nextStatus();
    void answer(const std::string& body, VirtualEffects& effects);
    void enterLoader(VirtualEffects& effects);
    void programFlash(const Data& image, VirtualEffects& effects);
    std::vector<VirtualFault> faultsFor(const std::string& command);
    /// The fault of this kind that the frame under way has; null without one.
    const VirtualFault* fault(VirtualFaultKind kind) const;
    bool hasFault(VirtualFaultKind kind) const { return fault(kind) != nullptr; }
    VirtualDeparture restart(std::chrono::milliseconds after) const;

    const VirtualPrinterSettings _settings;
    const std::function<void(const VirtualCommand&)> _sawCommand;
    std::vector<VirtualFault> _faults;    // those that have not happened yet; occurrence counts down
    std::vector<VirtualFault> _dueFaults; // of the frame under way

    Data _frame;                  // header and payload as far as they have come
    std::size_t _payloadSize = 0; // as the header announced it
    std::size_t _unplugAt = 0;    // leave when the frame has this many bytes; 0: no
    std::string _text;            // of the frame under way

    bool _isLoader = false;
    bool _nextIsLoader = false;
    bool _answersDeviceID = true;
    bool _nextIsWithoutID = false;
    std::string _firmware;
    std::string _nextFirmware;
    std::string _finalFirmware; // after an intermediate version: one more restart leads to it
    std::vector<std::string> _statuses;
    std::size_t _statusIndex = 0;
    bool _isUpdated = false;
    bool _serialSetting;
    bool _hasSerial;
    std::map<char, std::uint32_t> _counters;
    VirtualTableMemory _tables;
};

} // namespace zul
