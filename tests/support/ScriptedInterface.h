// A USB interface that follows a script: an ordered list of expected calls with their results, and one ordered journal
// of every call with its time-outs. A call that is not the next one of the script fails the test by name; so does a
// script with calls left at the end. Values of the descriptors (vendor, product, endpoints, …) are returned at any
// time. With answerByDefault() all other calls succeed, too, and the script contains only what the test is about.
//
//     auto handle = std::make_shared<ScriptedInterface>();
//     handle->expectUSBInterfaceOpenSeize();
//     handle->expectWritePipeTO(1, frame).withTimeouts(5000, 5000).returns(kIOReturnTimeout);
//     handle->expectReadPipeTO(2, dataFromText("00000006"));
//     handle->expectControlRequestTO(getDescriptor(0x0301)).returns(bytes, kIOReturnSuccess);
#pragma once

#include "platform/foundation/Data.h"
#include "platform/usb/ServiceRegistry.h"

#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <vector>

namespace zul {

/// One call with its arguments and its result. Fields that a call does not have are 0.
struct JournalEntry {
    std::string call; // the method's name
    unsigned pipe = 0;
    Data data;                           // bytes written, or bytes returned
    std::uint32_t size = 0;              // bytes requested (read, control) or given (write)
    IOUSBDevRequestTO request;           // control requests; pData is null
    std::uint32_t noDataTimeout = 0;     // ms
    std::uint32_t completionTimeout = 0; // ms
    IOReturn code = kIOReturnSuccess;

    /// "WritePipeTO pipe 1, 16 bytes, 5000/5000 ms"; "ControlRequestTO 80 06 0301 0409, 256 bytes, 500/1000 ms".
    std::string text() const;
};
using Journal = std::vector<JournalEntry>;

using DataMatcher = std::function<bool(const Data& data)>;
using RequestMatcher = std::function<bool(const IOUSBDevRequestTO& request)>;

/// Matches the standard request for a descriptor (type in the high byte, index in the low one) in any language.
RequestMatcher getDescriptor(std::uint16_t value);
RequestMatcher getDescriptor(std::uint16_t value, std::uint16_t language);
/// Matches the printer class's request for the device ID.
RequestMatcher getDeviceID();
RequestMatcher anyRequest();

/// Header and 16-bit characters of a string descriptor.
Data stringDescriptor(const std::u16string& text);
/// Two length bytes, high byte first, that include themselves, and the text.
Data deviceIDReply(const std::string& text);

class ScriptedInterface final : public IOUSBInterfaceInterface {
  public:
    class Expectation {
      public:
        Expectation& returns(IOReturn code);
        /// Bytes for a read or a control request (cut to the requested size).
        Expectation& returns(Data bytes, IOReturn code = kIOReturnSuccess);
        /// Also checks the call's time-outs, in ms.
        Expectation& withTimeouts(std::uint32_t noData, std::uint32_t completion);
        /// Runs during the call, on the calling thread, before it returns: for example a departure.
        Expectation& during(std::function<void()> block);

      private:
        friend class ScriptedInterface;
        std::string _call;
        unsigned _pipe = 0;
        DataMatcher _data;
        RequestMatcher _request;
        bool _checksTimeouts = false;
        std::uint32_t _noDataTimeout = 0;
        std::uint32_t _completionTimeout = 0;
        std::function<void()> _during;
        Data _answer;
        IOReturn _code = kIOReturnSuccess;
    };

    ScriptedInterface();
    /// Fails the test if expected calls were not made.
    ~ScriptedInterface() override;

    // The script. Results are success without bytes unless set otherwise. A returned reference is valid until the next
    // call.
    Expectation& expectUSBInterfaceOpenSeize();
    Expectation& expectUSBInterfaceClose();
    Expectation& expectWritePipeTO(unsigned pipe, Data data);
    Expectation& expectWritePipeTO(unsigned pipe, DataMatcher data);
    Expectation& expectReadPipeTO(unsigned pipe, Data answer = {}, IOReturn code = kIOReturnSuccess);
    Expectation& expectControlRequestTO(RequestMatcher request);
    Expectation& expectGetDevice();
    /// Any other call by its name: "tryClaim", "resynchronize", "holder", "USBDeviceOpen", "ResetDevice",
    /// "USBDeviceReEnumerate", …
    Expectation& expect(const std::string& call);
    /// Fails the test if expected calls were not made yet; removes them.
    void verify();

    /// Calls that the script does not expect next succeed: writes are accepted, reads return the data of enqueueRead()
    /// and time out after that, requests return the descriptors set here (and stall without one).
    void answerByDefault();
    void enqueueRead(Data data, IOReturn code = kIOReturnSuccess);
    /// Makes all following calls of this name return the code.
    void setAnswer(const std::string& call, IOReturn code);
    /// Makes the n-th wire call from now on (1 is the next) return the code.
    void setFault(unsigned callNumber, IOReturn code);

    // The descriptors. Initially: a printer with two bulk pipes, 1 out and 2 in.
    std::uint8_t interfaceClass = 7;
    std::uint8_t interfaceSubClass = 1;
    std::uint16_t vendor = 0x2A71;
    std::uint16_t product = 3;
    std::uint16_t releaseNumber = 0x0100;
    std::uint32_t locationID = 0x14100000;
    std::uint8_t interfaceNumber = 0;
    std::uint8_t alternateSetting = 0;
    std::uint8_t configurationValue = 1;
    std::uint8_t manufacturerStringIndex = 1;
    std::uint8_t productStringIndex = 2;
    std::uint8_t serialNumberStringIndex = 3;
    std::vector<PipeProperties> endpoints;
    InterfaceHolder interfaceHolder;                          // returned by holder()
    void setDescriptor(std::uint16_t value, Data descriptor); // type in the high byte, index in the low one
    void setString(std::uint8_t index, const std::u16string& text);
    void setDeviceID(const std::string& text);
    void setDeviceIDReply(Data reply); // as it is on the wire, with whatever length it announces

    /// Every call so far, in order.
    Journal journal() const;
    /// The calls to the wire or to the system as texts: all but reads of the descriptors.
    std::vector<std::string> traffic() const;
    unsigned count(const std::string& call) const;
    void clearJournal();
    bool isOpen() const;
    bool isWatched() const;
    /// Simulates the bus's hint that the other holder may have released the interface.
    void holderMayBeFree();

    IOReturn GetInterfaceClass(std::uint8_t& value) override;
    IOReturn GetInterfaceSubClass(std::uint8_t& value) override;
    IOReturn GetDeviceVendor(std::uint16_t& value) override;
    IOReturn GetDeviceProduct(std::uint16_t& value) override;
    IOReturn GetDeviceReleaseNumber(std::uint16_t& value) override;
    IOReturn GetLocationID(std::uint32_t& value) override;
    IOReturn GetInterfaceNumber(std::uint8_t& number) override;
    IOReturn GetAlternateSetting(std::uint8_t& alternate) override;
    IOReturn GetConfigurationValue(std::uint8_t& configuration) override;
    IOReturn GetNumEndpoints(std::uint8_t& count) override;
    IOReturn GetPipeProperties(std::uint8_t pipe, PipeProperties& properties) override;
    IOReturn USBInterfaceOpenSeize() override;
    IOReturn USBInterfaceClose() override;
    InterfaceHolder holder() override;
    IOReturn ReadPipeTO(std::uint8_t pipe, void* buffer, std::uint32_t& size, std::uint32_t noDataTimeout,
                        std::uint32_t completionTimeout) override;
    IOReturn WritePipeTO(std::uint8_t pipe, const void* buffer, std::uint32_t size, std::uint32_t noDataTimeout,
                         std::uint32_t completionTimeout) override;
    IOReturn ControlRequestTO(std::uint8_t pipe, IOUSBDevRequestTO& request) override;
    /// Drops the data of enqueueRead(), as draining a pipe does.
    IOReturn resynchronize(std::uint8_t pipe) override;
    IOReturn GetDevice(std::shared_ptr<IOUSBDeviceInterface>& device) override;
    void setWriteProgress(WriteProgress progress) override;
    void watchHolder(std::function<void()> mayBeFree) override;
    IOReturn tryClaim() override;

  private:
    class Device;
    struct State;
    template <class Value> IOReturn described(const char* call, const Value& known, Value& value);
    static IOReturn play(State& state, JournalEntry entry, Data* answer = nullptr);

    std::shared_ptr<State> _state; // shared with the device handles, which use the same journal
};

/// The service of a scripted interface, as a bus announces it.
class ScriptedService final : public USBService {
  public:
    explicit ScriptedService(std::shared_ptr<ScriptedInterface> scripted) : _scripted(std::move(scripted)) {}
    IOReturn createCode = kIOReturnSuccess;
    std::string location = "1-1";
    std::string node;

    IOReturn createInterfaceInterface(std::shared_ptr<IOUSBInterfaceInterface>& interfaceInterface) override;
    std::string locationText() const override { return location; }
    std::string nodePath() const override { return node; }
    bool isVirtual() const override { return true; }

    IOReturn GetInterfaceClass(std::uint8_t& value) override { return _scripted->GetInterfaceClass(value); }
    IOReturn GetInterfaceSubClass(std::uint8_t& value) override { return _scripted->GetInterfaceSubClass(value); }
    IOReturn GetDeviceVendor(std::uint16_t& value) override { return _scripted->GetDeviceVendor(value); }
    IOReturn GetDeviceProduct(std::uint16_t& value) override { return _scripted->GetDeviceProduct(value); }
    IOReturn GetDeviceReleaseNumber(std::uint16_t& value) override { return _scripted->GetDeviceReleaseNumber(value); }
    IOReturn GetLocationID(std::uint32_t& value) override { return _scripted->GetLocationID(value); }
    IOReturn GetInterfaceNumber(std::uint8_t& value) override { return _scripted->GetInterfaceNumber(value); }
    IOReturn GetAlternateSetting(std::uint8_t& value) override { return _scripted->GetAlternateSetting(value); }
    IOReturn GetConfigurationValue(std::uint8_t& value) override { return _scripted->GetConfigurationValue(value); }
    IOReturn GetNumEndpoints(std::uint8_t& count) override { return _scripted->GetNumEndpoints(count); }
    IOReturn GetPipeProperties(std::uint8_t pipe, PipeProperties& properties) override {
        return _scripted->GetPipeProperties(pipe, properties);
    }

  private:
    const std::shared_ptr<ScriptedInterface> _scripted;
};

} // namespace zul
