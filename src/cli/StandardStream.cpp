// Text is collected until a flush, then passed to the thread that writes it. The thread runs until the process ends,
// because it may be blocked in a write for ever.
#include "cli/StandardStream.h"

#include <cerrno>
#include <chrono>
#include <cstddef>
#include <iostream>
#include <mutex>
#include <poll.h>
#include <string_view>
#include <thread>
#include <unistd.h>
#include <utility>

namespace zul::cli {

namespace {

constexpr std::size_t kMostGathered = 64 * 1024;     // bytes
constexpr std::size_t kMostHandedOver = 1024 * 1024; // bytes; more than the updates of a whole fleet write
// How long a flush waits for the reader. After one wait that was too short, flushes do not wait until the reader has
// caught up.
constexpr std::chrono::seconds kPatience{1};

// Returns errno, 0 for success.
int writeAll(int descriptor, std::string_view text) {
    while (!text.empty()) {
        const ssize_t count = ::write(descriptor, text.data(), text.size());
        if (count >= 0) {
            text.remove_prefix(static_cast<std::size_t>(count));
        } else if (errno == EAGAIN) { // another process has set O_NONBLOCK on the terminal or pipe
            pollfd output{descriptor, POLLOUT, 0};
            (void)::poll(&output, 1, /*timeout=*/-1);
        } else if (errno != EINTR) {
            return errno;
        }
    }
    return 0;
}

} // namespace

// Never destroyed: the standard streams are flushed once more at process exit.
StandardStream& StandardStream::output() {
    static auto* const stream = new StandardStream(STDOUT_FILENO, std::cout);
    return *stream;
}

StandardStream& StandardStream::error() {
    static auto* const stream = new StandardStream(STDERR_FILENO, std::cerr);
    return *stream;
}

StandardStream::StandardStream(int descriptor, std::ostream& stream)
    : _descriptor(descriptor), _isTerminal(::isatty(descriptor) == 1) {
    stream.rdbuf(this);
    // Started here and not at the first line, so that the number of threads never changes in a program that runs for
    // weeks.
    std::thread([this] { writeForEver(); }).detach();
}

bool StandardStream::isLost() const {
    const std::scoped_lock lock(_mutex);
    return _error != 0;
}

// The reader has closed its end of the stream, so a failure cannot be reported there.
bool StandardStream::isReaderGone() const {
    return _error == EPIPE || _error == ECONNRESET || (_isTerminal && _error == EIO);
}

int StandardStream::finish(Reader reader) {
    std::unique_lock lock(_mutex);
    handOver(lock);
    const auto isWritten = [this] { return _handedOver.empty() && !_isWriting; };
    if (reader == Reader::givenUp) {
        if (!_changed.wait_for(lock, kPatience, isWritten)) return 0;
    } else {
        _changed.wait(lock, isWritten);
    }
    // Some file systems report a full disk only at close(); closing a copy of the descriptor makes them report it.
    if (const int copy = _error == 0 ? ::dup(_descriptor) : -1; copy >= 0 && ::close(copy) != 0) _error = errno;
    return isReaderGone() ? 0 : _error;
}

StandardStream::int_type StandardStream::overflow(int_type character) {
    if (traits_type::eq_int_type(character, traits_type::eof())) return traits_type::not_eof(character);
    const char byte = traits_type::to_char_type(character);
    append(&byte, 1);
    return character;
}

std::streamsize StandardStream::xsputn(const char* text, std::streamsize size) {
    append(text, static_cast<std::size_t>(size));
    return size;
}

int StandardStream::sync() {
    std::unique_lock lock(_mutex);
    handOver(lock);
    return 0; // the stream remains usable: finish() reports the error
}

void StandardStream::append(const char* text, std::size_t size) {
    std::unique_lock lock(_mutex);
    if (_error != 0) return;
    _gathered.append(text, size);
    if (_gathered.size() >= kMostGathered) handOver(lock);
}

void StandardStream::handOver(std::unique_lock<std::mutex>& lock) {
    if (_gathered.empty() || _error != 0) return;
    _changed.wait(lock, [this] { return _handedOver.size() < kMostHandedOver; });
    _handedOver += _gathered;
    _gathered.clear();
    _changed.notify_all();
    if (_isSlow) return;
    _isSlow = !_changed.wait_for(lock, kPatience, [this] { return _handedOver.empty() && !_isWriting; });
}

void StandardStream::writeForEver() {
    std::unique_lock lock(_mutex);
    for (;;) {
        _changed.wait(lock, [this] { return !_handedOver.empty(); });
        const std::string text = std::move(_handedOver);
        _handedOver.clear();
        _isWriting = true;
        lock.unlock();
        const int error = writeAll(_descriptor, text);
        lock.lock();
        if (_error == 0) _error = error;
        if (_error != 0) _handedOver.clear();
        _isWriting = false;
        if (_handedOver.empty()) _isSlow = false;
        _changed.notify_all();
    }
}

} // namespace zul::cli
