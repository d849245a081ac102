// A process that writes the history as its standard input says, one command per line:
//
//   history_writer FOLDER
//
// begin KEY, cut-off KEY PHASE, complete ID, many COUNT KEY, endless KEY, read, as-nobody, small-files, small-disk,
// fill, empty. The reply to each is one line.
#include "update/UpdateHistory.h"

#include <csignal>
#include <fstream>
#include <iostream>
#include <sched.h>
#include <sstream>
#include <sys/mount.h>
#include <sys/resource.h>
#include <unistd.h>

using namespace zul;

namespace {

std::string shown(const std::string& problem) {
    return problem.empty() ? "stored" : problem;
}

std::string completed(UpdateHistory& history, std::int64_t id) {
    return shown(history.complete(id, {.given = 2000, .verdict = "updated", .isSuccess = true}));
}

std::string begun(UpdateHistory& history, const std::string& key) {
    const auto begun = history.begin({.begun = 1000, .key = key, .model = "VK14"});
    return begun.id != 0 ? std::to_string(begun.id) : begun.problem;
}

// Records an update that reaches this phase and never ends.
std::string cutOff(UpdateHistory& history, const std::string& key, const std::string& phase) {
    const auto begun = history.begin({.begun = 1000, .key = key, .model = "VK14"});
    return shown(begun.id == 0 ? begun.problem : history.addPhase(begun.id, {.name = phase, .begun = 1000}));
}

// Returns the first problem, or "stored".
std::string writeMany(UpdateHistory& history, int count, const std::string& key) {
    std::string problem;
    for (int index = 0; index < count && problem.empty(); ++index) {
        const auto begun = history.begin({.begun = index, .key = key, .model = "VK14"});
        problem = begun.problem;
        if (problem.empty()) problem = history.addPhase(begun.id, {.name = "writing", .begun = index, .duration = 5});
        if (problem.empty()) problem = history.complete(begun.id, {.given = index, .verdict = "updated"});
    }
    return shown(problem);
}

// Prints a line for each completed record until the process is killed.
std::string writeEndlessly(UpdateHistory& history, const std::string& key) {
    for (;;) {
        const auto begun = history.begin({.begun = 1, .key = key});
        if (begun.id == 0) return begun.problem;
        const std::string problem = history.complete(begun.id, {.given = 2, .verdict = "updated"});
        if (!problem.empty()) return problem;
        std::cout << begun.id << std::endl;
    }
}

// Mounts a disk of 256 KiB over the folder, visible to this process only.
bool mountSmallDisk(const std::filesystem::path& folder) {
    std::filesystem::create_directories(folder);
    return ::unshare(CLONE_NEWNS) == 0 && ::mount(nullptr, "/", nullptr, MS_REC | MS_PRIVATE, nullptr) == 0 &&
           ::mount("tmpfs", folder.c_str(), "tmpfs", 0, "size=256k") == 0;
}

bool fill(const std::filesystem::path& file) {
    std::ofstream stream(file, std::ios::binary);
    const std::string block(1024, 'x');
    while (stream << block << std::flush) {
    }
    return true;
}

std::string obey(UpdateHistory& history, std::istringstream& words) {
    std::string word, key;
    std::int64_t number = 0;
    words >> word;
    if (word == "begin" && words >> key) return begun(history, key);
    if (word == "cut-off" && words >> key) {
        std::string phase;
        std::getline(words >> std::ws, phase);
        return cutOff(history, key, phase);
    }
    if (word == "complete" && words >> number) return completed(history, number);
    if (word == "many" && words >> number >> key) return writeMany(history, static_cast<int>(number), key);
    if (word == "endless" && words >> key) return writeEndlessly(history, key);
    if (word == "read") {
        const auto found = history.records({});
        return found.problem.empty() ? std::to_string(found.records.size()) : found.problem;
    }
    if (word == "as-nobody") return ::setgid(65534) == 0 && ::setuid(65534) == 0 ? "done" : "refused";
    if (word == "small-files") {
        const rlimit limit{8192, 8192};
        std::signal(SIGXFSZ, SIG_IGN);
        return ::setrlimit(RLIMIT_FSIZE, &limit) == 0 ? "done" : "refused";
    }
    if (word == "small-disk") return mountSmallDisk(history.file().parent_path()) ? "done" : "refused";
    if (word == "fill") return fill(history.file().parent_path() / "filler") ? "done" : "refused";
    if (word == "empty") return std::filesystem::remove(history.file().parent_path() / "filler") ? "done" : "refused";
    return "what?";
}

} // namespace

int main(int argc, char** argv) {
    if (argc != 2) return 2;
    UpdateHistory history({.folder = argv[1]});
    for (std::string line; std::getline(std::cin, line);) {
        std::istringstream words(line);
        std::cout << obey(history, words) << std::endl;
    }
    return 0;
}
