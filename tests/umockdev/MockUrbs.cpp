// Transfers that a mocked printer has received and not completed yet. Called by MockPrinter on the thread that serves
// the mocked nodes.
#include "MockUrbs.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <linux/usbdevice_fs.h>

namespace zul {

namespace {

constexpr std::size_t kSetupSize = 8;

usbdevfs_urb& record(UMockdevIoctlData* data) {
    return *reinterpret_cast<usbdevfs_urb*>(data->data);
}

} // namespace

MockUrb MockUrb::submitted(UMockdevIoctlData* argument) {
    MockUrb urb;
    urb._urb = umockdev_ioctl_data_resolve(argument, 0, sizeof(usbdevfs_urb), nullptr);
    urb._buffer = umockdev_ioctl_data_resolve(urb._urb, offsetof(usbdevfs_urb, buffer),
                                              static_cast<gsize>(record(urb._urb).buffer_length), nullptr);
    return urb;
}

MockUrb::MockUrb(MockUrb&& other) noexcept
    : _urb(std::exchange(other._urb, nullptr)), _buffer(std::exchange(other._buffer, nullptr)), _done(other._done) {}

MockUrb& MockUrb::operator=(MockUrb&& other) noexcept {
    std::swap(_urb, other._urb);
    std::swap(_buffer, other._buffer);
    std::swap(_done, other._done);
    return *this;
}

MockUrb::~MockUrb() {
    if (_buffer != nullptr) umockdev_ioctl_data_unref(_buffer);
    if (_urb != nullptr) umockdev_ioctl_data_unref(_urb);
}

bool MockUrb::isControl() const {
    return record(_urb).type == USBDEVFS_URB_TYPE_CONTROL;
}

bool MockUrb::isIn() const {
    return ((isControl() ? setup()[0] : endpoint()) & 0x80U) != 0;
}

std::uint8_t MockUrb::endpoint() const {
    return record(_urb).endpoint;
}

std::size_t MockUrb::length() const {
    return static_cast<std::size_t>(record(_urb).buffer_length) - (isControl() ? kSetupSize : 0);
}

std::string MockUrb::data() const {
    const auto* begin = reinterpret_cast<const char*>(_buffer->data) + (isControl() ? kSetupSize : 0);
    return {begin, length()};
}

const unsigned char* MockUrb::setup() const {
    return _buffer->data;
}

unsigned long MockUrb::address() const {
    return _urb->client_addr;
}

void MockUrb::hold(const std::string& bytes) {
    const std::size_t count = std::min(bytes.size(), length());
    std::memcpy(_buffer->data + (isControl() ? kSetupSize : 0), bytes.data(), count);
    holdOut(count);
}

void MockUrb::holdOut(std::size_t taken) {
    record(_urb).actual_length = static_cast<int>(taken);
}

void MockUrb::giveUp() {
    record(_urb).status = -ENOENT;
    _done = true;
}

void MockUrb::complete(int status, const std::string& bytes) {
    hold(bytes);
    completeOut(bytes.size() > length() ? -EOVERFLOW : status, std::min(bytes.size(), length()));
}

void MockUrb::completeOut(int status, std::size_t taken) {
    record(_urb).status = status;
    record(_urb).actual_length = static_cast<int>(taken);
    _done = true;
}

void MockUrb::reapInto(UMockdevIoctlData* argument) {
    UMockdevIoctlData* slot = umockdev_ioctl_data_resolve(argument, 0, sizeof(void*), nullptr);
    umockdev_ioctl_data_set_ptr(slot, 0, _urb);
    umockdev_ioctl_data_unref(slot);
}

} // namespace zul
