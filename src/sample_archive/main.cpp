// Writes the sample archive to a folder: make_sample_archive DIR. Run by the build. The digest file is marked as a
// sample, so that the programs do not offer its files to a real printer.
#include "platform/files/Files.h"
#include "sample_archive/SampleFiles.h"

#include <cstdio>
#include <filesystem>
#include <nlohmann/json.hpp>
#include <string_view>

namespace {

bool write(const std::filesystem::path& file, std::string_view contents) {
    const auto error = zul::replaceFile(file, contents, zul::FileAccess::everyone);
    if (error)
        std::fprintf(stderr, "make_sample_archive: cannot write %s: %s\n", file.c_str(), error.message().c_str());
    return !error;
}

} // namespace

int main(int argc, char** argv) {
    if (argc != 2) {
        std::fprintf(stderr, "usage: make_sample_archive DIR\n");
        return 2;
    }
    const std::filesystem::path folder = argv[1];
    std::error_code error;
    std::filesystem::create_directories(folder, error);
    nlohmann::json digests = {{"sample", true}};
    for (const zul::SampleFile& file : zul::sampleFiles()) {
        const std::string_view contents(reinterpret_cast<const char*>(file.contents.data()), file.contents.size());
        if (!write(folder / file.name, contents)) return 1;
        digests[file.name] = zul::sampleDigest(file.contents);
    }
    return write(folder / "digests.json", digests.dump(2) + '\n') ? 0 : 1;
}
