// What zulctl writes to its standard streams goes through here: a reader that does not read keeps no update waiting,
// and one place knows whether the text has arrived. Any thread.
#pragma once

#include <condition_variable>
#include <mutex>
#include <streambuf>
#include <string>

namespace zul::cli {

/// A stream buffer in place of that of std::cout or std::cerr, with a thread of its own that writes. A flush waits
/// until the text is written, so that both streams keep their order on a terminal, but no longer than a second: a
/// terminal may be stopped (Ctrl-S), and a reader may read later. Once a write has failed nothing more is written: a
/// reader that has gone wants no more, and a text with a hole in it is worse than one that ends.
class StandardStream final : public std::streambuf {
  public:
    /// Those of the process. The first call gives them to std::cout and std::cerr, for good.
    static StandardStream& output();
    static StandardStream& error();

    /// A write has failed: nothing arrives any more.
    bool isLost() const;
    enum class Reader { waitedFor, givenUp };
    /// Writes what is left, and returns the number of the error for which something could not be written; 0 when all
    /// has arrived or the reader has gone. A reader that does not read is waited for, or given up after a second.
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
    std::string _handedOver; // for the thread that writes
    bool _isWriting = false; // the thread has taken text and is not through with it
    bool _isSlow = false;    // a flush has waited in vain: the next ones do not wait until all is written
    int _error = 0;          // of the first write that failed
};

} // namespace zul::cli
