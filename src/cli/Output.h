// Output of zulctl: results on standard output, problems on standard error, as text or as JSON. Called before the main
// queue runs, and on it.
#pragma once

#include <cstddef>
#include <nlohmann/json_fwd.hpp>
#include <string>
#include <vector>

namespace zul::cli {

class Output {
  public:
    /// json: the option --json of the run.
    explicit Output(bool json) : _json(json) {}
    /// Commands that print both forms ask this.
    bool isJson() const { return _json; }

    /// One line of text on standard output.
    void line(const std::string& text) const;
    void document(const nlohmann::json& value) const; // indented; for a single document
    void object(const nlohmann::json& value) const;   // on one line
    /// Reports a problem and what to do about it. With --json an object on standard output with the exit status and,
    /// unless code is empty, the name of the return code.
    void problem(const std::string& text, int exitStatus, const std::string& code = {}) const;
    /// A hint that does not change the result, on standard error. With --json it is an object there, so that standard
    /// output keeps a single document.
    void note(const std::string& text) const;
    /// Rows of cells in aligned columns.
    void table(const std::vector<std::vector<std::string>>& rows) const;

    /// True when standard output accepts no more text: its reader has closed it, or a write has failed.
    bool isLost() const;
    /// Flushes the output and returns the exit status of the run: exitStatus, or 1 instead of 0 if results could not be
    /// written; the reason is then written to standard error. A reader that closed the pipe is not a failure.
    int finish(int exitStatus) const;

  private:
    const bool _json;
};

/// Text cut to at most this many columns, never inside a character.
std::string shortened(std::string text, std::size_t columns);

} // namespace zul::cli
