// The files of the sample archive: valid in form, not usable by any real printer. Deterministic; any thread.
#pragma once

#include "platform/foundation/Data.h"

#include <string>
#include <vector>

namespace zul {

struct SampleFile {
    std::string name;
    Data contents;
};

/// All files of all models.
std::vector<SampleFile> sampleFiles();

/// The digest of the contents as written to the archive's digest file.
std::string sampleDigest(const Data& contents);

} // namespace zul
