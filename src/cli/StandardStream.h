// All text for the standard streams of zulctl goes through here: a reader that does not read must not delay an update,
// and one place must know whether the text was written. Any thread.
#pragma once

#include <condition_variable>
#include <cstddef>
#include <ios>
#include <mutex>
#include <ostream>
#include <streambuf>
#include <string>

namespace zul::cli {

/// A stream buffer that replaces that of std::cout or std::cerr and writes on a thread of its own. A flush waits until
/// the text is written, so that both streams keep their order on a terminal, but at most one second: a terminal may be
/// stopped (Ctrl-S), and a reader may be slow. After a failed write no more text is written, because output with a gap
/// is worse than output that ends.
class StandardStream final : public std::streambuf {
  public:
    /// The buffers of this process. The first call installs them in std::cout and std::cerr for good.
    static StandardStream& output();
    static StandardStream& error();

    /// True after a write has failed: no more text is written.
    bool isLost() const;
    enum class Reader { waitedFor, givenUp };
    /// Writes the remaining text. Returns the errno of a failed write; 0 when everything was written or the reader has
    /// closed the stream. waitedFor waits without limit for a slow reader; givenUp waits one second.
    int finish(Reader reader);

  protected:
    int_type overflow(int_type character) override;
    std::streamsize xsputn(const char* text, std::streamsize size) override;
    int sync() override;

  private:
    StandardStream(int descriptor, std::ostream& stream);
    bool isReaderGone() const;
    void append(const char* text, std::size_t size);
    void handOver(std::unique_lock<std::mutex>& lock);
    void writeForEver();

    const int _descriptor;
    const bool _isTerminal;
    mutable std::mutex _mutex;
    std::condition_variable _changed;
    std::string _gathered;   // not flushed yet
    std::string _handedOver; // being written by the thread
    bool _isWriting = false; // the thread has taken text and has not finished writing it
    bool _isSlow = false;    // a flush timed out: the next flushes do not wait until everything is written
    int _error = 0;          // errno of the first failed write
};

} // namespace zul::cli
