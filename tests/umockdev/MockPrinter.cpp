// The kernel's side of usbfs as far as libusb uses it. Called on the testbed's own thread.
#include "MockPrinter.h"

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstdarg>
#include <cstdio>
#include <cstring>
#include <linux/usbdevice_fs.h>
#include <sys/ioctl.h>

namespace zul {

namespace {

template <class Record> Record& resolved(UMockdevIoctlData* argument) {
    // The data belongs to the argument, which returns it to the client.
    UMockdevIoctlData* data = umockdev_ioctl_data_resolve(argument, 0, sizeof(Record), nullptr);
    auto& record = *reinterpret_cast<Record*>(data->data);
    umockdev_ioctl_data_unref(data);
    return record;
}

} // namespace

MockPrinter::MockPrinter(UMockdevTestbed* testbed, const std::string& node)
    : _testbed(testbed), _node(node), _handler(umockdev_ioctl_base_new()) {
    g_signal_connect(_handler, "handle-ioctl", G_CALLBACK(onIoctl), this);
    umockdev_testbed_attach_ioctl(testbed, node.c_str(), _handler, nullptr);
}

MockPrinter::~MockPrinter() {
    umockdev_testbed_detach_ioctl(_testbed, _node.c_str(), nullptr);
    g_signal_handlers_disconnect_by_data(_handler, this);
    { const std::scoped_lock lock(_mutex); } // waits for a call in progress
    g_object_unref(_handler);
}

void MockPrinter::sends(const std::string& bytes, int status) {
    const std::scoped_lock lock(_mutex);
    _in.push_back({status, bytes, 0});
    playAll();
}

void MockPrinter::takes(std::size_t bytes, int status) {
    const std::scoped_lock lock(_mutex);
    _out.push_back({status, {}, bytes});
    playAll();
}

void MockPrinter::takesNothingMore() {
    const std::scoped_lock lock(_mutex);
    _outBlocked = true;
}

void MockPrinter::answersControl(const std::string& bytes, int status) {
    const std::scoped_lock lock(_mutex);
    _control.push_back({status, bytes, bytes.size()});
    playAll();
}

void MockPrinter::refuses(unsigned long request, int error) {
    const std::scoped_lock lock(_mutex);
    _refused[request] = error;
}

void MockPrinter::stallsControl() {
    const std::scoped_lock lock(_mutex);
    _controlStalls = true;
}

void MockPrinter::whenDetached(std::function<void()> block) {
    const std::scoped_lock lock(_mutex);
    _whenDetached = std::move(block);
}

void MockPrinter::bindKernelDriver(const std::string& name) {
    const std::scoped_lock lock(_mutex);
    _kernelDriver = name;
}

void MockPrinter::holdByOther(bool held) {
    const std::scoped_lock lock(_mutex);
    _heldByOther = held;
}

void MockPrinter::vanish() {
    const std::scoped_lock lock(_mutex);
    _gone = true;
    for (MockUrb& urb : _urbs) {
        if (!urb.isDone()) urb.completeOut(-ESHUTDOWN, 0);
    }
    _changed.notify_all();
}

void MockPrinter::vanishAtTransfer(std::uint8_t endpoint, int status) {
    const std::scoped_lock lock(_mutex);
    _vanishEndpoint = endpoint;
    _vanishStatus = status;
}

std::vector<std::string> MockPrinter::journal() {
    const std::scoped_lock lock(_mutex);
    return _journal;
}

std::string MockPrinter::received() {
    const std::scoped_lock lock(_mutex);
    return _received;
}

std::string MockPrinter::kernelDriver() {
    const std::scoped_lock lock(_mutex);
    return _kernelDriver;
}

void MockPrinter::note(const char* format, ...) {
    char text[128];
    va_list arguments;
    va_start(arguments, format);
    std::vsnprintf(text, sizeof text, format, arguments);
    va_end(arguments);
    _journal.emplace_back(text);
}

int MockPrinter::onIoctl(UMockdevIoctlBase* /*handler*/, UMockdevIoctlClient* client, MockPrinter* self) {
    self->handle(client, umockdev_ioctl_client_get_arg(client), umockdev_ioctl_client_get_request(client));
    return 1; // handled
}

void MockPrinter::handle(UMockdevIoctlClient* client, UMockdevIoctlData* argument, unsigned long request) {
    std::unique_lock lock(_mutex);
    int result = 0;
    const auto refused = _refused.find(request);
    if (refused != _refused.end() && refused->second != 0) {
        result = -refused->second;
    } else if (request == USBDEVFS_REAPURB || request == USBDEVFS_REAPURBNDELAY) {
        result = reap(argument, lock);
    } else if (_gone) {
        result = -ENODEV;
    } else if (request == USBDEVFS_SUBMITURB) {
        result = submit(argument);
    } else {
        result = simpleCall(argument, request);
    }
    lock.unlock();
    umockdev_ioctl_client_complete(client, result < 0 ? -1 : result, result < 0 ? -result : 0);
}

int MockPrinter::simpleCall(UMockdevIoctlData* argument, unsigned long request) {
    switch (request) {
    case USBDEVFS_GET_CAPABILITIES:
        resolved<std::uint32_t>(argument) = USBDEVFS_CAP_BULK_SCATTER_GATHER | USBDEVFS_CAP_BULK_CONTINUATION |
                                            USBDEVFS_CAP_NO_PACKET_SIZE_LIM | USBDEVFS_CAP_REAP_AFTER_DISCONNECT;
        return 0;
    case USBDEVFS_CLAIMINTERFACE:
        return claim(resolved<unsigned>(argument));
    case USBDEVFS_RELEASEINTERFACE:
        note("release %u", resolved<unsigned>(argument));
        _claimed = false;
        return 0;
    case USBDEVFS_GETDRIVER: {
        auto& query = resolved<usbdevfs_getdriver>(argument);
        const std::string driver = _heldByOther || _claimed ? "usbfs" : _kernelDriver;
        if (driver.empty()) return -ENODATA;
        std::strncpy(query.driver, driver.c_str(), sizeof query.driver - 1);
        return 0;
    }
    case USBDEVFS_IOCTL:
        return driverCall(argument);
    case USBDEVFS_CLEAR_HALT:
        note("halt %02x", resolved<unsigned>(argument));
        return 0;
    case USBDEVFS_RESET:
        note("reset");
        return 0;
    case USBDEVFS_DISCARDURB: {
        const unsigned long address = *reinterpret_cast<unsigned long*>(argument->data);
        for (MockUrb& urb : _urbs) {
            if (urb.address() != address || urb.isDone()) continue;
            urb.giveUp();
            _changed.notify_all();
            return 0;
        }
        return -EINVAL;
    }
    default:
        note("unexpected %lx", request);
        return -ENOTTY;
    }
}

int MockPrinter::claim(unsigned interface) {
    if (_heldByOther || !_kernelDriver.empty()) {
        note("claim %u busy", interface);
        return -EBUSY;
    }
    note("claim %u", interface);
    _claimed = true;
    return 0;
}

int MockPrinter::driverCall(UMockdevIoctlData* argument) {
    const auto& call = resolved<usbdevfs_ioctl>(argument);
    if (call.ioctl_code == static_cast<int>(USBDEVFS_CONNECT)) {
        note("attach %d", call.ifno);
        if (_claimed || _heldByOther) return -EBUSY;
        _kernelDriver = "usblp";
        return 1;
    }
    note("detach %d", call.ifno);
    if (_kernelDriver.empty()) return -ENODATA;
    _kernelDriver.clear();
    if (_whenDetached != nullptr) _whenDetached();
    return 0;
}

int MockPrinter::submit(UMockdevIoctlData* argument) {
    MockUrb urb = MockUrb::submitted(argument);
    if (urb.isControl()) {
        const unsigned char* s = urb.setup();
        note("control %02x %02x %02x%02x %02x%02x %zu", s[0], s[1], s[3], s[2], s[5], s[4], urb.length());
    } else {
        note("%s %02x %zu", urb.isIn() ? "in" : "out", urb.endpoint(), urb.length());
    }
    if (_vanishEndpoint == urb.endpoint()) {
        _gone = true;
        urb.completeOut(_vanishStatus, 0);
    } else {
        play(urb);
    }
    _urbs.push_back(std::move(urb));
    _changed.notify_all();
    return 0;
}

void MockPrinter::play(MockUrb& urb) {
    std::deque<Reply>& script = urb.isControl() ? _control : urb.isIn() ? _in : _out;
    if (script.empty()) {
        if (urb.isControl() && _controlStalls) urb.completeOut(-EPIPE, 0);
        if (urb.isControl() || urb.isIn() || _outBlocked) return;
        _received += urb.data();
        urb.completeOut(0, urb.length());
        return;
    }
    const Reply reply = std::move(script.front());
    script.pop_front();
    const bool holds = reply.status == kNeverEnds;
    if (urb.isIn()) {
        holds ? urb.hold(reply.bytes) : urb.complete(reply.status, reply.bytes);
        return;
    }
    const std::size_t taken = std::min(reply.count, urb.length());
    if (!urb.isControl()) _received += urb.data().substr(0, taken);
    holds ? urb.holdOut(taken) : urb.completeOut(reply.status, taken);
}

void MockPrinter::playAll() {
    for (MockUrb& urb : _urbs) {
        if (!urb.isDone()) play(urb);
    }
    _changed.notify_all();
}

int MockPrinter::reap(UMockdevIoctlData* argument, std::unique_lock<std::mutex>& lock) {
    const auto finished = [this] { return std::ranges::find_if(_urbs, &MockUrb::isDone); };
    // The mocked node is always ready, so libusb polls without pause; a short wait here saves processor time.
    _changed.wait_for(lock, std::chrono::milliseconds(1), [&] { return finished() != _urbs.end(); });
    const auto urb = finished();
    if (urb == _urbs.end()) return _gone ? -ENODEV : -EAGAIN;
    urb->reapInto(argument);
    _urbs.erase(urb);
    return 0;
}

} // namespace zul
