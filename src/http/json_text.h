// What both JSON readers step over.
#pragma once

#include "support/words.h"

namespace rk {

inline bool is_plain(char character) {
    return character != '"' && character != '\\' && character != '\0';
}

// The first quote, backslash or NUL from `pos` on, or `end`; `pos` itself when that lies beyond.
// Word by word, as most strings end within one or two, and the last few characters one by one.
inline const char *skip_plain(const char *pos, const char *end) {
    while (end - pos >= static_cast<ptrdiff_t>(sizeof(Word))) {
        Word word = load_word(pos);
        Word marks = mark_byte(word, '"') | mark_byte(word, '\\') | mark_zeros(word);
        if (marks != 0) {
            if (kMarksAreExact) {
                return pos + first_marked(marks);
            }
            break;
        }
        pos += sizeof word;
    }
    while (pos < end && is_plain(*pos)) {
        ++pos;
    }
    return pos;
}

} // namespace rk
