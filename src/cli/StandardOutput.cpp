// The text is gathered and written at each flush, and in between when it gets long.
#include "cli/StandardOutput.h"

#include <cerrno>
#include <iostream>
#include <poll.h>
#include <string_view>
#include <unistd.h>

namespace zul::cli {

namespace {

constexpr std::size_t kMostPending = 64 * 1024; // bytes

// The number of the error, 0 for success.
int writeAll(std::string_view text) {
    while (!text.empty()) {
        const ssize_t count = ::write(STDOUT_FILENO, text.data(), text.size());
        if (count >= 0) {
            text.remove_prefix(static_cast<std::size_t>(count));
        } else if (errno == EAGAIN) { // another program has made the terminal or the pipe one that does not wait
            pollfd output{STDOUT_FILENO, POLLOUT, 0};
            (void)::poll(&output, 1, /*timeout=*/-1);
        } else if (errno != EINTR) {
            return errno;
        }
    }
    return 0;
}

} // namespace

StandardOutput& StandardOutput::shared() {
    // Never destroyed: std::cout is flushed once more at the end of the process.
    static StandardOutput* const output = [] {
        auto* const made = new StandardOutput;
        std::cout.rdbuf(made);
        return made;
    }();
    return *output;
}

StandardOutput::StandardOutput() : _isTerminal(::isatty(STDOUT_FILENO) == 1) {}

bool StandardOutput::isLost() const {
    const std::scoped_lock lock(_mutex);
    return _error != 0;
}

// The other end of the pipe, the connection or the terminal was closed: there is no reader to report a failure to.
bool StandardOutput::isReaderGone() const {
    return _error == EPIPE || _error == ECONNRESET || (_isTerminal && _error == EIO);
}

int StandardOutput::finish() {
    const std::scoped_lock lock(_mutex);
    writePending();
    // Some file systems tell only when a file is closed that it is full; closing a copy asks them.
    if (const int copy = _error == 0 ? ::dup(STDOUT_FILENO) : -1; copy >= 0 && ::close(copy) != 0) _error = errno;
    return isReaderGone() ? 0 : _error;
}

StandardOutput::int_type StandardOutput::overflow(int_type character) {
    if (traits_type::eq_int_type(character, traits_type::eof())) return traits_type::not_eof(character);
    const char byte = traits_type::to_char_type(character);
    append(&byte, 1);
    return character;
}

std::streamsize StandardOutput::xsputn(const char* text, std::streamsize size) {
    append(text, static_cast<std::size_t>(size));
    return size;
}

int StandardOutput::sync() {
    const std::scoped_lock lock(_mutex);
    writePending();
    return 0; // std::cout stays usable: the failure is kept here, and told at the end
}

void StandardOutput::append(const char* text, std::size_t size) {
    const std::scoped_lock lock(_mutex);
    if (_error != 0) return;
    _pending.append(text, size);
    if (_pending.size() >= kMostPending) writePending();
}

void StandardOutput::writePending() {
    if (_error == 0) _error = writeAll(_pending);
    _pending.clear();
}

} // namespace zul::cli
