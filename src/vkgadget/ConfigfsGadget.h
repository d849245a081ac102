// A USB gadget as the kernel's configfs describes one: identity, one configuration, one FunctionFS function.
#pragma once

#include <cstdint>
#include <filesystem>
#include <string>

namespace zul {

struct GadgetIdentity {
    std::uint16_t vendorID = 0;
    std::uint16_t productID = 0;
    std::string manufacturer;
    std::string product;
    std::string serialNumber; ///< empty: the device shows an empty text, since configfs always gives an index
};

/// Everything throws GadgetError except remove(). One thread at a time.
class ConfigfsGadget {
  public:
    /// name is the gadget's folder and the FunctionFS instance. create() makes it.
    ConfigfsGadget(std::string name, const GadgetIdentity& identity);
    ~ConfigfsGadget() { remove(); }
    ConfigfsGadget(const ConfigfsGadget&) = delete;
    ConfigfsGadget& operator=(const ConfigfsGadget&) = delete;

    /// Makes the folders. What a killed process left under the same name goes first.
    void create();
    /// Takes effect at the next plug().
    void setSerialNumber(const std::string& serialNumber);
    /// Connects to a UDC: the host sees the device. The function's descriptors must have been written before.
    void plug(const std::string& udc);
    /// The host sees the device leave. Not an error when it was not plugged.
    void unplug();
    /// Unplugs and takes the gadget out of configfs. Never throws; what does not go is reported on standard error.
    void remove();

    bool isPlugged() const { return _plugged; }

  private:
    void write(const std::filesystem::path& file, const std::string& text) const;
    void removeFolders();

    std::string _name;
    GadgetIdentity _identity;
    std::filesystem::path _folder;
    bool _created = false;
    bool _plugged = false;
};

} // namespace zul
