// What a printer's status code means, in the words that the operator reads. Any thread.
#pragma once

#include <optional>
#include <string>

namespace zul {

/// The status of a printer that runs its firmware loader.
inline constexpr const char* kLoaderStatus = "FU00001";
/// The status of a printer that is ready.
inline constexpr const char* kReadyStatus = "00000";

/// The loader mark counts only when it is the whole text; everything else is read as a number by its leading digits.
std::string textForStatus(const std::optional<std::string>& rawStatus);

} // namespace zul
