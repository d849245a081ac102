// The IEEE 1284 device ID: reading it from a printer interface and taking it apart. Free functions without state.
#pragma once

#include <optional>
#include <string>

namespace zul {

class IOUSBInterfaceInterface;

/// Reads the device ID with one GET_DEVICE_ID request (time-outs 100 ms each). nullopt if a number of the interface
/// cannot be read, the request fails or the ID is empty. Command queue.
std::optional<std::string> readDeviceID(IOUSBInterfaceInterface& interface);

/// The values of a device ID; "unknown" for a manufacturer or a model that it does not have.
struct DecodedDeviceID {
    std::optional<std::string> manufacturer; // normalized
    std::optional<std::string> model;
    std::optional<std::string> serialNumber;
    std::optional<std::string> description;
};
/// Takes a device ID apart. Any thread.
DecodedDeviceID decodedDeviceID(const std::string& deviceID);

/// Shorter names of known vendors; others unchanged. Any thread.
std::optional<std::string> normalizedVendor(const std::optional<std::string>& vendor);

} // namespace zul
