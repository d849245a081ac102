// Preparing a printer of ours for its announcement: the claim during an update, and the requests for its device IDs,
// which may take seconds. Runs on a thread of its own; the core starts it and gets the result on the main queue.
#include "usb/libusb/ArrivalPreparation.h"

#include "platform/dispatch/Clock.h"
#include "platform/foundation/Format.h"
#include "platform/usb/IOReturn.h"
#include "platform/usb/PrinterReservations.h"
#include "usb/libusb/AttachedDevice.h"
#include "usb/libusb/Attachment.h"
#include "usb/libusb/BusLimits.h"
#include "usb/libusb/BusServices.h"
#include "usb/libusb/DeviceConnection.h"
#include "usb/libusb/DeviceIdentities.h"
#include "usb/libusb/InterfaceDescriptors.h"

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <libusb.h>
#include <memory>
#include <utility>
#include <vector>

namespace zul {

namespace {

constexpr std::size_t kLengthBytes = 2; // in front of a device ID; the length includes them

std::vector<DeviceIdentity> unreadIdentities(const AttachedDevice& device) {
    std::vector<DeviceIdentity> identities;
    for (const InterfaceDescriptors& interface : device.interfaces()) {
        DeviceIdentity identity;
        identity.value = static_cast<std::uint16_t>(device.descriptors().configurationValue - 1);
        identity.index = static_cast<std::uint16_t>(interface.number << 8U | interface.alternate);
        identities.push_back(std::move(identity));
    }
    return identities;
}

bool isComplete(const DeviceIdentity& identity) {
    // A device that is not ready yet sends an ID without text; that is used only if no better one comes.
    return !identity.isMissing && identity.reply.size() > kLengthBytes &&
           (identity.reply[0] != 0 || identity.reply[1] > kLengthBytes);
}

void readIdentity(DeviceConnection& connection, DeviceIdentity& identity) {
    const DeviceConnection::Transfer transfer(connection);
    std::array<unsigned char, bus_limits::kControlTransferMax> buffer{};
    const int result =
        libusb_control_transfer(connection.handle(), 0xA1, 0, identity.value, identity.index, buffer.data(),
                                buffer.size(), static_cast<unsigned>(bus_limits::kIdentityTimeout.count()));
    // Asked again by the caller: a printer that is starting may stall the request or leave it unanswered.
    if (result < 0) return;
    identity.isMissing = false;
    identity.reply.assign(buffer.begin(), buffer.begin() + result);
}

void readIdentities(Attachment& attachment, DeviceConnection& connection) {
    attachment.identities = unreadIdentities(*attachment.device);
    BusServices& services = attachment.device->services();
    Clock& clock = services.clock();
    const Clock::TimePoint deadline = clock.now() + bus_limits::kIdentityWait;
    for (;;) {
        for (DeviceIdentity& identity : attachment.identities) {
            if (!isComplete(identity)) readIdentity(connection, identity);
        }
        if (std::ranges::all_of(attachment.identities, isComplete)) return;
        const bool isOver = attachment.device->hasLeft() || services.port->isClosed();
        if (isOver || clock.now() + bus_limits::kIdentityPause >= deadline) break;
        clock.sleepFor(bus_limits::kIdentityPause);
    }
    if (attachment.device->hasLeft()) return;
    logText("the printer at %s does not answer the request for its device ID",
            attachment.device->descriptors().locationText());
}

// What the process that has reserved the printer knows of it. A printer that is being updated gets no requests from
// others. Where that process does not know the device ID, the engine's own request is sent.
std::vector<DeviceIdentity> identitiesFrom(const AttachedDevice& device, const InterfaceHolder& holder) {
    if (holder.deviceID.empty()) return {};
    std::vector<DeviceIdentity> identities = unreadIdentities(device);
    const std::size_t length = holder.deviceID.size() + kLengthBytes;
    for (DeviceIdentity& identity : identities) {
        identity.isMissing = false;
        identity.reply = {static_cast<unsigned char>(length >> 8U), static_cast<unsigned char>(length & 0xFFU)};
        identity.reply.insert(identity.reply.end(), holder.deviceID.begin(), holder.deviceID.end());
    }
    return identities;
}

} // namespace

bool wantsPreparation(const AttachedDevice& device) {
    const auto& isOurs = device.services().options.readsIdentityAhead;
    const DeviceDescriptors& descriptors = device.descriptors();
    return !device.interfaces().empty() && isOurs && isOurs(descriptors.vendor, descriptors.product);
}

void prepareArrival(Attachment& attachment) {
    AttachedDevice& device = *attachment.device;
    if (device.hasLeft()) return;
    if (const auto holder = reservationElsewhere(device.services(), device.descriptors().key())) {
        attachment.identities = identitiesFrom(device, *holder);
        return;
    }
    std::shared_ptr<DeviceConnection> connection;
    if (device.connect(connection) != kIOReturnSuccess) return;
    if (device.isKept()) {
        for (const InterfaceDescriptors& interface : device.interfaces()) {
            // Refused by another holder: the engine's own open reports it.
            static_cast<void>(connection->seize(interface.number, nullptr));
        }
    }
    readIdentities(attachment, *connection);
    attachment.preparedConnection = std::move(connection); // the handle that the engine makes finds the node open
}

} // namespace zul
