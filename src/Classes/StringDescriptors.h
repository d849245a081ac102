// The string descriptors of one printer, in the language that fits this program best. Printer's command queue; at an
// arrival it runs on main, inline.
#pragma once

#include "platform/foundation/Data.h"
#include "platform/usb/IOReturn.h"

#include <cstdint>
#include <optional>
#include <set>
#include <string>

namespace zul {

class CommandChannel;

class StringDescriptors {
  public:
    /// Descriptors are read through the interface of the channel, which outlives this object.
    explicit StringDescriptors(const CommandChannel& channel) : _channel(channel) {}

    /// From here to endArrival() a device that does not answer costs one time-out in all, not one for each string.
    void beginArrival() { _arrival = {.isUnderWay = true}; }
    /// From here on each string is read again, with its own time-out.
    void endArrival() { _arrival = {}; }

    /// Languages of the descriptors, read once; nullopt while they cannot be read (time-outs 500 ms / 2000 ms).
    std::optional<std::set<std::uint16_t>> languages();
    /// The chosen language: the first English one, else the first; 0 while the table cannot be read.
    std::uint16_t language();
    /// Ignored unless languages() contains it.
    void setLanguage(std::uint16_t language);
    /// nullopt if the device has no such string or does not answer (time-outs 500 ms / 1000 ms).
    std::optional<std::string> stringAtIndex(std::uint8_t index);

  private:
    IOReturn read(std::uint16_t value, std::uint16_t index, std::uint32_t completionTimeout, Data& buffer);

    const CommandChannel& _channel;
    std::optional<std::set<std::uint16_t>> _languages;
    std::uint16_t _language = 0;
    std::uint32_t _received = 0; // bytes of the last descriptor
    /// What the strings of one arrival have met so far.
    struct Arrival {
        bool isUnderWay = false;
        bool isTableUnreadable = false; // the language table was asked for
        bool isUnresponsive = false;    // a descriptor was not answered in time
    };
    Arrival _arrival;
};

} // namespace zul
