// Calls arrive on printers' queues as well as on the test's thread: shared data is in State, guarded by its mutex.
// Blocks of the test run without the mutex.
#include "support/ScriptedInterface.h"

#include <algorithm>
#include <cstring>
#include <deque>
#include <doctest/doctest.h>
#include <exception>
#include <fmt/printf.h>
#include <list>
#include <map>
#include <mutex>

namespace zul {

namespace {

bool isDescriptorCall(const std::string& call) {
    const bool asks = call.starts_with("Get") || (call.starts_with("USBGet") && call.ends_with("StringIndex"));
    return asks && call != "GetDevice";
}

std::uint32_t descriptorKey(const IOUSBDevRequestTO& request) {
    return static_cast<std::uint32_t>(request.bmRequestType << 24 | request.bRequest << 16 | request.wValue);
}

constexpr std::uint8_t kStandardIn = 0x80;
constexpr std::uint8_t kGetDescriptor = 6;
constexpr std::uint8_t kClassInterfaceIn = 0xA1;

} // namespace

using Expectation = ScriptedInterface::Expectation;

Expectation& Expectation::returns(IOReturn code) {
    _code = code;
    return *this;
}

Expectation& Expectation::returns(Data bytes, IOReturn code) {
    _answer = std::move(bytes);
    return returns(code);
}

Expectation& Expectation::withTimeouts(std::uint32_t noData, std::uint32_t completion) {
    _checksTimeouts = true;
    _noDataTimeout = noData;
    _completionTimeout = completion;
    return *this;
}

Expectation& Expectation::during(std::function<void()> block) {
    _during = std::move(block);
    return *this;
}

struct ScriptedInterface::State {
    mutable std::mutex mutex;
    std::list<Expectation> script;
    bool answersByDefault = false;
    std::deque<std::pair<Data, IOReturn>> reads;
    std::map<std::string, IOReturn> answers;
    unsigned faultAt = 0;
    IOReturn faultCode = kIOReturnSuccess;
    std::map<std::uint32_t, Data> replies; // to control requests, by descriptorKey
    Journal journal;
    bool open = false;
    WriteProgress progress;
    std::function<void()> mayBeFree;

    Expectation& add(std::string call) {
        const std::scoped_lock lock(mutex);
        script.emplace_back()._call = std::move(call);
        return script.back();
    }

    // The difference from the first expected call; empty if there is none. Call with the mutex held.
    std::string mismatch(const JournalEntry& entry) const {
        if (script.empty()) return "unexpected call " + entry.text() + ": the script has ended";
        const Expectation& next = script.front();
        if (next._call != entry.call) return "unexpected call " + entry.text() + ": the script has " + next._call;
        const bool isPipeCall = entry.call == "WritePipeTO" || entry.call == "ReadPipeTO";
        if (isPipeCall && next._pipe != entry.pipe) {
            return "wrong pipe in " + entry.text() + ": the script has pipe " + std::to_string(next._pipe);
        }
        if (next._data && !next._data(entry.data)) return "wrong bytes in " + entry.text();
        if (next._request && !next._request(entry.request)) return "wrong request in " + entry.text();
        if (next._checksTimeouts &&
            (next._noDataTimeout != entry.noDataTimeout || next._completionTimeout != entry.completionTimeout)) {
            return fmt::sprintf("wrong time-outs in %s: the script has %u/%u ms", entry.text(), next._noDataTimeout,
                                next._completionTimeout);
        }
        return {};
    }

    // The result of an interface without a script. Call with the mutex held.
    IOReturn defaultAnswer(const JournalEntry& entry, Data& answer) {
        if (entry.call == "ReadPipeTO") {
            if (reads.empty()) return kIOUSBTransactionTimeout;
            const IOReturn code = reads.front().second;
            answer = std::move(reads.front().first);
            reads.pop_front();
            return code;
        }
        if (entry.call == "ControlRequestTO") {
            const auto found = replies.find(descriptorKey(entry.request));
            if (found == replies.end()) return kIOUSBPipeStalled;
            answer = found->second;
        }
        return kIOReturnSuccess;
    }
};

// Determines the result of a call and records it. The script has precedence, then set answers, then the default.
IOReturn ScriptedInterface::play(State& state, JournalEntry entry, Data* answer) {
    Data bytes;
    std::function<void()> during;
    std::string complaint;
    {
        const std::scoped_lock lock(state.mutex);
        const bool isNext = !state.script.empty() && state.script.front()._call == entry.call;
        const auto set = state.answers.find(entry.call);
        if (state.faultAt > 0 && !isDescriptorCall(entry.call) && --state.faultAt == 0) {
            entry.code = state.faultCode;
        } else if (isNext) {
            complaint = state.mismatch(entry);
            Expectation next = std::move(state.script.front());
            state.script.pop_front();
            bytes = std::move(next._answer);
            entry.code = next._code;
            during = std::move(next._during);
        } else if (set != state.answers.end()) {
            entry.code = set->second;
        } else if (state.answersByDefault || isDescriptorCall(entry.call)) {
            entry.code = state.defaultAnswer(entry, bytes);
        } else {
            complaint = state.mismatch(entry);
            entry.code = kIOReturnNotResponding;
        }
        if (answer != nullptr) {
            if (bytes.size() > entry.size) bytes.resize(entry.size);
            entry.data = bytes;
            *answer = std::move(bytes);
        }
        state.journal.push_back(entry);
    }
    if (!complaint.empty()) FAIL_CHECK(complaint);
    if (during) during();
    return entry.code;
}

class ScriptedInterface::Device final : public IOUSBDeviceInterface {
  public:
    Device(std::shared_ptr<State> state, std::uint8_t manufacturer, std::uint8_t product, std::uint8_t serialNumber)
        : _state(std::move(state)), _manufacturer(manufacturer), _product(product), _serialNumber(serialNumber) {}

    IOReturn USBDeviceOpen() override { return call("USBDeviceOpen"); }
    IOReturn USBDeviceClose() override { return call("USBDeviceClose"); }
    IOReturn ResetDevice() override { return call("ResetDevice"); }
    IOReturn USBDeviceReEnumerate(std::uint32_t options) override {
        JournalEntry entry;
        entry.call = "USBDeviceReEnumerate";
        entry.size = options;
        return play(*_state, entry);
    }
    IOReturn USBGetManufacturerStringIndex(std::uint8_t& index) override {
        return indexOf("USBGetManufacturerStringIndex", _manufacturer, index);
    }
    IOReturn USBGetProductStringIndex(std::uint8_t& index) override {
        return indexOf("USBGetProductStringIndex", _product, index);
    }
    IOReturn USBGetSerialNumberStringIndex(std::uint8_t& index) override {
        return indexOf("USBGetSerialNumberStringIndex", _serialNumber, index);
    }

  private:
    IOReturn call(const char* name) {
        JournalEntry entry;
        entry.call = name;
        return play(*_state, entry);
    }
    IOReturn indexOf(const char* name, std::uint8_t known, std::uint8_t& index) {
        const IOReturn code = call(name);
        if (code == kIOReturnSuccess) index = known;
        return code;
    }

    const std::shared_ptr<State> _state;
    const std::uint8_t _manufacturer;
    const std::uint8_t _product;
    const std::uint8_t _serialNumber;
};

ScriptedInterface::ScriptedInterface()
    : endpoints({{PipeDirection::out, 1, kUSBBulk, 512, 0}, {PipeDirection::in, 2, kUSBBulk, 512, 0}}),
      _state(std::make_shared<State>()) {}

ScriptedInterface::~ScriptedInterface() {
    if (std::uncaught_exceptions() == 0) verify(); // a test that has already failed needs no second reason
}

void ScriptedInterface::verify() {
    std::list<Expectation> missing;
    {
        const std::scoped_lock lock(_state->mutex);
        missing.swap(_state->script);
    }
    for (const Expectation& expectation : missing) FAIL_CHECK("expected call not made: " << expectation._call);
}

Expectation& ScriptedInterface::expect(const std::string& call) {
    return _state->add(call);
}
Expectation& ScriptedInterface::expectUSBInterfaceOpenSeize() {
    return expect("USBInterfaceOpenSeize");
}
Expectation& ScriptedInterface::expectUSBInterfaceClose() {
    return expect("USBInterfaceClose");
}
Expectation& ScriptedInterface::expectGetDevice() {
    return expect("GetDevice");
}

Expectation& ScriptedInterface::expectWritePipeTO(unsigned pipe, Data data) {
    return expectWritePipeTO(pipe, [data = std::move(data)](const Data& written) { return written == data; });
}

Expectation& ScriptedInterface::expectWritePipeTO(unsigned pipe, DataMatcher data) {
    Expectation& expectation = expect("WritePipeTO");
    expectation._pipe = pipe;
    expectation._data = std::move(data);
    return expectation;
}

Expectation& ScriptedInterface::expectReadPipeTO(unsigned pipe, Data answer, IOReturn code) {
    Expectation& expectation = expect("ReadPipeTO");
    expectation._pipe = pipe;
    return expectation.returns(std::move(answer), code);
}

Expectation& ScriptedInterface::expectControlRequestTO(RequestMatcher request) {
    Expectation& expectation = expect("ControlRequestTO");
    expectation._request = std::move(request);
    return expectation;
}

void ScriptedInterface::answerByDefault() {
    const std::scoped_lock lock(_state->mutex);
    _state->answersByDefault = true;
}

void ScriptedInterface::enqueueRead(Data data, IOReturn code) {
    const std::scoped_lock lock(_state->mutex);
    _state->reads.emplace_back(std::move(data), code);
}

void ScriptedInterface::setAnswer(const std::string& call, IOReturn code) {
    const std::scoped_lock lock(_state->mutex);
    _state->answers[call] = code;
}

void ScriptedInterface::setFault(unsigned callNumber, IOReturn code) {
    const std::scoped_lock lock(_state->mutex);
    _state->faultAt = callNumber;
    _state->faultCode = code;
}

void ScriptedInterface::setDescriptor(std::uint16_t value, Data descriptor) {
    const std::scoped_lock lock(_state->mutex);
    _state->replies[static_cast<std::uint32_t>(kStandardIn << 24 | kGetDescriptor << 16 | value)] =
        std::move(descriptor);
}

void ScriptedInterface::setString(std::uint8_t index, const std::u16string& text) {
    setDescriptor(static_cast<std::uint16_t>(0x0300 | index), stringDescriptor(text));
}

void ScriptedInterface::setDeviceID(const std::string& text) {
    setDeviceIDReply(deviceIDReply(text));
}

void ScriptedInterface::setDeviceIDReply(Data reply) {
    const std::scoped_lock lock(_state->mutex);
    _state->replies[static_cast<std::uint32_t>(kClassInterfaceIn) << 24] = std::move(reply);
}

Journal ScriptedInterface::journal() const {
    const std::scoped_lock lock(_state->mutex);
    return _state->journal;
}

std::vector<std::string> ScriptedInterface::traffic() const {
    std::vector<std::string> texts;
    for (const JournalEntry& entry : journal()) {
        if (!isDescriptorCall(entry.call)) texts.push_back(entry.text());
    }
    return texts;
}

unsigned ScriptedInterface::count(const std::string& call) const {
    const std::scoped_lock lock(_state->mutex);
    return static_cast<unsigned>(std::ranges::count(_state->journal, call, &JournalEntry::call));
}

void ScriptedInterface::clearJournal() {
    const std::scoped_lock lock(_state->mutex);
    _state->journal.clear();
}

bool ScriptedInterface::isOpen() const {
    const std::scoped_lock lock(_state->mutex);
    return _state->open;
}

bool ScriptedInterface::isWatched() const {
    const std::scoped_lock lock(_state->mutex);
    return static_cast<bool>(_state->mayBeFree);
}

void ScriptedInterface::holderMayBeFree() {
    std::function<void()> mayBeFree;
    {
        const std::scoped_lock lock(_state->mutex);
        mayBeFree = _state->mayBeFree;
    }
    if (mayBeFree) mayBeFree();
}

template <class Value> IOReturn ScriptedInterface::described(const char* call, const Value& known, Value& value) {
    JournalEntry entry;
    entry.call = call;
    const IOReturn code = play(*_state, entry);
    if (code == kIOReturnSuccess) value = known;
    return code;
}

IOReturn ScriptedInterface::GetInterfaceClass(std::uint8_t& value) {
    return described("GetInterfaceClass", interfaceClass, value);
}
IOReturn ScriptedInterface::GetInterfaceSubClass(std::uint8_t& value) {
    return described("GetInterfaceSubClass", interfaceSubClass, value);
}
IOReturn ScriptedInterface::GetDeviceVendor(std::uint16_t& value) {
    return described("GetDeviceVendor", vendor, value);
}
IOReturn ScriptedInterface::GetDeviceProduct(std::uint16_t& value) {
    return described("GetDeviceProduct", product, value);
}
IOReturn ScriptedInterface::GetDeviceReleaseNumber(std::uint16_t& value) {
    return described("GetDeviceReleaseNumber", releaseNumber, value);
}
IOReturn ScriptedInterface::GetLocationID(std::uint32_t& value) {
    return described("GetLocationID", locationID, value);
}
IOReturn ScriptedInterface::GetInterfaceNumber(std::uint8_t& number) {
    return described("GetInterfaceNumber", interfaceNumber, number);
}
IOReturn ScriptedInterface::GetAlternateSetting(std::uint8_t& alternate) {
    return described("GetAlternateSetting", alternateSetting, alternate);
}
IOReturn ScriptedInterface::GetConfigurationValue(std::uint8_t& configuration) {
    return described("GetConfigurationValue", configurationValue, configuration);
}
IOReturn ScriptedInterface::GetNumEndpoints(std::uint8_t& count) {
    return described("GetNumEndpoints", static_cast<std::uint8_t>(endpoints.size()), count);
}

IOReturn ScriptedInterface::GetPipeProperties(std::uint8_t pipe, PipeProperties& properties) {
    const bool known = pipe >= 1 && pipe <= endpoints.size();
    const IOReturn code = described("GetPipeProperties", known ? endpoints[pipe - 1U] : PipeProperties{}, properties);
    return code == kIOReturnSuccess && !known ? kIOUSBUnknownPipeErr : code;
}

IOReturn ScriptedInterface::USBInterfaceOpenSeize() {
    JournalEntry entry;
    entry.call = "USBInterfaceOpenSeize";
    const IOReturn code = play(*_state, entry);
    const std::scoped_lock lock(_state->mutex);
    if (code == kIOReturnSuccess) _state->open = true;
    return code;
}

IOReturn ScriptedInterface::USBInterfaceClose() {
    JournalEntry entry;
    entry.call = "USBInterfaceClose";
    const IOReturn code = play(*_state, entry);
    const std::scoped_lock lock(_state->mutex);
    _state->open = false;
    return code;
}

IOReturn ScriptedInterface::ReadPipeTO(std::uint8_t pipe, void* buffer, std::uint32_t& size,
                                       std::uint32_t noDataTimeout, std::uint32_t completionTimeout) {
    JournalEntry entry;
    entry.call = "ReadPipeTO";
    entry.pipe = pipe;
    entry.size = size;
    entry.noDataTimeout = noDataTimeout;
    entry.completionTimeout = completionTimeout;
    Data answer;
    const IOReturn code = play(*_state, entry, &answer);
    if (!answer.empty()) std::memcpy(buffer, answer.data(), answer.size());
    size = static_cast<std::uint32_t>(answer.size());
    return code;
}

IOReturn ScriptedInterface::WritePipeTO(std::uint8_t pipe, const void* buffer, std::uint32_t size,
                                        std::uint32_t noDataTimeout, std::uint32_t completionTimeout) {
    JournalEntry entry;
    entry.call = "WritePipeTO";
    entry.pipe = pipe;
    const auto* bytes = static_cast<const std::uint8_t*>(buffer);
    entry.data.assign(bytes, bytes + size);
    entry.size = size;
    entry.noDataTimeout = noDataTimeout;
    entry.completionTimeout = completionTimeout;
    const IOReturn code = play(*_state, entry);
    WriteProgress progress;
    {
        const std::scoped_lock lock(_state->mutex);
        progress = _state->progress;
    }
    if (progress && code == kIOReturnSuccess) progress(size, size);
    return code;
}

IOReturn ScriptedInterface::ControlRequestTO(std::uint8_t pipe, IOUSBDevRequestTO& request) {
    JournalEntry entry;
    entry.call = "ControlRequestTO";
    entry.pipe = pipe;
    entry.request = request;
    entry.request.pData = nullptr;
    entry.size = request.wLength;
    entry.noDataTimeout = request.noDataTimeout;
    entry.completionTimeout = request.completionTimeout;
    Data answer;
    const IOReturn code = play(*_state, entry, &answer);
    if (!answer.empty()) std::memcpy(request.pData, answer.data(), answer.size());
    request.wLenDone = static_cast<std::uint32_t>(answer.size());
    return code;
}

IOReturn ScriptedInterface::GetDevice(std::shared_ptr<IOUSBDeviceInterface>& device) {
    JournalEntry entry;
    entry.call = "GetDevice";
    const IOReturn code = play(*_state, entry);
    device = code != kIOReturnSuccess ? nullptr
                                      : std::make_shared<Device>(_state, manufacturerStringIndex, productStringIndex,
                                                                 serialNumberStringIndex);
    return code;
}

void ScriptedInterface::setWriteProgress(WriteProgress progress) {
    const std::scoped_lock lock(_state->mutex);
    _state->progress.swap(progress);
}

void ScriptedInterface::watchHolder(std::function<void()> mayBeFree) {
    JournalEntry entry;
    entry.call = mayBeFree ? "watchHolder" : "watchHolder null";
    const std::scoped_lock lock(_state->mutex);
    _state->journal.push_back(entry);
    _state->mayBeFree.swap(mayBeFree);
}

IOReturn ScriptedInterface::tryClaim() {
    JournalEntry entry;
    entry.call = "tryClaim";
    return play(*_state, entry);
}

InterfaceHolder ScriptedInterface::holder() {
    JournalEntry entry;
    entry.call = "holder";
    return play(*_state, entry) == kIOReturnSuccess ? interfaceHolder : InterfaceHolder{};
}

IOReturn ScriptedInterface::resynchronize(std::uint8_t pipe) {
    JournalEntry entry;
    entry.call = "resynchronize";
    entry.pipe = pipe;
    const IOReturn code = play(*_state, entry);
    const std::scoped_lock lock(_state->mutex);
    if (code == kIOReturnSuccess) _state->reads.clear();
    return code;
}

IOReturn ScriptedService::createInterfaceInterface(std::shared_ptr<IOUSBInterfaceInterface>& interfaceInterface) {
    if (createCode == kIOReturnSuccess) interfaceInterface = _scripted;
    return createCode;
}

} // namespace zul
