// What zulctl writes to standard output goes through here, so that one place knows whether it has arrived. Any thread.
#pragma once

#include <mutex>
#include <streambuf>
#include <string>

namespace zul::cli {

/// A stream buffer in place of that of std::cout. Once a write has failed nothing more is written: a reader that has
/// gone wants no more, and a text with a hole in it is worse than one that ends.
class StandardOutput final : public std::streambuf {
  public:
    /// The one of the process. The first call gives it to std::cout, for good.
    static StandardOutput& shared();

    /// A write has failed: nothing arrives any more.
    bool isLost() const;
    /// Writes what is left, and answers the number of the error for which something could not be written; 0 when all
    /// has arrived or the reader has gone.
    int finish();

  protected:
    int_type overflow(int_type character) override;
    std::streamsize xsputn(const char* text, std::streamsize size) override;
    int sync() override;

  private:
    StandardOutput();
    bool isReaderGone() const;
    void append(const char* text, std::size_t size);
    void writePending();

    mutable std::mutex _mutex;
    std::string _pending;
    int _error = 0; // of the first write that failed
    const bool _isTerminal;
};

} // namespace zul::cli
