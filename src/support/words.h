// A text looked at one machine word at a time.
#pragma once

#include <bit>
#include <cstddef>
#include <cstdint>
#include <cstring>

namespace rk {

using Word = uintptr_t;

constexpr Word in_every_byte(Word value) {
    return ~Word{0} / 255 * value;
}

// At any address.
inline Word load_word(const void *bytes) {
    Word word;
    std::memcpy(&word, bytes, sizeof word);
    return word;
}

// Marks the zero bytes of a word with their top bit. Bytes above the first zero one may be marked
// by mistake (in the order of the bits, not of the memory); none is missed.
constexpr Word mark_zeros(Word word) {
    return (word - in_every_byte(1)) & ~word & in_every_byte(0x80);
}

constexpr Word mark_byte(Word word, char byte) {
    return mark_zeros(word ^ in_every_byte(static_cast<unsigned char>(byte)));
}

// The place of the first marked byte in memory, of a word as load_word gave it. Where the first
// byte in memory is the highest, marks may be mistaken, and the caller has to look.
constexpr bool kMarksAreExact = std::endian::native == std::endian::little;

inline size_t first_marked(Word marks) {
    return static_cast<size_t>(std::countr_zero(marks)) / 8;
}

} // namespace rk
