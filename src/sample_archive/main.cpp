// Writes the sample archive into a folder: make_sample_archive DIR
#include "sample_archive/SampleFiles.h"

#include <cstdio>
#include <filesystem>
#include <fstream>
#include <nlohmann/json.hpp>

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
        std::ofstream stream(folder / file.name, std::ios::binary | std::ios::trunc);
        stream.write(reinterpret_cast<const char*>(file.contents.data()),
                     static_cast<std::streamsize>(file.contents.size()));
        stream.flush();
        if (!stream) {
            std::fprintf(stderr, "make_sample_archive: cannot write %s\n", (folder / file.name).c_str());
            return 1;
        }
        digests[file.name] = zul::sampleDigest(file.contents);
    }
    std::ofstream stream(folder / "digests.json", std::ios::trunc);
    stream << digests.dump(2) << '\n';
    stream.flush();
    return stream ? 0 : 1;
}
