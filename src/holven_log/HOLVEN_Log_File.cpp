// Opens the log file, and rolls it when it is long.
// Called at program start; writes are called on any thread, under the log's lock.
#include "holven_log/HOLVEN_Log.h"
#include "holven_log/HOLVEN_LogState.h"
#include "platform/files/Files.h"
#include "platform/files/Folders.h"
#include "platform/files/ScopedFd.h"
#include "platform/foundation/Data.h"
#include "platform/foundation/Format.h"
#include "platform/foundation/SystemLog.h"

#include <algorithm>
#include <cerrno>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <fcntl.h>
#include <filesystem>
#include <mutex>
#include <optional>
#include <string>
#include <sys/stat.h>
#include <system_error>

namespace zul {

namespace fs = std::filesystem;

namespace {

constexpr std::uint64_t kUsualRollSize = 0x100000; // bytes
constexpr std::size_t kMostOldBytes = 0xA00000;
constexpr mode_t kLogFileMode = 0664;

// Root may log to a device, whose permissions must not be changed for everyone.
void shareIfRegular(int descriptor) {
    struct stat info {};
    if (::fstat(descriptor, &info) != 0 || !S_ISREG(info.st_mode)) return;
    (void)::fchmod(descriptor, kLogFileMode); // a file of another owner keeps its permissions
}

// given: the path as the caller wrote it, for the message.
void createFolderOf(const std::string& path, const std::string& given) {
    const fs::path folder = fs::path(path).parent_path();
    if (folder.empty()) return;
    std::error_code error;
    fs::create_directories(folder, error);
    if (error) logText("error with createDirectoryAtPath for [%s]:\nERROR = %s", given, error.message());
}

// Keeps the newest whole lines, at most 10 MiB.
void keepNewestLines(Data& lines) {
    if (lines.size() <= kMostOldBytes) return;
    const auto from = lines.begin() + static_cast<std::ptrdiff_t>(lines.size() - kMostOldBytes - 1);
    const auto lineEnd = std::find(from, lines.end(), std::uint8_t{'\n'});
    lines.erase(lines.begin(), lineEnd == lines.end() ? lineEnd : lineEnd + 1);
}

bool writeSharedFile(const std::string& path, const Data& contents) {
    std::FILE* const file = std::fopen(path.c_str(), "we");
    if (file == nullptr) return false;
    const bool isWritten = std::fwrite(contents.data(), 1, contents.size(), file) == contents.size();
    shareIfRegular(::fileno(file));
    return std::fclose(file) == 0 && isWritten;
}

} // namespace

bool HOLVEN_Log::setLogFile(const std::optional<std::string>& path) {
    State& log = state();
    int error = 0;
    {
        const std::scoped_lock lock(log.mutex);
        log.logFilePath = path ? std::optional(pathWithHome(*path)) : std::nullopt;
        if (path) {
            createFolderOf(*log.logFilePath, *path);
            rollLogFileIfNecessary(*log.logFilePath);
        }
        // An open file remains the log file, although another path was stored.
        if (log.file != nullptr || !path) return false;
        log.file = std::fopen(log.logFilePath->c_str(), "ae");
        if (log.file == nullptr) {
            error = errno;
        } else {
            shareIfRegular(::fileno(log.file));
            std::setvbuf(log.file, nullptr, _IONBF, 0); // unbuffered: every line is in the file at once
            if (log.pending) writeToFile(log, *log.pending);
            log.pending.reset();
            log.pendingCharacters = 0;
            if (!log.logsToStandardError) log.outside.reopenStandardError(*log.logFilePath);
            return true;
        }
    }
    debug(formatted("Failed to open log file at %s; error %d \"%s\"", *path, error,
                    std::generic_category().message(error)));
    return false;
}

void HOLVEN_Log::writeToFile(State& log, const std::string& lines) {
    if (std::fwrite(lines.data(), 1, lines.size(), log.file) == lines.size() || log.hasLostLines) return;
    const int error = errno;
    log.hasLostLines = true; // set first: the report below may itself be logged
    standardErrorLog(formatted("ERROR: cannot write the log %s (%s); lines are lost\n", log.logFilePath.value_or(""),
                               std::generic_category().message(error)));
}

void HOLVEN_Log::rollLogFileIfNecessary(const std::string& path) {
    rollLogFile(path, std::nullopt, kUsualRollSize);
}

void HOLVEN_Log::rollLogFile(const std::string& path, const std::optional<std::string>& oldPath, std::uint64_t size) {
    std::error_code error;
    const std::uintmax_t currentSize = fs::file_size(path, error);
    if (error || size > currentSize) return; // a file of unknown size is not rolled
    logText("Rolling log file.");
    const fs::path current(path);
    const std::string named = current.extension().string();
    const std::string extension = named.size() > 1 ? named.substr(1) : "log";
    const std::string withoutExtension = (current.parent_path() / current.stem()).string();
    const std::string old = oldPath.value_or(withoutExtension + formatted("_old.%s", extension));
    const auto lines = contentsOfFile(current);
    if (!lines) return; // a file that cannot be read is not truncated
    Data kept = contentsOfFile(old).value_or(Data{});
    kept.insert(kept.end(), lines->begin(), lines->end());
    // The old file gets the lines of several rolls, so it needs a limit of its own.
    keepNewestLines(kept);
    if (writeSharedFile(old, kept)) {
        logText("Rolled previous log file into %s", old);
    } else {
        logText("Error writing old log file to %s", old);
    }
    if (const ScopedFd emptied(::open(path.c_str(), O_WRONLY | O_TRUNC | O_CLOEXEC)); emptied) {
        logText("Starting new log file at %s", path);
    }
}

} // namespace zul
