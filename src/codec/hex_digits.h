// Hex digits, for byte strings and MAC addresses.
#pragma once

#include <array>
#include <cstdint>

namespace rk {

inline constexpr char kHexDigits[] = "0123456789ABCDEF";

inline constexpr uint8_t kNoDigit = 0xff;

// What each character is worth as a hex digit. The 256 bytes spare every character read its range
// checks, which is about half of the time of a parse.
inline constexpr std::array<uint8_t, 256> kHexValues = [] {
    std::array<uint8_t, 256> values = {};
    values.fill(kNoDigit);
    for (uint8_t digit = 0; digit < 16; ++digit) {
        auto upper = static_cast<uint8_t>(kHexDigits[digit]);
        values[upper] = digit;
        values[upper | 0x20] = digit; // the lower-case letter; a decimal digit is itself
    }
    return values;
}();

inline uint8_t hex_value(char character) {
    return kHexValues[static_cast<uint8_t>(character)];
}

// Writes the two digits of a byte; returns the place behind them.
inline char *put_hex(char *out, uint8_t byte) {
    out[0] = kHexDigits[byte >> 4];
    out[1] = kHexDigits[byte & 15];
    return out + 2;
}

inline constexpr unsigned kNoPair = 256;

// The byte that two digits spell, or kNoPair. The second character is not looked at when the first
// is no digit: it may lie behind the end of the text.
inline unsigned read_hex_pair(const char *text) {
    unsigned high = hex_value(text[0]);
    if (high == kNoDigit) {
        return kNoPair;
    }
    unsigned low = hex_value(text[1]);
    return low == kNoDigit ? kNoPair : high << 4 | low;
}

} // namespace rk
