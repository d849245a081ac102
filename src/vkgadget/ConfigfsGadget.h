// A USB gadget in the kernel's configfs: identity, one configuration, one FunctionFS function.
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
    std::string serialNumber; ///< empty: the device reports an empty string, because configfs always assigns an index
};

/// All operations but remove() throw GadgetError. One thread at a time.
class ConfigfsGadget {
  public:
    /// name: of the gadget's folder and of the FunctionFS instance. The gadget is created by create().
    ConfigfsGadget(std::string name, const GadgetIdentity& identity);
    ~ConfigfsGadget() { remove(); }
    ConfigfsGadget(const ConfigfsGadget&) = delete;
    ConfigfsGadget& operator=(const ConfigfsGadget&) = delete;

    /// Creates the folders, after removing those that a killed process left under the same name.
    void create();
    /// Takes effect at the next plug().
    void setSerialNumber(const std::string& serialNumber);
    /// Binds the gadget to a UDC: the host detects the device. The function's descriptors must have been written
    /// before.
    void plug(const std::string& udc);
    /// Unbinds the gadget: the host sees the device leave. Not an error if it was not plugged.
    void unplug();
    /// Unplugs the gadget and removes it from configfs. Never throws; failures are reported on standard error.
    void remove();

    /// As far as this object knows: the kernel may have unbound the gadget by itself.
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
