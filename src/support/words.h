// A text looked at one machine word at a time.
#pragma once

#include <cstddef>
#include <cstdint>

namespace rk {

using Word = uintptr_t;

constexpr Word in_every_byte(Word value) {
    return ~Word{0} / 255 * value;
}

inline bool is_word_aligned(const char *bytes) {
    return reinterpret_cast<uintptr_t>(bytes) % sizeof(Word) == 0;
}

// Such a word lies in one page with each of its bytes. What is behind a text's end may be read
// along with it, which the address sanitizer would take for a fault.
[[gnu::no_sanitize_address]] inline Word load_aligned_word(const char *bytes) {
    Word word;
    __builtin_memcpy(&word, __builtin_assume_aligned(bytes, sizeof word), sizeof word);
    return word;
}

} // namespace rk
