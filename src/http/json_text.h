// What both JSON readers step over.
#pragma once

#include <array>

#include "support/words.h"

namespace rk {

// As a number without sign, which costs no conversion.
inline unsigned at(const char *pos) {
    return *reinterpret_cast<const unsigned char *>(pos);
}

inline bool is_space(const char *pos) {
    return at(pos) <= ' ' &&
           (at(pos) == ' ' || at(pos) == '\n' || at(pos) == '\r' || at(pos) == '\t');
}

// Neither a quote nor a backslash nor the NUL.
inline constexpr std::array<bool, 256> kPlain = [] {
    std::array<bool, 256> plain = {};
    plain.fill(true);
    plain['"'] = plain['\\'] = plain['\0'] = false;
    return plain;
}();

inline bool is_plain(const char *pos) {
    return kPlain[at(pos)];
}

// Whether there may be a quote, backslash or control character in a word, the NUL among them. With
// bit 1 turned, the quote comes next to the control characters, and the space behind it.
constexpr bool is_special(Word word) {
    Word low = (word ^ in_every_byte(2)) - in_every_byte('"' - 1);
    Word backslash = (word ^ in_every_byte('\\')) - in_every_byte(1);
    return ((low | backslash) & ~word & in_every_byte(0x80)) != 0;
}

// Leaps over the words of a long text, which are read at their own alignment only: none reaches
// into the page behind a NUL.
[[gnu::noinline]] inline const char *skip_long_plain(const char *pos, const char *end) {
    for (; pos < end; ++pos) {
        if (is_word_aligned(pos)) {
            size_t words = static_cast<size_t>(end - pos) / sizeof(Word);
            for (; words != 0 && !is_special(load_aligned_word(pos)); --words) {
                pos += sizeof(Word);
            }
        }
        if (pos == end || !is_plain(pos)) {
            break;
        }
    }
    return pos;
}

// The first quote, backslash or NUL from `pos` on, or `end`; `pos` itself when that lies beyond.
// Most texts are short, where a character at a time is faster.
inline const char *skip_plain(const char *pos, const char *end) {
    constexpr int kShort = 24;
    if (end - pos >= kShort) {
#pragma GCC unroll 4
        for (int i = 0; i < kShort; ++i, ++pos) {
            if (!is_plain(pos)) {
                return pos;
            }
        }
    }
    return skip_long_plain(pos, end);
}

} // namespace rk
