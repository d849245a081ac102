// A text that may be missing.
#pragma once

#include <optional>
#include <string>

namespace zul {

/// nullopt while the text is not known, or where there is none.
using OptionalText = std::optional<std::string>;

} // namespace zul
