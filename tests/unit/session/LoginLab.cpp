// Implements the message bus and the login service of the tests.
#include "unit/session/LoginLab.h"

#include <cerrno>
#include <doctest/doctest.h>
#include <fcntl.h>
#include <poll.h>
#include <sys/eventfd.h>
#include <systemd/sd-bus.h>
#include <unistd.h>

namespace zul::test {

namespace {

constexpr const char* kConfiguration = R"(<busconfig><type>session</type><listen>unix:path=%</listen>
<policy context="default"><allow send_destination="*"/><allow receive_sender="*"/><allow own="*"/></policy></busconfig>)";

} // namespace

PrivateBus::PrivateBus() {
    std::string configuration = kConfiguration;
    configuration.replace(configuration.find('%'), 1, (_folder / "bus").string());
    const std::string file = _folder.write("bus.conf", configuration).string();
    // Without its messages about the machine's limits in the test's output.
    _daemon = std::make_unique<ChildProcess>(std::vector<std::string>{"/bin/sh", "-c", "exec \"$0\" \"$@\" 2>/dev/null",
                                                                      ZUL_DBUS_DAEMON, "--config-file=" + file,
                                                                      "--nofork", "--print-address"});
    _address = _daemon->readLine(); // it accepts connections from now on
}

FakeLoginService::FakeLoginService(const std::string& address, std::string refused)
    : _refused(std::move(refused)), _end(::eventfd(0, EFD_CLOEXEC)) {
    REQUIRE(sd_bus_new(&_bus) >= 0);
    REQUIRE(sd_bus_set_address(_bus, address.c_str()) >= 0);
    REQUIRE(sd_bus_set_bus_client(_bus, 1) >= 0);
    REQUIRE(sd_bus_negotiate_fds(_bus, 1) >= 0);
    REQUIRE(sd_bus_start(_bus) >= 0);
    static const sd_bus_vtable kTable[] = {
        SD_BUS_VTABLE_START(0),
        SD_BUS_METHOD(
            "Inhibit", "ssss", "h",
            [](sd_bus_message* call, void* context, sd_bus_error* error) { return inhibit(call, context, error); },
            SD_BUS_VTABLE_UNPRIVILEGED),
        SD_BUS_VTABLE_END};
    REQUIRE(sd_bus_add_object_vtable(_bus, &_slot, "/org/freedesktop/login1", "org.freedesktop.login1.Manager", kTable,
                                     this) >= 0);
    REQUIRE(sd_bus_request_name(_bus, "org.freedesktop.login1", 0) >= 0);
    _thread = std::thread([this] { serve(); });
}

FakeLoginService::~FakeLoginService() {
    ::eventfd_write(_end.get(), 1);
    _thread.join();
    sd_bus_slot_unref(_slot);
    sd_bus_flush_close_unref(_bus);
}

void FakeLoginService::serve() {
    for (;;) {
        while (sd_bus_process(_bus, nullptr) > 0) {
        }
        pollfd files[2] = {{sd_bus_get_fd(_bus), static_cast<short>(sd_bus_get_events(_bus)), 0},
                           {_end.get(), POLLIN, 0}};
        ::poll(files, 2, -1);
        if (files[1].revents != 0) return;
    }
}

int FakeLoginService::inhibit(sd_bus_message* call, void* context, void* error) {
    return static_cast<FakeLoginService*>(context)->answer(call, error);
}

int FakeLoginService::answer(sd_bus_message* call, void* error) {
    const char *what = "", *who = "", *why = "", *mode = "";
    if (const int code = sd_bus_message_read(call, "ssss", &what, &who, &why, &mode); code < 0) return code;
    const std::scoped_lock lock(_mutex);
    _asked.push_back(std::string(what) + '|' + who + '|' + why + '|' + mode);
    _isAsked.notify_all();
    if (!_refused.empty() && std::string(what).find(_refused) != std::string::npos) {
        return sd_bus_error_set(static_cast<sd_bus_error*>(error), SD_BUS_ERROR_ACCESS_DENIED, "Permission denied");
    }
    int ends[2] = {-1, -1};
    if (::pipe2(ends, O_CLOEXEC) != 0) return -errno;
    _ours = ScopedFd(ends[0]);
    const ScopedFd theirs(ends[1]);
    return sd_bus_reply_method_return(call, "h", theirs.get());
}

std::vector<std::string> FakeLoginService::asked() {
    const std::scoped_lock lock(_mutex);
    return _asked;
}

void FakeLoginService::waitUntilAsked() {
    std::unique_lock lock(_mutex);
    _isAsked.wait(lock, [this] { return !_asked.empty(); });
}

bool FakeLoginService::isHeld() {
    const std::scoped_lock lock(_mutex);
    pollfd file{_ours.get(), POLLIN, 0};
    return _ours && ::poll(&file, 1, 0) == 0;
}

void FakeLoginService::waitUntilReleased() {
    char byte = 0;
    const auto ours = [this] {
        const std::scoped_lock lock(_mutex);
        return _ours.get();
    }();
    CHECK(::read(ours, &byte, 1) == 0);
}

} // namespace zul::test
