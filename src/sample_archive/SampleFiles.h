// The files of the sample archive: sound in form, fit for no real printer. Deterministic; any thread.
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

/// The digest of the contents as the archive's digest file has it.
std::string sampleDigest(const Data& contents);

} // namespace zul
