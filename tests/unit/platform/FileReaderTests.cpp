// Reading one file: whole, once, and only regular files.
#include "platform/files/FileReader.h"

#include "support/TemporaryFolder.h"

#include <cerrno>
#include <doctest/doctest.h>
#include <fstream>
#include <functional>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

using namespace zul;

namespace {

constexpr std::int64_t kSecond = 1'000'000'000;

// Reads in parts and calls the test before each; the test sets the clock.
class StagedReader final : public FileReader {
  public:
    using FileReader::FileReader;
    std::size_t part = 1'000'000;
    std::function<void(int number)> beforePart; // numbered from 1
    int failingPart = 0;
    int error = 0;
    std::int64_t secondsLater = 3600;
    mutable int parts = 0;

  protected:
    std::ptrdiff_t readSome(int descriptor, std::uint8_t* buffer, std::size_t size) const override {
        ++parts;
        if (beforePart) beforePart(parts);
        if (parts == failingPart) {
            errno = error;
            return -1;
        }
        return FileReader::readSome(descriptor, buffer, std::min(size, part));
    }
    std::int64_t now() const override { return FileReader::now() + secondsLater * kSecond; }
};

void append(const std::filesystem::path& file, const std::string& text) {
    std::ofstream(file, std::ios::binary | std::ios::app) << text;
}

} // namespace

TEST_CASE("a file is read whole, and its identity is the one found by the next check") {
    const TemporaryFolder folder;
    const auto file = folder.write("a.fw", std::string("a\0\xFF", 3));
    const StagedReader reader;
    const FileReading reading = reader.read(file);
    CHECK(reading.result == FileResult::contents);
    CHECK(reading.contents == Data{'a', 0, 0xFF});
    REQUIRE(reading.identity);
    CHECK(reading.identity == reader.identityOf(file));
    CHECK(reader.read(folder.write("empty", "")).contents.empty());
}

TEST_CASE("a file that is read in small parts, with interruptions, is complete") {
    const TemporaryFolder folder;
    const auto file = folder.write("a.fw", "0123456789");
    StagedReader reader;
    reader.part = 3;
    reader.failingPart = 2;
    reader.error = EINTR;
    const FileReading reading = reader.read(file);
    CHECK(reading.contents == dataFromText("0123456789"));
    CHECK(reading.identity.has_value());
    CHECK(reader.parts == 6); // four parts, one interruption, the end
}

TEST_CASE("an error in the middle of a file yields no contents") {
    const TemporaryFolder folder;
    StagedReader reader;
    reader.part = 3;
    reader.failingPart = 2;
    reader.error = EIO;
    const FileReading reading = reader.read(folder.write("a.fw", "0123456789"));
    CHECK(reading.result == FileResult::unreadable);
    CHECK(reading.contents.empty());
}

TEST_CASE("a file that grows while it is read is read to its new end and has no identity") {
    const TemporaryFolder folder;
    const auto file = folder.write("a.fw", "01234");
    StagedReader reader;
    reader.part = 3;
    reader.beforePart = [&](int number) {
        if (number == 2) append(file, "56789abcdefghij");
    };
    const FileReading reading = reader.read(file);
    CHECK(reading.result == FileResult::contents);
    CHECK(reading.contents == dataFromText("0123456789abcdefghij"));
    CHECK_FALSE(reading.identity.has_value());
}

TEST_CASE("a file that is truncated while it is read has no identity") {
    const TemporaryFolder folder;
    const auto file = folder.write("a.fw", "0123456789");
    StagedReader reader;
    reader.part = 3;
    reader.beforePart = [&](int number) {
        if (number == 2) CHECK(::truncate(file.c_str(), 4) == 0);
    };
    const FileReading reading = reader.read(file);
    CHECK(reading.contents == dataFromText("0123"));
    CHECK_FALSE(reading.identity.has_value());
}

TEST_CASE("a file is read up to the largest size and not beyond it") {
    const TemporaryFolder folder;
    const auto file = folder.write("a.fw", "0123456789");
    CHECK(StagedReader(10).read(file).contents.size() == 10);
    CHECK(StagedReader(9).read(file).result == FileResult::tooLarge);
    StagedReader reader(12);
    reader.part = 4;
    reader.beforePart = [&](int) { append(file, "more"); }; // without end
    CHECK(reader.read(file).result == FileResult::tooLarge);
}

TEST_CASE("an entry that is not a regular file is not opened, so a pipe does not block") {
    const TemporaryFolder folder;
    const FileReader reader;
    const auto pipe = folder / "pipe.fw";
    REQUIRE(::mkfifo(pipe.c_str(), 0600) == 0);
    const auto socket = folder / "socket.fw";
    const int descriptor = ::socket(AF_UNIX, SOCK_STREAM, 0);
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    socket.string().copy(address.sun_path, sizeof address.sun_path - 1);
    REQUIRE(::bind(descriptor, reinterpret_cast<const sockaddr*>(&address), sizeof address) == 0);
    ::close(descriptor);
    for (const auto& path : {folder.path, pipe, socket, std::filesystem::path("/dev/null")}) {
        CAPTURE(path.string());
        CHECK(reader.read(path).result == FileResult::notAFile);
        CHECK_FALSE(reader.identityOf(path).has_value());
    }
}

TEST_CASE("a link is followed, and a dangling one is a missing file") {
    const TemporaryFolder folder;
    const FileReader reader;
    const auto file = folder.write("a.fw", "text");
    std::filesystem::create_symlink(file, folder / "link.fw");
    CHECK(reader.read(folder / "link.fw").contents == dataFromText("text"));
    CHECK(reader.identityOf(folder / "link.fw") == reader.identityOf(file));
    std::filesystem::create_symlink(folder / "none", folder / "dangling.fw");
    CHECK(reader.read(folder / "dangling.fw").result == FileResult::missing);
    CHECK(reader.read(folder / "none").result == FileResult::missing);
    CHECK(reader.read(file / "inside").result == FileResult::missing);
    std::filesystem::create_symlink(folder / "ring.fw", folder / "ring.fw");
    CHECK(reader.read(folder / "ring.fw").result == FileResult::unreadable);
}

TEST_CASE("a file written just now has no identity yet: a second change might not alter its times") {
    const TemporaryFolder folder;
    const auto file = folder.write("a.fw", "text");
    StagedReader reader;
    reader.secondsLater = 0;
    CHECK_FALSE(reader.read(file).identity.has_value());
    reader.secondsLater = 4;
    CHECK(reader.read(file).identity.has_value());
    reader.secondsLater = -4; // the clock was set back since
    CHECK_FALSE(reader.read(file).identity.has_value());
}

TEST_CASE("a file's identity changes with its contents, its times and its location") {
    const TemporaryFolder folder;
    const FileReader reader;
    const auto file = folder.write("a.fw", "text");
    const auto first = reader.identityOf(file);
    append(file, "more");
    const auto longer = reader.identityOf(file);
    CHECK(longer != first);
    std::filesystem::last_write_time(file, std::filesystem::file_time_type::clock::now() - std::chrono::hours(1));
    CHECK(reader.identityOf(file) != longer);
    std::filesystem::copy_file(file, folder / "b.fw");
    CHECK(reader.identityOf(folder / "b.fw") != reader.identityOf(file));
}
