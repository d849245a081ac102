// Closes of files by other programs, and closes by this process, which are not reported.
#include "usb/libusb/NodeWatcher.h"

#include "support/TemporaryFolder.h"

#include <condition_variable>
#include <doctest/doctest.h>
#include <fcntl.h>
#include <mutex>
#include <unistd.h>

using namespace zul;

namespace {

int opened(const std::filesystem::path& file) {
    const int descriptor = ::open(file.c_str(), O_RDWR | O_CLOEXEC);
    REQUIRE(descriptor >= 0);
    return descriptor;
}

struct Counter {
    std::mutex mutex;
    std::condition_variable changed;
    int count = 0;

    NodeWatcher::Callback callback() {
        return [this] {
            const std::scoped_lock lock(mutex);
            ++count;
            changed.notify_all();
        };
    }
    bool reaches(int wanted) {
        std::unique_lock lock(mutex);
        return changed.wait_for(lock, std::chrono::seconds(10), [&] { return count >= wanted; });
    }
    int now() {
        const std::scoped_lock lock(mutex);
        return count;
    }
};

} // namespace

TEST_CASE("a close by this process is not reported, and closes afterwards are, to every watch of the file") {
    TemporaryFolder folder;
    const auto file = folder.write("node", "");
    const auto other = folder.write("other", "");
    Counter first;
    Counter second;
    Counter others;
    NodeWatcher watcher;
    REQUIRE(watcher.add(file, first.callback()) != 0);
    REQUIRE(watcher.add(file, second.callback()) != 0);
    REQUIRE(watcher.add(other, others.callback()) != 0);
    watcher.closeUnseen(file, ScopedFd(opened(file)));
    ::close(opened(other)); // reported after all earlier closes
    REQUIRE(others.reaches(1));
    CHECK(first.now() == 0);
    CHECK(second.now() == 0);
    ::close(opened(file));
    CHECK(first.reaches(1));
    CHECK(second.reaches(1));
}

TEST_CASE("closing an unwatched file closes it") {
    TemporaryFolder folder;
    const auto file = folder.write("node", "");
    NodeWatcher watcher;
    const int descriptor = opened(file);
    watcher.closeUnseen(file, ScopedFd(descriptor));
    CHECK(::fcntl(descriptor, F_GETFD) == -1);
}

TEST_CASE("a watch whose file was removed meanwhile can be removed") {
    TemporaryFolder folder;
    const auto file = folder.write("node", "");
    Counter counter;
    NodeWatcher watcher;
    const auto watch = watcher.add(file, counter.callback());
    const int descriptor = opened(file);
    std::filesystem::remove(file);
    watcher.closeUnseen(file, ScopedFd(descriptor));
    watcher.remove(watch);
    CHECK(counter.now() == 0);
}
