// Hex digits.
#pragma once

#include <array>
#include <cstdint>

#include "support/build.h"

namespace rk {

inline constexpr char kHexDigits[] = "0123456789ABCDEF";

// What each character is worth as a hex digit, or -1. The 256 bytes spare a parse the range checks
// of every character, about half of its time.
inline constexpr std::array<int8_t, 256> kHexValues = [] {
    std::array<int8_t, 256> values = {};
    values.fill(-1);
    for (int8_t digit = 0; digit < 16; ++digit) {
        auto character = static_cast<uint8_t>(kHexDigits[digit]);
        values[character] = digit;
        values[character | 0x20] = digit; // in lower case; decimal digits have that bit already
    }
    return values;
}();

inline int hex_value(char character) {
    auto code = static_cast<uint8_t>(character);
    if constexpr (!kForSize) {
        return kHexValues[code];
    }
    int digit = code - '0';
    int letter = (code | 0x20) - 'a';
    if (digit >= 0 && digit <= 9) {
        return digit;
    }
    return letter >= 0 && letter <= 5 ? letter + 10 : -1;
}

inline constexpr int kTextEnds = -256;

// The byte that two digits spell. kTextEnds where the text ends: what lies behind is not looked at.
// Another negative number when one of the two characters is no digit.
inline int read_hex_pair(const char *text) {
    if (text[0] == '\0') {
        return kTextEnds;
    }
    return hex_value(text[0]) * 16 | hex_value(text[1]);
}

// Writes the two digits of a byte.
inline void put_hex_pair(char *out, unsigned byte) {
    out[0] = kHexDigits[byte >> 4];
    out[1] = kHexDigits[byte & 15];
}

} // namespace rk
