// What the fuzz targets share. A target is one source that defines fuzz::run; a fault is a crash.
#pragma once

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <string_view>

#include "support/fenced.h"

namespace fuzz {

void run(std::string_view input);

// The library's answer is the one that it must be.
inline void require(bool holds, int line = __builtin_LINE()) {
    if (!holds) {
        std::fprintf(stderr, "the requirement of line %d does not hold\n", line);
        std::abort();
    }
}

// A choice of the fuzzer's, off the front of the input: 0 at its end.
inline unsigned take(std::string_view &input) {
    unsigned choice = input.empty() ? 0 : static_cast<uint8_t>(input.front());
    input.remove_prefix(input.empty() ? 0 : 1);
    return choice;
}

// As a C text: up to the first NUL.
inline std::string text_of(std::string_view input) {
    return std::string(input).c_str();
}

} // namespace fuzz
