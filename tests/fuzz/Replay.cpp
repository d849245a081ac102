// Runs a target once over every file of its corpus, for builds without a fuzzing engine.
//
//   TARGET FOLDER
#include "fuzz/FuzzInput.h"

#include "support/TemporaryFolder.h"

#include <filesystem>
#include <iostream>
#include <set>

int main(int argc, char** argv) {
    if (argc != 2) {
        std::cerr << "usage: " << argv[0] << " FOLDER\n";
        return 2;
    }
    std::error_code error;
    std::set<std::filesystem::path> files; // sorted by name
    for (const auto& entry : std::filesystem::directory_iterator(argv[1], error)) files.insert(entry.path());
    if (files.empty()) {
        std::cerr << "no corpus in " << argv[1] << '\n';
        return 1;
    }
    for (const auto& file : files) {
        const std::string bytes = zul::TemporaryFolder::read(file);
        LLVMFuzzerTestOneInput(reinterpret_cast<const std::uint8_t*>(bytes.data()), bytes.size());
        std::cout << "ok - " << file.filename().string() << '\n';
    }
    return 0;
}
