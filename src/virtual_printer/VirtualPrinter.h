// The protocol engine of one virtual printer: input is bytes, output is transfers and their effects on the bus. It uses
// no USB, no clock and no threads: its owner (the embedded bus or the USB gadget) passes the bytes in order, one call
// at a time, and carries out the returned effects.
#pragma once

#include "platform/foundation/Data.h"
#include "virtual_printer/VirtualPrinterSettings.h"
#include "virtual_printer/VirtualTableMemory.h"

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <map>
#include <optional>
#include <span>
#include <string>
#include <vector>

namespace zul {

/// One transfer to the host, ended by a short packet.
struct VirtualTransfer {
    Data bytes;
    bool isStall = false;               // instead of data: the pipe stalls
    std::chrono::milliseconds delay{0}; // until it is ready
};

/// The printer is detached from the bus.
struct VirtualDeparture {
    std::chrono::milliseconds after{0}; // from now; 0: during the current write
    std::chrono::milliseconds away{0};
    bool comesBack = true;
    bool elsewhere = false; // returns on another port
};

/// The effects of the received bytes.
struct VirtualEffects {
    std::vector<VirtualTransfer> transfers;
    std::optional<VirtualDeparture> departure;
    bool stallsOut = false; // the host's write stalls
};

/// A complete command.
struct VirtualCommand {
    std::string text; // without the trailing blanks
    Data payload;
    Data header; // the frame's bytes before the payload
};

class VirtualPrinter {
  public:
    /// sawCommand is called by receive() with each complete command.
    explicit VirtualPrinter(VirtualPrinterSettings settings,
                            std::function<void(const VirtualCommand&)> sawCommand = {});

    /// Receives bytes of the bulk OUT pipe, in pieces of any size. Bytes after a departure with after 0 or after a
    /// stall are ignored; bytes outside a frame are skipped.
    VirtualEffects receive(std::span<const std::uint8_t> bytes);
    /// The number of bytes that complete the current header, or afterwards the current payload.
    std::size_t bytesWanted() const;
    /// A reset of the bus or of the printer: drops an incomplete frame.
    void reset();
    /// The printer is attached (again): it takes the mode, firmware and settings of its restart.
    void attach();
    /// The restart that some firmware makes by itself; call after each attach().
    std::optional<VirtualDeparture> departureAfterAttach();
    /// Counts an open of the interface. Returns how long another program holds it from now on; nullopt if none does.
    std::optional<std::chrono::milliseconds> holderAtOpen();

    /// Mode and firmware of the current attachment.
    bool isLoader() const { return _isLoader; }
    const std::string& firmware() const { return _firmware; }
    /// Whether it replies to the request for its IEEE 1284 device ID.
    bool answersDeviceID() const { return _answersDeviceID; }
    /// As given; what commands have changed is not in them.
    const VirtualPrinterSettings& settings() const { return _settings; }
    /// The tables as they are now.
    const VirtualTableMemory& tables() const { return _tables; }
    /// Counters by letter: A, B, M, P and T (matte), and L (lifetime).
    std::uint32_t counter(char letter) const;

    // The texts of the device's strings and descriptors.
    /// The IEEE 1284 device ID without its two bytes of length.
    std::string deviceID() const;
    std::string manufacturerText() const { return "Zul Imaging Company"; }
    /// The model's name.
    std::string productText() const;
    /// nullopt while the USB serial setting is off; a change takes effect at the next attachment.
    std::optional<std::string> serialText() const;
    std::uint16_t vendorID() const { return _settings.vendorID; }
    /// The product ID of the model; a loader may have a different one.
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
    /// The fault of this kind for the current frame; null if there is none.
    const VirtualFault* fault(VirtualFaultKind kind) const;
    bool hasFault(VirtualFaultKind kind) const { return fault(kind) != nullptr; }
    VirtualDeparture restart(std::chrono::milliseconds after) const;

    const VirtualPrinterSettings _settings;
    const std::function<void(const VirtualCommand&)> _sawCommand;
    std::vector<VirtualFault> _faults;    // those that have not happened yet; occurrence is decremented
    std::vector<VirtualFault> _dueFaults; // of the current frame

    Data _frame;                  // received part of header and payload
    std::size_t _payloadSize = 0; // as announced by the header
    std::size_t _unplugAt = 0;    // depart when the frame has this many bytes; 0: never
    std::string _text;            // of the current frame

    bool _isLoader = false;
    bool _nextIsLoader = false;
    bool _answersDeviceID = true;
    bool _nextIsWithoutID = false;
    std::string _firmware;
    std::string _nextFirmware;
    std::string _finalFirmware; // after an intermediate version: one more restart activates it
    std::vector<std::string> _statuses;
    std::size_t _statusIndex = 0;
    bool _isUpdated = false;
    bool _serialSetting;
    bool _hasSerial;
    std::map<char, std::uint32_t> _counters;
    VirtualTableMemory _tables;
};

} // namespace zul
