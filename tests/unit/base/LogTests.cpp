// The log facility: lines, levels, observers, the log file and its rolling. Each test has a separate log state.
#include "holven_log/HOLVEN_Log.h"
#include "support/LogCapture.h"
#include "support/TemporaryFolder.h"

#include <doctest/doctest.h>
#include <fcntl.h>
#include <fstream>
#include <sys/stat.h>
#include <sys/sysmacros.h>
#include <thread>
#include <unistd.h>

using namespace zul;
using namespace std::chrono_literals;

namespace {

// The log with replaced system calls: a fixed time, and recorded output.
struct LogLab {
    LogLab() {
        HOLVEN_Log::Outside outside;
        outside.now = [] { return std::chrono::sys_days{std::chrono::year{2026} / 6 / 15} + 12h + 123ms; };
        outside.standardError = [this](const std::string& text) { standardError += text; };
        outside.reopenStandardError = [this](const std::string& path) { reopened.push_back(path); };
        outside.sleepForEver = [this] { ++sleeps; };
        outside.exit = [this](int status) { exits.push_back(status); };
        HOLVEN_Log::reset(outside);
        HOLVEN_Log::setApplicationName("lab");
    }
    ~LogLab() { HOLVEN_Log::reset(); }

    void setSeenSignal(int signal) {
        HOLVEN_Log::Outside outside;
        outside.now = [] { return std::chrono::system_clock::time_point{}; };
        outside.standardError = [](const std::string&) {};
        outside.sleepForEver = [this] { ++sleeps; };
        outside.exit = [this](int status) { exits.push_back(status); };
        outside.seenSignal = signal;
        HOLVEN_Log::reset(outside);
    }

    // The text kept in memory, which is written when a file is opened.
    std::string fileText() {
        const auto file = folder / "lab.log";
        HOLVEN_Log::setLogFile(file.string());
        return TemporaryFolder::read(file);
    }

    TemporaryFolder folder;
    LogCapture capture;
    std::string standardError;
    std::vector<std::string> reopened;
    int sleeps = 0;
    std::vector<int> exits;
};

std::string line(const std::string& tag, const std::string& message) {
    return tag + ' ' + HOLVEN_Log::logDateString() + ' ' + message + '\n';
}

mode_t rightsOf(const std::filesystem::path& path) {
    struct stat info {};
    REQUIRE(::stat(path.c_str(), &info) == 0);
    return info.st_mode & 0777;
}

std::uint64_t sizeOf(const std::filesystem::path& path) {
    return std::filesystem::file_size(path);
}

} // namespace

TEST_CASE("each level has its prefix on standard error") {
    LogLab lab;
    for (int level = 0; level <= 4; ++level) HOLVEN_Log::logLevel(level, "text");
    CHECK(lab.standardError == "INFO: text\nDEBUG: lab: text\nDEBUG2: lab: text\nERROR: text\nWARN: text\n");
}

TEST_CASE("each level has its tag in the file") {
    LogLab lab;
    for (int level = 0; level <= 4; ++level) HOLVEN_Log::logLevel(level, "text");
    CHECK(lab.fileText() ==
          line("I", "text") + line("D", "text") + line("D2", "text") + line("E", "text") + line("W", "text"));
}

TEST_CASE("a level without a name is tagged and prefixed as debug") {
    LogLab lab;
    HOLVEN_Log::logLevel(7, "text");
    HOLVEN_Log::logLevel(-1, "text");
    CHECK(lab.standardError == "DEBUG: lab: text\nDEBUG: lab: text\n");
    CHECK(lab.fileText() == line("D", "text") + line("D", "text"));
}

TEST_CASE("a line in the file carries date, time with milliseconds and zone in brackets") {
    LogLab lab;
    const std::string stamp = HOLVEN_Log::logDateString();
    // In any zone of this machine, the month, the milliseconds and the length are the same.
    REQUIRE(stamp.size() == std::string("[2026/06/15 12:00:00.123 +0000]").size());
    CHECK(stamp.substr(0, 9) == "[2026/06/");
    CHECK(stamp.substr(20, 5) == ".123 ");
    CHECK(stamp.back() == ']');
}

TEST_CASE("the application's name is in file lines if requested") {
    LogLab lab;
    HOLVEN_Log::setShouldLogAppName(true);
    HOLVEN_Log::err("text");
    CHECK(lab.fileText() == "E " + HOLVEN_Log::logDateString() + " lab: text\n");
}

TEST_CASE("without standard error and without an open file no line is recorded, not even in memory") {
    LogLab lab;
    HOLVEN_Log::err("before");
    HOLVEN_Log::setShouldLogToStdErr(false);
    HOLVEN_Log::err("lost");
    HOLVEN_Log::setShouldLogToStdErr(true);
    CHECK(lab.standardError == "ERROR: before\n");
    CHECK(lab.fileText() == line("E", "before"));
}

TEST_CASE("lines go to the file once it is open") {
    LogLab lab;
    const std::string before = lab.fileText();
    HOLVEN_Log::err("after");
    CHECK(before.empty());
    CHECK(TemporaryFolder::read(lab.folder / "lab.log") == line("E", "after"));
}

TEST_CASE("a message of several lines is logged line by line, and a trailing line end as an empty line") {
    LogLab lab;
    HOLVEN_Log::debug("one\ntwo\n");
    CHECK(lab.standardError == "DEBUG: lab: one\nDEBUG: lab: two\nDEBUG: lab: \n");
}

TEST_CASE("the text kept in memory loses its first 10000 characters when it has passed a million") {
    LogLab lab;
    const std::string stamp = HOLVEN_Log::logDateString();
    const std::string full(1'000'001 - line("E", "").size(), 'x');
    HOLVEN_Log::err(full); // 1000001 characters with its line end
    HOLVEN_Log::err("next");
    const std::string text = lab.fileText();
    CHECK(text.size() == 1'000'001 - 10'000 + line("E", "next").size());
    CHECK(text.ends_with(line("E", "next")));
    CHECK(text.starts_with("xxx"));
}

TEST_CASE("a text of exactly a million characters in memory is not cut") {
    LogLab lab;
    HOLVEN_Log::err(std::string(1'000'000 - line("E", "").size(), 'x'));
    HOLVEN_Log::err("next");
    CHECK(lab.fileText().size() == 1'000'000 + line("E", "next").size());
}

TEST_CASE("the text in memory is cut between characters, not within one") {
    LogLab lab;
    std::string text;
    for (int i = 0; i < 1'000'001; ++i) text += "\xC3\xA4";
    HOLVEN_Log::err(text);
    HOLVEN_Log::err("next");
    const std::string kept = lab.fileText();
    CHECK(static_cast<unsigned char>(kept.front()) == 0xC3);
}

TEST_CASE("an observer receives each line with the log file's path") {
    LogLab lab;
    std::vector<LogNotification> received;
    const auto observer = HOLVEN_Log::addObserver([&](const LogNotification& update) { received.push_back(update); });
    HOLVEN_Log::err("unheard"); // notification is off at the start
    HOLVEN_Log::setShouldNotifyForLogUpdates(true);
    HOLVEN_Log::err("first");
    const std::string path = (lab.folder / "lab.log").string();
    HOLVEN_Log::setLogFile(path);
    HOLVEN_Log::err("second");
    HOLVEN_Log::removeObserver(observer);
    HOLVEN_Log::err("third");
    REQUIRE(received.size() == 2);
    CHECK(received[0].name == "HOLVEN_LogFileDidUpdate");
    CHECK_FALSE(received[0].object);
    CHECK(received[0].userInfo.at("HOLVEN_LogFileAddedString") == line("E", "first"));
    CHECK(received[1].object == path);
    CHECK(received[1].userInfo.at(HOLVEN_LogFileAddedString) == line("E", "second"));
}

TEST_CASE("an observer may log itself") {
    LogLab lab;
    HOLVEN_Log::setShouldNotifyForLogUpdates(true);
    int received = 0;
    HOLVEN_Log::addObserver([&](const LogNotification&) {
        if (++received == 1) HOLVEN_Log::err("answer");
    });
    HOLVEN_Log::err("question");
    CHECK(received == 2);
    CHECK(lab.standardError == "ERROR: question\nERROR: answer\n");
}

TEST_CASE("a fatal error is logged, then the thread sleeps for ever, followed by exit status 1") {
    LogLab lab;
    HOLVEN_Log::fatal("broken");
    CHECK(lab.standardError == "ERROR: broken\n");
    CHECK(lab.sleeps == 1);
    CHECK(lab.exits == std::vector{1});
}

TEST_CASE("a fatal error after a signal exits at once with the signal's number") {
    LogLab lab;
    lab.setSeenSignal(15);
    HOLVEN_Log::fatal("broken");
    CHECK(lab.sleeps == 0);
    CHECK(lab.exits == std::vector{15});
}

TEST_CASE("a hex dump of 17 bytes has two rows, the second with one cell and one character") {
    LogLab lab;
    Data data(17, 0x41);
    data[16] = 0x42;
    HOLVEN_Log::logData(data);
    CHECK(lab.standardError ==
          "DEBUG: lab: 00000000  41 41 41 41 41 41 41 41  41 41 41 41 41 41 41 41  |AAAAAAAAAAAAAAAA|\n"
          "DEBUG: lab: 00000010  42 " +
              std::string(15 * 3 + 1, ' ') + " |B|\n");
}

TEST_CASE("a percent sign shows doubled in the log's hex dump") {
    LogLab lab;
    HOLVEN_Log::logData({0x25, 0x1F, 0x20, 0x7E, 0x7F});
    CHECK(lab.standardError.ends_with(" |%%. ~.|\n"));
}

TEST_CASE("a hex dump of no bytes logs no line") {
    LogLab lab;
    HOLVEN_Log::logData({});
    CHECK(lab.standardError.empty());
}

TEST_CASE("bytes as hex text have a space after each byte") {
    CHECK(HOLVEN_Log::asciiHexForData({0x1B, 0x50, 0x00}) == "1b 50 00 ");
    CHECK(HOLVEN_Log::asciiHexForData({}).empty());
}

TEST_CASE("opening the log file creates its folders, sets its permissions and returns true once") {
    LogLab lab;
    HOLVEN_Log::err("kept");
    const auto file = lab.folder / "deep/er/app.log";
    CHECK(HOLVEN_Log::setLogFile(file.string()));
    CHECK_FALSE(HOLVEN_Log::setLogFile(file.string()));
    CHECK(TemporaryFolder::read(file) == line("E", "kept"));
    CHECK(rightsOf(file) == 0664);
    CHECK(lab.reopened.empty());
}

TEST_CASE("a second log file is stored but lines still go to the first") {
    LogLab lab;
    const auto first = lab.folder / "first.log";
    const auto second = lab.folder / "second.log";
    std::optional<std::string> object;
    HOLVEN_Log::setShouldNotifyForLogUpdates(true);
    HOLVEN_Log::addObserver([&](const LogNotification& update) { object = update.object; });
    HOLVEN_Log::setLogFile(first.string());
    CHECK_FALSE(HOLVEN_Log::setLogFile(second.string()));
    HOLVEN_Log::err("text");
    CHECK(TemporaryFolder::read(first) == line("E", "text"));
    CHECK_FALSE(std::filesystem::exists(second));
    CHECK(object == second.string());
}

TEST_CASE("a log file that is not a regular file keeps its permissions") {
    LogLab lab;
    const std::string pipe = (lab.folder / "pipe").string();
    REQUIRE(::mkfifo(pipe.c_str(), 0600) == 0);
    const int reader = ::open(pipe.c_str(), O_RDWR | O_CLOEXEC); // so that opening it does not wait for a reader
    REQUIRE(reader >= 0);
    CHECK(HOLVEN_Log::setLogFile(pipe));
    CHECK(rightsOf(pipe) == 0600);
    ::close(reader);
}

TEST_CASE("an old log that is not a regular file keeps its permissions") {
    LogLab lab;
    const auto file = lab.folder.write("app.log", "text\n");
    const std::string old = (lab.folder / "sink").string();
    if (::mknod(old.c_str(), S_IFCHR | 0600, makedev(1, 3)) != 0) {
        MESSAGE("only root can make a device: not tried");
        return;
    }
    HOLVEN_Log::rollLogFile(file.string(), old, 0);
    CHECK(lab.capture.hasLogged("Rolled previous log file into " + old));
    CHECK(rightsOf(old) == 0600);
}

TEST_CASE("if standard error is off, opening the log file redirects standard error into it") {
    LogLab lab;
    HOLVEN_Log::setShouldLogToStdErr(false);
    const std::string path = (lab.folder / "app.log").string();
    CHECK(HOLVEN_Log::setLogFile(path));
    CHECK(lab.reopened == std::vector{path});
}

TEST_CASE("the path of the log file is not simplified, so that links keep their meaning") {
    LogLab lab;
    std::filesystem::create_directories(lab.folder / "far/away");
    std::filesystem::create_directory_symlink(lab.folder / "far/away", lab.folder / "link");
    CHECK(HOLVEN_Log::setLogFile((lab.folder / "link/../app.log").string()));
    CHECK(std::filesystem::exists(lab.folder / "far/app.log")); // the file to which the system resolves that path
    CHECK_FALSE(std::filesystem::exists(lab.folder / "app.log"));
}

TEST_CASE("a log file whose lines cannot be written is reported once") {
    LogLab lab;
    CHECK(HOLVEN_Log::setLogFile("/dev/full"));
    HOLVEN_Log::err("first");
    HOLVEN_Log::err("second");
    CHECK(
        lab.capture.standardError ==
        std::vector<std::string>{"ERROR: cannot write the log /dev/full (No space left on device); lines are lost\n"});
}

TEST_CASE("a log file that cannot be opened is reported in the log") {
    LogLab lab;
    CHECK_FALSE(HOLVEN_Log::setLogFile(lab.folder.path.string()));
    CHECK(lab.standardError ==
          "DEBUG: lab: Failed to open log file at " + lab.folder.path.string() + "; error 21 \"Is a directory\"\n");
}

TEST_CASE("a folder that cannot be created is reported in the system log") {
    LogLab lab;
    const std::string path = lab.folder.write("plain", "").string() + "/app.log";
    CHECK_FALSE(HOLVEN_Log::setLogFile(path));
    CHECK(lab.capture.hasLogged("error with createDirectoryAtPath for [" + path + "]:\nERROR = Not a directory"));
}

TEST_CASE("no path opens no log file") {
    LogLab lab;
    CHECK_FALSE(HOLVEN_Log::setLogFile(std::nullopt));
    CHECK(lab.standardError.empty());
}

TEST_CASE("a file of exactly the limit is rolled, a shorter one is not") {
    LogLab lab;
    const auto file = lab.folder.write("app.log", "0123456789");
    HOLVEN_Log::rollLogFile(file.string(), std::nullopt, 11);
    CHECK(sizeOf(file) == 10);
    CHECK(lab.capture.systemLog.empty());
    HOLVEN_Log::rollLogFile(file.string(), std::nullopt, 10);
    CHECK(sizeOf(file) == 0);
    const auto old = lab.folder / "app_old.log";
    CHECK(TemporaryFolder::read(old) == "0123456789");
    CHECK(lab.capture.systemLog == std::vector<std::string>{"Rolling log file.",
                                                            "Rolled previous log file into " + old.string(),
                                                            "Starting new log file at " + file.string()});
}

TEST_CASE("the usual limit for rolling is one mebibyte") {
    LogLab lab;
    const auto small = lab.folder.write("small.log", std::string(0x100000 - 1, 'x'));
    const auto large = lab.folder.write("large.log", std::string(0x100000, 'x'));
    HOLVEN_Log::rollLogFileIfNecessary(small.string());
    HOLVEN_Log::rollLogFileIfNecessary(large.string());
    CHECK(sizeOf(small) == 0x100000 - 1);
    CHECK(sizeOf(large) == 0);
}

TEST_CASE("rolling appends to the old file, which is named after the extension or explicitly") {
    LogLab lab;
    const auto plain = lab.folder.write("plain", "new\n");
    lab.folder.write("plain_old.log", "old\n");
    HOLVEN_Log::rollLogFile(plain.string(), std::nullopt, 0);
    CHECK(TemporaryFolder::read(lab.folder / "plain_old.log") == "old\nnew\n");
    const auto text = lab.folder.write("app.txt", "new\n");
    HOLVEN_Log::rollLogFile(text.string(), (lab.folder / "named").string(), 0);
    CHECK(TemporaryFolder::read(lab.folder / "named") == "new\n");
}

TEST_CASE("rolling into an old file of 10 MiB keeps only whole lines") {
    LogLab lab;
    std::string old;
    while (old.size() < 0xA00000) old += "line " + std::to_string(old.size()) + '\n';
    const auto file = lab.folder.write("app.log", "the newest line\n");
    lab.folder.write("app_old.log", old);
    HOLVEN_Log::rollLogFile(file.string(), std::nullopt, 1);
    const std::string kept = TemporaryFolder::read(lab.folder / "app_old.log");
    CHECK(kept.size() <= 0xA00000);
    CHECK(kept.size() > 0xA00000 - 20);
    CHECK(kept.starts_with("line "));
    CHECK(kept.ends_with("\nthe newest line\n"));
}

TEST_CASE("rolling keeps all 10 MiB when a line begins exactly there") {
    LogLab lab;
    std::string lines(0xA00000, 'x');
    lines.back() = '\n';
    const auto file = lab.folder.write("app.log", lines);
    lab.folder.write("app_old.log", "gone\n");
    HOLVEN_Log::rollLogFile(file.string(), std::nullopt, 1);
    CHECK(TemporaryFolder::read(lab.folder / "app_old.log") == lines);
}

TEST_CASE("a too long old text without a line end is dropped as a whole") {
    LogLab lab;
    const auto file = lab.folder.write("app.log", std::string(0xA00001, 'x'));
    HOLVEN_Log::rollLogFile(file.string(), std::nullopt, 1);
    CHECK(sizeOf(lab.folder / "app_old.log") == 0);
}

TEST_CASE("an old file that cannot be written is reported") {
    LogLab lab;
    const auto file = lab.folder.write("app.log", "text");
    const std::string old = (lab.folder / "absent/old.log").string();
    HOLVEN_Log::rollLogFile(file.string(), old, 1);
    CHECK(lab.capture.hasLogged("Error writing old log file to " + old));
}

TEST_CASE("a file whose size is unknown is not rolled") {
    LogLab lab;
    HOLVEN_Log::rollLogFile((lab.folder / "absent.log").string(), std::nullopt, 0);
    CHECK(lab.capture.systemLog.empty());
    CHECK_FALSE(std::filesystem::exists(lab.folder / "absent_old.log"));
}

TEST_CASE("opening a log file that has grown rolls it first") {
    LogLab lab;
    const auto file = lab.folder.write("app.log", std::string(0x100000, 'x'));
    CHECK(HOLVEN_Log::setLogFile(file.string()));
    HOLVEN_Log::err("fresh");
    CHECK(TemporaryFolder::read(file) == line("E", "fresh"));
    CHECK(sizeOf(lab.folder / "app_old.log") == 0x100000);
}

TEST_CASE("a log file in the home folder is created, rolled and opened at the same place") {
    LogLab lab;
    const std::string home = std::getenv("HOME") == nullptr ? "" : std::getenv("HOME");
    ::setenv("HOME", lab.folder.path.c_str(), /*overwrite=*/1);
    lab.folder.write("grown.log", std::string(0x100000, 'x') + "\n");
    CHECK(HOLVEN_Log::setLogFile("~/grown.log"));
    ::setenv("HOME", home.c_str(), /*overwrite=*/1);
    CHECK(std::filesystem::exists(lab.folder / "grown_old.log"));
    CHECK(std::filesystem::file_size(lab.folder / "grown.log") == 0);
    CHECK_FALSE(std::filesystem::exists("~"));
}

TEST_CASE("a log whose name ends with a point is rolled into one with the usual extension") {
    LogLab lab;
    const auto file = lab.folder.write("app.", "line\n");
    HOLVEN_Log::rollLogFile(file.string(), std::nullopt, 1);
    CHECK(TemporaryFolder::read(lab.folder / "app_old.log") == "line\n");
}

TEST_CASE("lines of several threads do not mix") {
    LogLab lab;
    const auto file = lab.folder / "lab.log";
    HOLVEN_Log::setLogFile(file.string());
    std::vector<std::thread> threads;
    for (int number = 0; number < 4; ++number) {
        threads.emplace_back([] {
            for (int i = 0; i < 100; ++i) HOLVEN_Log::err("text");
        });
    }
    for (std::thread& thread : threads) thread.join();
    std::string expected;
    for (int i = 0; i < 400; ++i) expected += line("E", "text");
    CHECK(TemporaryFolder::read(file) == expected);
}

TEST_CASE("an upper-case address that matches once lower-cased is accepted") {
    LogCapture capture;
    CHECK(HOLVEN_Log::validateEmailAddress("JANE.DOE@EXAMPLE.ORG"));
    CHECK(capture.systemLog ==
          std::vector<std::string>{"Passed emailAddress=[JANE.DOE@EXAMPLE.ORG] with length=[20]..."});
}

TEST_CASE("an address with a trailing blank is rejected") {
    LogCapture capture;
    CHECK_FALSE(HOLVEN_Log::validateEmailAddress("jane@example.org "));
}

TEST_CASE("quoted local parts and bracketed addresses are accepted, incomplete addresses are not") {
    LogCapture capture;
    CHECK(HOLVEN_Log::validateEmailAddress("\"jane doe\"@example.org") == false); // a blank must not be quoted
    CHECK(HOLVEN_Log::validateEmailAddress("\"jane!doe\"@example.org"));
    CHECK(HOLVEN_Log::validateEmailAddress("jane@[192.168.0.1]"));
    CHECK_FALSE(HOLVEN_Log::validateEmailAddress("jane@[192.168.0.256]"));
    CHECK_FALSE(HOLVEN_Log::validateEmailAddress("jane@example"));
    CHECK_FALSE(HOLVEN_Log::validateEmailAddress("@example.org"));
    CHECK_FALSE(HOLVEN_Log::validateEmailAddress(""));
}
