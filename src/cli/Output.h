// Where zulctl writes: results on standard output, problems on standard error, both as text or as JSON. Main queue, and
// before it.
#pragma once

#include "platform/foundation/PrintableText.h"

#include <nlohmann/json_fwd.hpp>
#include <string>
#include <vector>

namespace zul::cli {

class Output {
  public:
    explicit Output(bool json) : _json(json) {}
    bool isJson() const { return _json; }

    void line(const std::string& text) const;
    void document(const nlohmann::json& value) const; // indented, for one document
    void object(const nlohmann::json& value) const;   // one line
    /// A problem with what to do about it. With --json an object on standard output with the exit status and, if there
    /// is one, the name of the return code.
    void problem(const std::string& text, int exitStatus, const std::string& code = {}) const;
    /// A hint that changes no result, on standard error (with --json as an object, so that the document stays the only
    /// one on standard output).
    void note(const std::string& text) const;
    void table(const std::vector<std::vector<std::string>>& rows) const;

    /// Nothing that is still written to standard output arrives: its reader has gone, or a write has failed.
    bool isLost() const;
    /// Flushes the output and returns the exit status of the run: exitStatus, or 1 instead of 0 if results could not be
    /// written; the reason is then written to standard error. A reader that has gone is no failure.
    int finish(int exitStatus) const;

  private:
    const bool _json;
};

/// The text cut to so many columns at most, never inside a character.
std::string shortened(std::string text, std::size_t columns);

} // namespace zul::cli
