// The lock against sleep, with real message buses. Waits are for a reply or for the end of a connection.
#include "session/SleepInhibitor.h"
#include "support/StandardErrorCapture.h"
#include "unit/session/LoginLab.h"

#include "platform/foundation/SystemLog.h"

#include <condition_variable>
#include <doctest/doctest.h>
#include <sys/socket.h>
#include <sys/un.h>

using namespace zul;
using namespace zul::test;
using namespace std::chrono_literals;

namespace {

constexpr auto kGenerous = 60s; // far longer than any reply takes, also on a busy machine

// An inhibitor, its replies and its log.
struct Inhibited {
    explicit Inhibited(const std::string& address, std::chrono::milliseconds longestWait = kGenerous)
        : inhibitor({.busAddress = address, .longestWait = longestWait}, [this] {
              const std::scoped_lock lock(mutex);
              ++answers;
              answered.notify_all();
          }) {
        setSystemLogSink([this](const std::string& text) {
            const std::scoped_lock lock(mutex);
            log += text;
        });
    }
    ~Inhibited() { setSystemLogSink(nullptr); }

    void waitForAnswer(int number = 1) {
        std::unique_lock lock(mutex);
        answered.wait(lock, [&] { return answers >= number; });
    }
    std::string logged() {
        const std::scoped_lock lock(mutex);
        return log;
    }

    std::mutex mutex;
    std::condition_variable answered;
    int answers = 0;
    std::string log;
    SleepInhibitor inhibitor;
};

// A bus that accepts connections and never sends a byte.
struct MuteBus {
    MuteBus() : _listener(::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0)) {
        sockaddr_un place{};
        place.sun_family = AF_UNIX;
        const std::string path = (_folder / "bus").string();
        path.copy(place.sun_path, sizeof place.sun_path - 1);
        REQUIRE(::bind(_listener.get(), reinterpret_cast<const sockaddr*>(&place), sizeof place) == 0);
        REQUIRE(::listen(_listener.get(), 8) == 0);
        address = "unix:path=" + path;
    }
    void waitForConnection() {
        _connection = ScopedFd(::accept4(_listener.get(), nullptr, nullptr, SOCK_CLOEXEC));
        REQUIRE(_connection);
    }
    void hangUp() { _connection.reset(); }
    std::string address;

  private:
    TemporaryFolder _folder;
    ScopedFd _listener, _connection;
};

} // namespace

TEST_CASE("the lock against sleep is held while requested and released afterwards") {
    const PrivateBus bus;
    FakeLoginService service(bus.address());
    Inhibited machine(bus.address());
    CHECK(machine.inhibitor.state() == InhibitorState::idle);
    machine.inhibitor.setHeld(true);
    CHECK(machine.inhibitor.isWanted());
    machine.waitForAnswer();
    CHECK(machine.inhibitor.state() == InhibitorState::held);
    CHECK(service.asked() == std::vector<std::string>{"sleep:shutdown:handle-lid-switch|ZUL Printer Utility|"
                                                      "The firmware of a printer is being updated|block"});
    CHECK(service.isHeld());
    machine.inhibitor.setHeld(true);
    CHECK(service.isHeld());
    machine.inhibitor.setHeld(false);
    service.waitUntilReleased();
    CHECK(machine.inhibitor.state() == InhibitorState::idle);
    CHECK_FALSE(machine.inhibitor.isWanted());
    CHECK(service.asked().size() == 1);
    CHECK(machine.logged().empty());
}

TEST_CASE("the lock against sleep is taken again for the next update") {
    const PrivateBus bus;
    FakeLoginService service(bus.address());
    Inhibited machine(bus.address());
    machine.inhibitor.setHeld(true);
    machine.waitForAnswer(1);
    machine.inhibitor.setHeld(false);
    service.waitUntilReleased();
    machine.inhibitor.setHeld(true);
    machine.waitForAnswer(2);
    CHECK(service.isHeld());
    CHECK(machine.inhibitor.state() == InhibitorState::held);
}

TEST_CASE("destroying the inhibitor releases the lock") {
    const PrivateBus bus;
    FakeLoginService service(bus.address());
    {
        Inhibited machine(bus.address());
        machine.inhibitor.setHeld(true);
        machine.waitForAnswer();
        CHECK(service.isHeld());
    }
    service.waitUntilReleased();
}

TEST_CASE("a user who may not inhibit the lid switch gets the lock against sleep and shutdown") {
    const PrivateBus bus;
    FakeLoginService service(bus.address(), "handle-lid-switch");
    Inhibited machine(bus.address());
    machine.inhibitor.setHeld(true);
    machine.waitForAnswer();
    CHECK(machine.inhibitor.state() == InhibitorState::held);
    REQUIRE(service.asked().size() == 2);
    CHECK(service.asked()[1].starts_with("sleep:shutdown|"));
    CHECK(service.isHeld());
}

TEST_CASE("a refused lock is logged, and reported as unavailable with the reason") {
    const PrivateBus bus;
    FakeLoginService service(bus.address(), "sleep");
    Inhibited machine(bus.address());
    machine.inhibitor.setHeld(true);
    machine.waitForAnswer();
    CHECK(machine.inhibitor.state() == InhibitorState::unavailable);
    CHECK(machine.inhibitor.problem() == "the login service of the system refused it (Permission denied)");
    CHECK(machine.logged() == "The machine is not kept awake during the update: the login service of the system "
                              "refused it (Permission denied).\n");
    machine.inhibitor.setHeld(false);
    CHECK(machine.inhibitor.state() == InhibitorState::idle);
    CHECK(machine.inhibitor.problem().empty());
}

TEST_CASE("without a login service or a message bus there is only a line in the log") {
    const PrivateBus bus;
    const TemporaryFolder folder;
    for (const std::string& address : {bus.address(), "unix:path=" + (folder / "nothing").string()}) {
        CAPTURE(address);
        const StandardErrorCapture standardError;
        Inhibited machine(address);
        machine.inhibitor.setHeld(true);
        machine.waitForAnswer();
        CHECK(machine.inhibitor.state() == InhibitorState::unavailable);
        CHECK(machine.inhibitor.problem().starts_with(address == bus.address()
                                                          ? "the system has no login service that answers ("
                                                          : "the message bus of the system cannot be used ("));
        const std::string logged = machine.logged();
        CHECK(std::count(logged.begin(), logged.end(), '\n') == 1);
        CHECK(standardError.text().empty());
    }
}

TEST_CASE("a message bus that hangs blocks no caller, and a lock that comes too late is released") {
    MuteBus bus;
    Inhibited machine(bus.address);
    machine.inhibitor.setHeld(true);
    bus.waitForConnection();
    CHECK(machine.inhibitor.state() == InhibitorState::asking);
    machine.inhibitor.setHeld(false);
    CHECK(machine.inhibitor.state() == InhibitorState::idle);
    bus.hangUp();
    machine.waitForAnswer();
    CHECK(machine.inhibitor.state() == InhibitorState::idle);
    CHECK(machine.logged().empty());
}

TEST_CASE("an inhibitor destroyed while a message bus hangs is not called back") {
    MuteBus bus;
    auto machine = std::make_unique<Inhibited>(bus.address);
    machine->inhibitor.setHeld(true);
    bus.waitForConnection();
    machine.reset();
    bus.hangUp();
}

TEST_CASE("a message bus that does not reply in time is unavailable") {
    MuteBus bus;
    Inhibited machine(bus.address, 1ms);
    machine.inhibitor.setHeld(true);
    machine.waitForAnswer();
    CHECK(machine.inhibitor.state() == InhibitorState::unavailable);
    CHECK(machine.inhibitor.problem() == "the message bus of the system does not answer");
    CHECK(loginServiceProblem({.busAddress = bus.address, .longestWait = 1ms}) ==
          "the message bus of the system does not answer");
}

TEST_CASE("the presence of a login service can be checked without taking a lock") {
    const PrivateBus bus;
    CHECK(loginServiceProblem({.busAddress = bus.address(), .longestWait = kGenerous})
              .starts_with("the system has no login service that answers ("));
    FakeLoginService service(bus.address());
    CHECK(loginServiceProblem({.busAddress = bus.address(), .longestWait = kGenerous}).empty());
    CHECK(service.asked().empty());
}
