// Where zulctl writes: results on standard output, problems on standard error, both as text or as JSON. Main queue, and
// before it.
#pragma once

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
    /// A problem with what to do about it. With --json an object on standard output with the exit status.
    void problem(const std::string& text, int exitStatus) const;
    /// A hint that changes no result, on standard error; with --json an object.
    void note(const std::string& text) const;
    void table(const std::vector<std::vector<std::string>>& rows) const;

  private:
    const bool _json;
};

} // namespace zul::cli
