// Settings, resources, translated texts and the system log.
#include "platform/foundation/Bundle.h"
#include "platform/foundation/Format.h"
#include "platform/foundation/SystemLog.h"
#include "platform/foundation/UserDefaults.h"
#include "support/LogCapture.h"
#include "support/TemporaryFolder.h"

#include <cstdlib>
#include <doctest/doctest.h>
#include <sys/stat.h>
#include <thread>
#include <unistd.h>

using namespace zul;

namespace {

int filesIn(const std::filesystem::path& folder) {
    int count = 0;
    for ([[maybe_unused]] const auto& entry : std::filesystem::directory_iterator(folder)) ++count;
    return count;
}

ino_t inodeOf(const std::filesystem::path& file) {
    struct stat info {};
    REQUIRE(::stat(file.c_str(), &info) == 0);
    return info.st_ino;
}

// Sets an environment variable while the object exists.
struct Environment {
    Environment(const char* variable, const char* value) : name(variable) {
        if (const char* was = std::getenv(variable)) before = was;
        value == nullptr ? ::unsetenv(variable) : ::setenv(variable, value, 1);
    }
    ~Environment() { before ? ::setenv(name, before->c_str(), 1) : ::unsetenv(name); }
    const char* name;
    std::optional<std::string> before;
};

} // namespace

TEST_CASE("settings are read by the next run") {
    const TemporaryFolder folder;
    const auto file = folder / "deep/defaults.json";
    {
        UserDefaults defaults(file);
        CHECK(defaults.lastError().empty());
        CHECK(defaults.setString("name", "value \xE2\x82\xAC"));
        CHECK(defaults.setBool("flag", true));
    }
    const UserDefaults defaults(file);
    CHECK(defaults.stringForKey("name") == "value \xE2\x82\xAC");
    CHECK(defaults.boolForKey("flag"));
    CHECK(defaults.stringForKey("flag") == "true");
    CHECK(defaults.all() == std::map<std::string, std::string>{{"flag", "true"}, {"name", "value \xE2\x82\xAC"}});
    CHECK(filesIn(file.parent_path()) == 1); // no temporary file remains
}

TEST_CASE("absent settings are nullopt and false") {
    const UserDefaults defaults;
    CHECK_FALSE(defaults.stringForKey("absent"));
    CHECK_FALSE(defaults.boolForKey("absent"));
}

TEST_CASE("settings without a file are kept for the run") {
    UserDefaults defaults;
    CHECK(defaults.setString("name", "value"));
    CHECK(defaults.stringForKey("name") == "value");
    CHECK(defaults.remove("name"));
    CHECK_FALSE(defaults.remove("name"));
    CHECK(defaults.all().empty());
    CHECK(defaults.lastError().empty());
}

TEST_CASE("numbers and flags of a hand-written file are read as text and as flags") {
    const TemporaryFolder folder;
    const UserDefaults defaults(folder.write("d.json", R"({"one": 1, "zero": 0, "yes": "YES", "list": [1]})"));
    CHECK(defaults.stringForKey("one") == "1");
    CHECK(defaults.boolForKey("one"));
    CHECK_FALSE(defaults.boolForKey("zero"));
    CHECK(defaults.boolForKey("yes"));
    CHECK_FALSE(defaults.stringForKey("list"));
}

TEST_CASE("a change keeps values of unknown types") {
    const TemporaryFolder folder;
    const auto file = folder.write("d.json", R"({"list": [1, {"a": null}], "number": 7})");
    UserDefaults defaults(file);
    CHECK(defaults.setBool("flag", false));
    const std::string text = TemporaryFolder::read(file);
    CHECK(text.find("null") != std::string::npos);
    CHECK(text.find("\"number\": 7") != std::string::npos);
    CHECK(text.find("\"flag\": false") != std::string::npos);
}

TEST_CASE("a damaged settings file is renamed and reported, and settings still work") {
    const TemporaryFolder folder;
    const auto file = folder.write("d.json", R"({"name": "val)");
    UserDefaults defaults(file);
    const std::string kept = file.string() + ".damaged";
    CHECK(TemporaryFolder::read(kept) == R"({"name": "val)");
    CHECK(defaults.lastError().find(kept) != std::string::npos);
    CHECK(defaults.setString("name", "new"));
    CHECK(UserDefaults(file).stringForKey("name") == "new");
    CHECK_FALSE(defaults.lastError().empty()); // still to be reported
}

TEST_CASE("a second damaged settings file does not replace the renamed first one") {
    const TemporaryFolder folder;
    const auto file = folder.write("d.json", "first");
    { const UserDefaults defaults(file); }
    folder.write("d.json", "[\"second\"]"); // valid JSON, but not settings
    { const UserDefaults defaults(file); }
    CHECK(TemporaryFolder::read(file.string() + ".damaged") == "first");
    CHECK(TemporaryFolder::read(file.string() + ".damaged-2") == "[\"second\"]");
}

TEST_CASE("settings that cannot be written are used for the run, and the reason is reported") {
    const TemporaryFolder folder;
    const auto file = folder.write("plain", "") / "d.json"; // below a file: it can never be written
    UserDefaults defaults(file);
    CHECK_FALSE(defaults.setString("name", "value"));
    CHECK(defaults.stringForKey("name") == "value");
    CHECK(defaults.lastError().find(file.string()) != std::string::npos);
}

TEST_CASE("settings are written only when a value has changed") {
    const TemporaryFolder folder;
    const auto file = folder / "d.json";
    UserDefaults defaults(file);
    CHECK(defaults.setString("name", "value"));
    CHECK(defaults.setBool("flag", false));
    const auto before = inodeOf(file); // each write replaces the file by a new one
    CHECK(defaults.setString("name", "value"));
    CHECK(defaults.setBool("flag", false));
    UserDefaults next(file);
    CHECK(next.setString("name", "value"));
    CHECK(inodeOf(file) == before);
    CHECK(next.setString("name", "other"));
    CHECK(inodeOf(file) != before);
}

TEST_CASE("a flag is written although a text with the same meaning was stored") {
    const TemporaryFolder folder;
    const auto file = folder.write("d.json", R"({"flag": "true"})");
    UserDefaults defaults(file);
    CHECK(defaults.setBool("flag", true));
    CHECK(TemporaryFolder::read(file).find("\"flag\": true") != std::string::npos);
}

TEST_CASE("a value that could not be written is written when it is set again") {
    const TemporaryFolder folder;
    const auto file = folder / "place/d.json";
    UserDefaults defaults(file);
    const auto plain = folder.write("place", ""); // no folder can be created there now
    CHECK_FALSE(defaults.setString("name", "value"));
    CHECK_FALSE(defaults.setString("name", "value"));
    std::filesystem::remove(plain);
    CHECK(defaults.setString("name", "value"));
    CHECK(UserDefaults(file).stringForKey("name") == "value");
    CHECK(defaults.lastError().empty());
}

TEST_CASE("a settings file that cannot be read is not changed") {
    const TemporaryFolder folder;
    const auto file = folder / "d.json";
    std::filesystem::create_directory(file); // cannot be read as a file by any user
    UserDefaults defaults(file);
    CHECK_FALSE(defaults.lastError().empty());
    CHECK_FALSE(defaults.setString("name", "value"));
    CHECK(std::filesystem::is_directory(file));
}

TEST_CASE("a settings file with a symbolic link is replaced at the link's target") {
    const TemporaryFolder folder;
    const auto target = folder.write("real.json", R"({"a": "b"})");
    const auto link = folder / "link.json";
    std::filesystem::create_symlink(target, link);
    UserDefaults defaults(link);
    CHECK(defaults.setString("a", "c"));
    CHECK(std::filesystem::is_symlink(link));
    CHECK(UserDefaults(target).stringForKey("a") == "c");
}

TEST_CASE("a setting of bytes that are not text is still written") {
    const TemporaryFolder folder;
    UserDefaults defaults(folder / "d.json");
    CHECK(defaults.setString("name", "a\xFF"));
    CHECK(UserDefaults(folder / "d.json").stringForKey("name") == "a\xEF\xBF\xBD");
}

TEST_CASE("the settings are in the configuration folder, or in the home's") {
    const Environment home("HOME", "/home/someone");
    {
        const Environment named("XDG_CONFIG_HOME", "/etc/conf");
        CHECK(UserDefaults::standardFile() == "/etc/conf/zul-printer-utility/defaults.json");
    }
    const Environment relative("XDG_CONFIG_HOME", "conf");
    CHECK(UserDefaults::standardFile() == "/home/someone/.config/zul-printer-utility/defaults.json");
}

TEST_CASE("settings may be changed by several threads") {
    UserDefaults defaults;
    std::vector<std::thread> threads;
    for (int number = 0; number < 4; ++number) {
        threads.emplace_back([&, number] {
            for (int i = 0; i < 50; ++i) {
                CHECK(defaults.setString(std::to_string(number), std::to_string(i)));
                CHECK(defaults.stringForKey(std::to_string(number)) == std::to_string(i));
            }
        });
    }
    for (std::thread& thread : threads) thread.join();
    CHECK(defaults.all().size() == 4);
}

TEST_CASE("the bundle knows the program's name and versions") {
    Bundle bundle("/r", "/a");
    CHECK(bundle.objectForInfoDictionaryKey("CFBundleShortVersionString") == "2.06");
    CHECK(bundle.objectForInfoDictionaryKey("CFBundleVersion") == "1");
    CHECK(bundle.objectForInfoDictionaryKey("CFBundleName") == "ZUL Printer Utility");
    CHECK_FALSE(bundle.objectForInfoDictionaryKey("absent"));
    bundle.setInfo("CFBundleVersion", std::nullopt);
    CHECK_FALSE(bundle.objectForInfoDictionaryKey("CFBundleVersion"));
    bundle.setInfo("CFBundleVersion", "9");
    CHECK(bundle.objectForInfoDictionaryKey("CFBundleVersion") == "9");
}

TEST_CASE("the main bundle's resources are beside the program's folder, the archive in them or where named") {
    const auto program = std::filesystem::read_symlink("/proc/self/exe");
    const Bundle bundle = Bundle::mainBundle();
    CHECK(bundle.resourcesFolder() == program.parent_path().parent_path() / "share/zul-printer-utility");
    CHECK(bundle.archiveFolder() == bundle.resourcesFolder() / "firmware");
    CHECK(Bundle::mainBundle("/srv/archive").archiveFolder() == "/srv/archive");
}

TEST_CASE("a resource is searched in the archive, then in the resources") {
    const TemporaryFolder archive;
    const TemporaryFolder resources;
    const Bundle bundle(resources.path, archive.path);
    CHECK_FALSE(bundle.pathForResource("fw", "bin"));
    const auto inResources = resources.write("fw.bin", "r");
    CHECK(bundle.pathForResource("fw", "bin") == inResources);
    const auto inArchive = archive.write("fw.bin", "a");
    CHECK(bundle.pathForResource("fw", "bin") == inArchive);
    CHECK(bundle.pathForResource("fw.bin", "") == inArchive);
    CHECK_FALSE(bundle.pathForResource("", ""));
}

TEST_CASE("a folder is not a resource") {
    const TemporaryFolder resources;
    std::filesystem::create_directory(resources / "fw.bin");
    CHECK_FALSE(Bundle(resources.path, resources.path).pathForResource("fw", "bin"));
}

TEST_CASE("an operator's text is translated, or its default, or its key") {
    const Bundle bundle("/r", "/a");
    CHECK(bundle.localizedString("Cancel") == "Cancel");
    CHECK(bundle.localizedString("Cancel", "Stop") == "Stop");
    Bundle::setTranslator(
        [](const char* key) { return std::string(std::string(key) == "Cancel" ? "Abbrechen" : key); });
    CHECK(bundle.localizedString("Cancel", "Stop") == "Abbrechen");
    CHECK(bundle.localizedString("Update", "Start") == "Start");
    CHECK(bundle.localizedString("Update") == "Update");
    Bundle::setTranslator(nullptr);
    CHECK(bundle.localizedString("Cancel") == "Cancel");
}

TEST_CASE("system-log texts reach the sink with their line ends") {
    LogCapture capture;
    systemLog("one\n");
    logText("%s %d", "two", 2);
    CHECK(capture.systemLog == std::vector<std::string>{"one\n", "two 2"});
    CHECK(capture.standardError.empty());
}

TEST_CASE("a verbose system log is repeated on standard error") {
    LogCapture capture;
    setSystemLogVerbose(true);
    systemLog("one");
    setSystemLogVerbose(false);
    systemLog("two");
    CHECK(capture.systemLog == std::vector<std::string>{"one", "two"});
    CHECK(capture.standardError == std::vector<std::string>{"one"});
}

TEST_CASE("an error for standard error is also in the system log, and on standard error once even when verbose") {
    LogCapture capture;
    setSystemLogVerbose(true);
    standardErrorLog("ERROR: x\n");
    setSystemLogVerbose(false);
    CHECK(capture.standardError == std::vector<std::string>{"ERROR: x\n"});
    CHECK(capture.systemLog == std::vector<std::string>{"ERROR: x\n"});
}

TEST_CASE("on the real standard error each text is one line") {
    const TemporaryFolder folder;
    const auto file = folder / "stderr";
    std::fflush(stderr);
    const int before = ::dup(2);
    REQUIRE(std::freopen(file.c_str(), "w", stderr) != nullptr);
    setSystemLogSink([](const std::string&) {});
    standardErrorLog("with an end\n");
    standardErrorLog("without");
    setSystemLogSink(nullptr);
    std::fflush(stderr);
    ::dup2(before, 2);
    ::close(before);
    CHECK(TemporaryFolder::read(file) == "with an end\nwithout\n");
}

TEST_CASE("a sink may log and may remove itself") {
    std::vector<std::string> texts;
    setSystemLogSink([&](const std::string& text) {
        texts.push_back(text);
        if (text == "question") systemLog("answer");
        if (text == "answer") setSystemLogSink([](const std::string&) {});
    });
    systemLog("question");
    systemLog("unheard");
    setSystemLogSink(nullptr);
    CHECK(texts == std::vector<std::string>{"question", "answer"});
}

TEST_CASE("texts of several threads reach a sink one at a time") {
    LogCapture capture;
    std::vector<std::thread> threads;
    for (int number = 0; number < 4; ++number) {
        threads.emplace_back([] {
            for (int i = 0; i < 100; ++i) systemLog("text");
        });
    }
    for (std::thread& thread : threads) thread.join();
    CHECK(capture.systemLog == std::vector<std::string>(400, "text"));
}

TEST_CASE("a missing text is shown as null") {
    CHECK(textOrNull(std::nullopt) == "(null)");
    CHECK(textOrNull("x") == "x");
}
