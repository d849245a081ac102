// What a fuzzing engine or a corpus file gives, taken from front to back; and how a target says that something is
// wrong.
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
    /// 0 at the end.
    std::uint8_t takeByte() {
        if (_rest.empty()) return 0;
        const std::uint8_t byte = _rest.front();
        _rest = _rest.subspan(1);
        return byte;
    }
    /// A byte that says how many follow, and those; fewer at the end.
    Data takeBlock() {
        const std::size_t wanted = takeByte(); // first: the order of an expression's parts is the compiler's
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

/// Ends the process, which is how a fuzzing engine learns of a finding.
inline void require(bool isTrue, const char* what) {
    if (isTrue) return;
    std::fprintf(stderr, "not true: %s\n", what);
    std::abort();
}

} // namespace zul::test

/// The one function of every target.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* bytes, std::size_t size);
