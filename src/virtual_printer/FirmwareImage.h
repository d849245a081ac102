// What a printer's loader makes of a firmware image: it checks every record by itself and takes the new version from
// the header record. Written apart from the program's own check, so that each can show the other wrong. Any thread.
#pragma once

#include "platform/foundation/Data.h"

#include <optional>
#include <string>

namespace zul {

/// The version in the S0 record of an image whose records are all sound, as many as it says (where it says so), and
/// whose last one ends it; zero bytes after the text are padding. nullopt for a damaged image.
std::optional<std::string> versionOfFirmwareImage(const Data& image);

} // namespace zul
