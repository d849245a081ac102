// Reads the input of a fuzzing engine or corpus file from front to back, and lets a target report a finding.
#pragma once

#include "platform/foundation/Data.h"

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <span>
#include <string>

namespace zul::test {

class FuzzInput {
  public:
    FuzzInput(const std::uint8_t* bytes, std::size_t size) : _rest(bytes, size) {}

    bool isEmpty() const { return _rest.empty(); }
    /// The next byte; 0 at the end.
    std::uint8_t takeByte() {
        if (_rest.empty()) return 0;
        const std::uint8_t byte = _rest.front();
        _rest = _rest.subspan(1);
        return byte;
    }
    /// A block: one byte with its length, and that many bytes; fewer at the end.
    Data takeBlock() {
        const std::size_t wanted = takeByte(); // read first: the evaluation order within an expression is unspecified
        const std::size_t size = std::min(wanted, _rest.size());
        const Data block(_rest.begin(), _rest.begin() + static_cast<std::ptrdiff_t>(size));
        _rest = _rest.subspan(size);
        return block;
    }
    std::string takeText() {
        const Data block = takeBlock();
        return {block.begin(), block.end()};
    }
    Data takeRest() {
        const Data rest(_rest.begin(), _rest.end());
        _rest = {};
        return rest;
    }

  private:
    std::span<const std::uint8_t> _rest;
};

/// Ends the process if isTrue is false; the fuzzing engine reports that as a finding.
inline void require(bool isTrue, const char* what) {
    if (isTrue) return;
    std::fprintf(stderr, "not true: %s\n", what);
    std::abort();
}

} // namespace zul::test

/// The entry point of every target.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* bytes, std::size_t size);
