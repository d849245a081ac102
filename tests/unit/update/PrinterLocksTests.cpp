// Locks between real processes. Tests wait for another process's line, for the end of a connection or for a callback of
// the private thread, never for a time.
#include "unit/update/LocksLab.h"

#include <algorithm>
#include <doctest/doctest.h>

using namespace zul;
using namespace zul::test;

TEST_CASE("a printer that one process has locked is refused to another, with that process") {
    Machine machine;
    ChildProcess child(machine.holder());
    REQUIRE(child("lock " + kPrinter + " update") == "locked");

    const auto result = machine.locks.tryLock(kPrinter, "claim");
    CHECK_FALSE(result.lock);
    CHECK(result.problem.empty());
    REQUIRE(result.holder);
    CHECK(result.holder->pid == child.pid());
    CHECK(result.holder->kind == InterfaceHolder::Kind::ownProgram);
}

TEST_CASE("the locks of two printers are independent") {
    Machine machine;
    ChildProcess child(machine.holder());
    REQUIRE(child("lock " + kPrinter + " update") == "locked");
    CHECK(machine.locks.tryLock("2A7100030000000B", "update").lock);
}

TEST_CASE("a released lock can be taken by another process") {
    Machine machine;
    ChildProcess child(machine.holder());
    {
        const auto result = machine.locks.tryLock(kPrinter, "update");
        REQUIRE(result.lock);
        CHECK(child("lock " + kPrinter + " update") == "held by " + std::to_string(::getpid()));
    }
    CHECK(child("lock " + kPrinter + " update") == "locked");
}

TEST_CASE("the lock of a killed process is free") {
    Machine machine;
    ChildProcess child(machine.holder());
    REQUIRE(child("lock " + kPrinter + " update") == "locked");
    child.kill();
    CHECK_FALSE(machine.locks.heldElsewhere(kPrinter));
    CHECK(machine.locks.tryLock(kPrinter, "update").lock);
}

TEST_CASE("a child process of the holder does not keep the lock") {
    Machine machine;
    ChildProcess child(machine.holder());
    REQUIRE(child("lock " + kPrinter + " update") == "locked");
    const int started = std::stoi(child("start"));
    REQUIRE(started > 0);
    child.kill();
    CHECK_FALSE(machine.locks.ask(kPrinter));
    ::kill(started, SIGKILL);
}

TEST_CASE("a holder reports its identity, its activity, its start time, and the phase that was set last") {
    Machine machine;
    ChildProcess child(machine.holder(/*since=*/1650000000));
    REQUIRE(child("lock " + kPrinter + " counter reset") == "locked");
    InterfaceHolder expected = ownProgram("lock_holder", child.pid());
    expected.activity = "counter reset";
    expected.since = 1650000000;
    CHECK(machine.locks.heldElsewhere(kPrinter) == expected);

    REQUIRE(child("phase writing") == "set");
    REQUIRE(child("phase programming") == "set");
    expected.phase = "programming";
    CHECK(machine.locks.heldElsewhere(kPrinter) == expected);
    CHECK(machine.locks.ask(kPrinter)->user == nameOfUser(::geteuid()));
}

TEST_CASE("a printer without a lock has no holder") {
    Machine machine;
    CHECK_FALSE(machine.locks.heldElsewhere(kPrinter));
    CHECK_FALSE(machine.locks.ask(kPrinter));
}

TEST_CASE("a process locks a printer once, and is not another process to itself") {
    Machine machine;
    PrinterLocks others(machine.options(60s));
    auto first = machine.locks.tryLock(kPrinter, "update");
    REQUIRE(first.lock);
    first.lock->setPhase("writing");

    for (PrinterLocks* locks : {&machine.locks, &others}) {
        const auto second = locks->tryLock(kPrinter, "claim");
        CHECK_FALSE(second.lock);
        REQUIRE(second.holder);
        CHECK(second.holder->pid == ::getpid());
        CHECK(second.holder->activity == "update");
        CHECK(second.holder->phase == "writing");
        CHECK_FALSE(locks->heldElsewhere(kPrinter));
    }
    CHECK(others.ask(kPrinter)->phase == "writing");
    CHECK(others.ask(kPrinter)->since == 1700000000);
}

TEST_CASE("a stopped holder is reported with process id, name and user") {
    Machine machine;
    PrinterLocks locks(machine.options(1ms));
    ChildProcess child(machine.holder());
    REQUIRE(child("lock " + kPrinter + " update") == "locked");
    child.stop();

    const InterfaceHolder expected = ownProgram("lock_holder", child.pid());
    CHECK(locks.heldElsewhere(kPrinter) == expected);
    CHECK(locks.ask(kPrinter)->user == nameOfUser(::geteuid()));
    const auto result = locks.tryLock(kPrinter, "update");
    CHECK_FALSE(result.lock);
    CHECK(result.holder == expected);
}

TEST_CASE("a stopped holder whose queue is full still has its lock") {
    Machine machine;
    PrinterLocks locks(machine.options(1ms));
    ScopedFd listener(::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0));
    const auto address = *lockAddress(machine.nameSpace, kPrinter);
    REQUIRE(::bind(listener.get(), reinterpret_cast<const sockaddr*>(&address.name), address.length) == 0);
    REQUIRE(::listen(listener.get(), 0) == 0); // never accepts
    const auto waiting = machine.connect();
    REQUIRE(machine.connect().contact == Contact::queueFull);
    CHECK(locks.heldElsewhere(kPrinter) == ownProgram("", 0));
    CHECK(locks.tryLock(kPrinter, "update").holder == ownProgram("", 0));
}

TEST_CASE("a holder whose name is not known yet is a holder without a name") {
    Machine machine;
    PrinterLocks locks(machine.options(1ms));
    ScopedFd socket(::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0));
    const auto address = *lockAddress(machine.nameSpace, kPrinter);
    REQUIRE(::bind(socket.get(), reinterpret_cast<const sockaddr*>(&address.name), address.length) == 0);
    CHECK(locks.tryLock(kPrinter, "update").holder == ownProgram("", 0));
}

TEST_CASE("unreadable replies yield only what the kernel knows") {
    Machine machine;
    for (const std::string& answer :
         {std::string("\n"), std::string("not JSON\n"), std::string("[1]\n"), std::string("{\"phase\":\"\xFF\"}\n"),
          std::string(5000, 'x'), "{\"phase\":\"" + std::string(5000, 'x') + "\"}\n"}) {
        CAPTURE(answer);
        Stranger stranger(machine);
        stranger.answer(answer);
        const auto known = machine.locks.ask(kPrinter);
        REQUIRE(known);
        CHECK(*known ==
              LockAnswer{.program = programOfProcess(::getpid()), .pid = ::getpid(), .user = nameOfUser(::geteuid())});
    }
}

TEST_CASE("process id and user of a reply are the kernel's") {
    Machine machine;
    Stranger stranger(machine);
    stranger.answer(R"({"program":"zulctl","pid":1,"user":"nobody","phase":"writing"})"
                    "\nmore");
    const auto answer = machine.locks.ask(kPrinter);
    REQUIRE(answer);
    CHECK(answer->pid == ::getpid());
    CHECK(answer->user == nameOfUser(::geteuid()));
    CHECK(answer->program == "zulctl");
    CHECK(answer->phase == "writing");
}

TEST_CASE("an incomplete reply yields only what the kernel knows") {
    Machine machine;
    PrinterLocks locks(machine.options(1ms));
    Stranger stranger(machine);
    stranger.answer(R"({"program":"zulctl",)");
    CHECK(locks.ask(kPrinter)->program == programOfProcess(::getpid()));
}

TEST_CASE("a holder that closes every connection at once is still a holder") {
    Machine machine;
    PrinterLocks locks(machine.options(1ms));
    Stranger stranger(machine);
    std::thread closer([&] {
        for (;;) {
            pollfd entry{stranger.listener.socket.get(), POLLIN, 0};
            ::poll(&entry, 1, -1);
            if (!ScopedFd(::accept(stranger.listener.socket.get(), nullptr, nullptr))) return;
        }
    });
    CHECK(locks.ask(kPrinter)->pid == ::getpid());
    ::shutdown(stranger.listener.socket.get(), SHUT_RDWR);
    closer.join();
}

TEST_CASE("a watch is notified when another process releases its lock") {
    Machine machine;
    ChildProcess child(machine.holder());
    REQUIRE(child("lock " + kPrinter + " update") == "locked");
    Call released;
    const auto watch = machine.locks.watch(kPrinter, released.function());
    // The private thread processes requests in order: when this one has run, the first is active.
    Call later;
    const auto other = machine.locks.watch("2A7100030000000B", later.function());
    later.wait();
    CHECK(released.count == 0);

    REQUIRE(child("release") == "released");
    released.wait();
    CHECK(machine.locks.tryLock(kPrinter, "update").lock);
    CHECK(released.count == 1);
}

TEST_CASE("a watch is notified when the holder is killed, running or stopped") {
    Machine machine;
    for (const bool isStopped : {false, true}) {
        CAPTURE(isStopped);
        ChildProcess child(machine.holder());
        REQUIRE(child("lock " + kPrinter + " update") == "locked");
        if (isStopped) child.stop();
        Call released;
        const auto watch = machine.locks.watch(kPrinter, released.function());
        child.kill();
        released.wait();
        CHECK_FALSE(machine.locks.heldElsewhere(kPrinter));
    }
}

TEST_CASE("a watch without a holder is notified at once, on a separate thread") {
    Machine machine;
    std::promise<std::thread::id> thread;
    const auto watch = machine.locks.watch(kPrinter, [&] { thread.set_value(std::this_thread::get_id()); });
    CHECK(thread.get_future().get() != std::this_thread::get_id());
}

TEST_CASE("a watch on a printer that this process has locked is notified at once") {
    Machine machine;
    const auto result = machine.locks.tryLock(kPrinter, "update");
    REQUIRE(result.lock);
    Call released;
    const auto watch = machine.locks.watch(kPrinter, released.function());
    released.wait();
}

TEST_CASE("a destroyed watch is not notified") {
    Machine machine;
    ChildProcess child(machine.holder());
    REQUIRE(child("lock " + kPrinter + " update") == "locked");
    Call dropped, kept;
    auto first = machine.locks.watch(kPrinter, dropped.function());
    const auto second = machine.locks.watch(kPrinter, kept.function());
    first.reset();
    child.kill();
    kept.wait();
    Call later;
    const auto other = machine.locks.watch(kPrinter, later.function());
    later.wait();
    CHECK(dropped.count == 0);
}

TEST_CASE("a watch may be destroyed and another begun while it is notified") {
    Machine machine;
    std::shared_ptr<void> watch;
    std::promise<void> begun, done;
    std::shared_ptr<void> next;
    watch = machine.locks.watch(kPrinter, [&] {
        begun.get_future().wait();
        watch.reset();
        next = machine.locks.watch(kPrinter, [&] { done.set_value(); });
    });
    begun.set_value();
    done.get_future().wait();
}

TEST_CASE("a lock and a watch outlive the object that created them") {
    Machine machine;
    ChildProcess child(machine.holder());
    REQUIRE(child("lock 2A7100030000000B update") == "locked");
    Call released;
    std::optional<PrinterLock> lock;
    std::shared_ptr<void> watch;
    {
        PrinterLocks locks(machine.options(60s));
        lock = std::move(locks.tryLock(kPrinter, "update").lock);
        watch = locks.watch("2A7100030000000B", released.function());
    }
    REQUIRE(lock);
    lock->setPhase("writing");
    CHECK(machine.locks.ask(kPrinter)->phase == "writing");
    child.kill();
    released.wait();
    lock.reset();
    CHECK_FALSE(machine.locks.ask(kPrinter));
}

TEST_CASE("a lock that is replaced is released") {
    Machine machine;
    auto one = machine.locks.tryLock(kPrinter, "update");
    auto other = machine.locks.tryLock("2A7100030000000B", "update");
    REQUIRE(one.lock);
    REQUIRE(other.lock);
    *one.lock = std::move(*other.lock);
    CHECK_FALSE(machine.locks.ask(kPrinter));
    CHECK(machine.locks.ask("2A7100030000000B"));
    other.lock.reset();
    CHECK(machine.locks.ask("2A7100030000000B"));
}

TEST_CASE("connections of a hundred processes are answered, and the newest are kept until the lock ends") {
    Machine machine;
    auto result = machine.locks.tryLock(kPrinter, "update");
    REQUIRE(result.lock);
    std::vector<HolderConnection> connections(100);
    for (auto& connection : connections) {
        connection = machine.connect();
        REQUIRE(connection.contact == Contact::connected);
    }
    for (const auto& connection : connections) waitForAnswer(connection);
    const auto openOnes = [&] {
        return std::ranges::count_if(connections, [](const auto& connection) { return !isEnded(connection); });
    };
    CHECK(openOnes() == 64);
    CHECK(isEnded(connections.front()));
    CHECK_FALSE(isEnded(connections.back()));
    CHECK(machine.locks.ask(kPrinter)->activity == "update");
    result.lock.reset();
    CHECK(openOnes() == 0);
}

TEST_CASE("a process that opens many connections does not end another process's") {
    Machine machine;
    const auto result = machine.locks.tryLock(kPrinter, "update");
    REQUIRE(result.lock);
    ChildProcess child(machine.holder());
    REQUIRE(child("connect " + kPrinter) == "connected");
    std::vector<HolderConnection> connections(100);
    for (auto& connection : connections) connection = machine.connect();
    for (const auto& connection : connections) waitForAnswer(connection);
    CHECK(child("state") == "open");
}

TEST_CASE("connections closed by the other side free their slots") {
    Machine machine;
    const auto result = machine.locks.tryLock(kPrinter, "update");
    REQUIRE(result.lock);
    const auto first = machine.connect();
    waitForAnswer(first);
    for (int count = 0; count < 200; ++count) REQUIRE(machine.locks.ask(kPrinter));
    CHECK_FALSE(isEnded(first));
}

TEST_CASE("a holder without free descriptors is reported by the kernel, and replies again when it has some") {
    Machine machine;
    PrinterLocks impatient(machine.options(1ms));
    ChildProcess child(machine.holder());
    REQUIRE(child("lock " + kPrinter + " update") == "locked");
    REQUIRE(child("exhaust") == "exhausted");
    CHECK(impatient.heldElsewhere(kPrinter) == ownProgram("lock_holder", child.pid()));
    REQUIRE(child("relent") == "relented");
    CHECK(machine.locks.ask(kPrinter)->activity == "update");
}

TEST_CASE("no descriptor remains open after locks, watches and their object were destroyed") {
    Machine machine;
    const auto held = machine.locks.tryLock("2A7100030000000B", "update");
    REQUIRE(held.lock);
    ChildProcess child(machine.holder());
    const std::string before = child("descriptors");
    REQUIRE(child("lock " + kPrinter + " update") == "locked");
    REQUIRE(child("watch 2A7100030000000B") == "watching");
    CHECK(machine.locks.ask(kPrinter)->pid == child.pid());
    CHECK(child("descriptors") != before);
    REQUIRE(child("end") == "ended");
    // The private thread closes the last two when it ends; the programs do not wait for that.
    while (child("descriptors") != before) std::this_thread::yield();
}

TEST_CASE("threads of a process may take, change, query and watch locks at once") {
    Machine machine;
    std::vector<std::thread> threads;
    std::atomic<int> refused = 0;
    for (int number = 0; number < 4; ++number) {
        threads.emplace_back([&, own = kPrinter + std::to_string(number)] {
            for (int round = 0; round < 25; ++round) {
                auto result = machine.locks.tryLock(own, "update");
                if (!result.lock) {
                    ++refused;
                    continue;
                }
                const auto watch = machine.locks.watch(kPrinter, [] {});
                result.lock->setPhase(std::to_string(round));
                const auto answer = machine.locks.ask(own);
                if (!answer || answer->phase != std::to_string(round)) ++refused;
                if (auto shared = machine.locks.tryLock(kPrinter, "claim"); shared.lock) shared.lock->setPhase("held");
            }
        });
    }
    for (auto& thread : threads) thread.join();
    CHECK(refused == 0);
    CHECK(machine.locks.tryLock(kPrinter, "update").lock);
}

TEST_CASE("a printer whose key is too long for a lock is reported as a problem and not locked") {
    Machine machine;
    const auto result = machine.locks.tryLock(std::string(200, 'A'), "update");
    CHECK_FALSE(result.lock);
    CHECK_FALSE(result.holder);
    CHECK_FALSE(result.problem.empty());
    CHECK_FALSE(machine.locks.heldElsewhere(std::string(200, 'A')));
}

TEST_CASE("the name of a process is complete where the kernel keeps only its beginning") {
    Machine machine;
    ChildProcess child({ZUL_LONG_NAMED_HOLDER, machine.nameSpace, "0"});
    REQUIRE(child("lock " + kPrinter + " update") == "locked");
    CHECK(programOfProcess(child.pid()) == "lock_holder_with_a_long_name");
    CHECK(programOfProcess(0).empty());
    CHECK(programOfProcess(-1).empty());
}
