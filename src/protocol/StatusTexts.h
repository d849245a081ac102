// The operator's texts of a printer's status codes. Any thread.
#pragma once

#include <optional>
#include <string>

namespace zul {

/// The status of a printer that runs its firmware loader.
inline constexpr const char* kLoaderStatus = "FU00001";
/// The status of a printer that is ready.
inline constexpr const char* kReadyStatus = "00000";

/// The operator's text of a status, in English. The loader's mark must be the whole text; everything else is read as a
/// number by its leading digits. nullopt, and a code without a text, give the texts for those.
std::string textForStatus(const std::optional<std::string>& rawStatus);

} // namespace zul
