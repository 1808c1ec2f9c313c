#include <routerkit/base64.h>

#include <algorithm>
#include <array>
#include <cstdint>
#include <cstring>

#include "support/bytes.h"

namespace {

constexpr char kAlphabet[] = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";

// The value of the two characters that may end a text: negative, and zero bits in a group.
constexpr int8_t kMayEnd = -64;

constexpr std::array<int8_t, 256> kValues = [] {
    std::array<int8_t, 256> values = {};
    for (int8_t value = 0; value < 64; ++value) {
        values[static_cast<uint8_t>(kAlphabet[value])] = value;
    }
    values['='] = kMayEnd;
    values['\0'] = kMayEnd;
    return values;
}();

int value_of(char character) {
    return kValues[static_cast<uint8_t>(character)];
}

void put_group(char *out, uint32_t bits) {
    out[0] = kAlphabet[bits >> 18 & 63];
    out[1] = kAlphabet[bits >> 12 & 63];
    out[2] = kAlphabet[bits >> 6 & 63];
    out[3] = kAlphabet[bits & 63];
}

// Sixteen values as their characters: the step from each range of values to the next.
template <typename Values>
Values characters_of(Values values) {
    Values steps = ((values > 62) & 3) - ((values > 61) & 15) - ((values > 51) & 75);
    return values + (steps + ((values > 25) & 6) + 'A');
}

// For processors with vector registers, into which the compiler puts all of this: it halves the
// groups to twelve bits and those to six, all at once.
void put_four_groups_as_vector(char *out, const uint8_t *byte) {
    using Words = uint32_t __attribute__((vector_size(16)));
    using Halves = uint16_t __attribute__((vector_size(16)));
    using Bytes = int8_t __attribute__((vector_size(16)));
    auto two_groups = [](const uint8_t *at) {
        return rk::load_be32(at) | uint64_t{rk::load_be32(at + 3)} << 32;
    };
    using Pairs = uint64_t __attribute__((vector_size(16)));
    auto words = reinterpret_cast<Words>(Pairs{two_groups(byte), two_groups(byte + 6)});
    auto halves = reinterpret_cast<Halves>(words >> 20 | (words << 8 & 0x0fff0000));
    auto values = reinterpret_cast<Bytes>(halves >> 6 | (halves << 8 & 0x3f00));
    Bytes characters = characters_of(values);
    std::memcpy(out, &characters, sizeof characters);
}

// Twelve bytes, as three words, and sixteen characters.
void put_four_groups_as_words(char *out, const uint8_t *byte) {
    uint32_t first = rk::load_be32(byte);
    uint32_t second = rk::load_be32(byte + 4);
    uint32_t third = rk::load_be32(byte + 8);
    put_group(out, first >> 8);
    put_group(out + 4, first << 16 | second >> 16);
    put_group(out + 8, second << 8 | third >> 24);
    put_group(out + 12, third);
}

constexpr bool kHasVectors = sizeof(void *) == 8 && !rk::kBigEndian;

// May read one byte more than its twelve.
void put_four_groups(char *out, const uint8_t *byte) {
    if (kHasVectors) {
        put_four_groups_as_vector(out, byte);
    } else {
        put_four_groups_as_words(out, byte);
    }
}

// The next three bytes, or the last one or two.
void put_up_to_three(char *out, const uint8_t *byte, size_t left) {
    put_group(out, static_cast<uint32_t>(byte[0] << 16 | (left > 1 ? byte[1] << 8 : 0) |
                                         (left > 2 ? byte[2] : 0)));
    if (left < 3) {
        out[3] = '=';
    }
    if (left < 2) {
        out[2] = '=';
    }
}

// Whole groups whose characters are all followed by more, as long as there is room for three bytes.
// Returns the bytes written and steps over the characters; none is read behind one that may be the
// text's end.
size_t decode_whole_groups(uint8_t *out, size_t capacity, const char *&text) {
    const char *pos = text;
    uint8_t *to = out;
    for (uint8_t *end = out + capacity / 3 * 3; to != end; to += 3, pos += 4) {
        int first = value_of(pos[0]);
        if (first < 0) {
            break;
        }
        int second = value_of(pos[1]);
        if (second < 0) {
            break;
        }
        int third = value_of(pos[2]);
        if (third < 0) {
            break;
        }
        int fourth = value_of(pos[3]);
        if (fourth < 0) {
            break;
        }
        auto bits = static_cast<uint32_t>(first << 18 | second << 12 | third << 6 | fourth);
        to[0] = static_cast<uint8_t>(bits >> 16);
        to[1] = static_cast<uint8_t>(bits >> 8);
        to[2] = static_cast<uint8_t>(bits);
    }
    text = pos;
    return static_cast<size_t>(to - out);
}

} // namespace

size_t b64_encoded_len(size_t n) {
    return (4 * n / 3 + 3) / 4 * 4;
}

int b64_encode(char *buffer, size_t size, const void *data, size_t count) {
    const auto *byte = static_cast<const uint8_t *>(data);
    const uint8_t *end = byte + count;
    char *out = buffer;
    size_t room = size != 0 ? (size - 1) / 4 : 0;
    size_t groups = std::min(room, count / 3 + (count % 3 != 0 ? 1 : 0));
    for (; groups > 4; groups -= 4, byte += 12, out += 16) {
        put_four_groups(out, byte);
    }
    for (; groups != 0; --groups, byte += 3, out += 4) {
        put_up_to_three(out, byte, static_cast<size_t>(end - byte));
    }
    if (size != 0) {
        *out = '\0';
    }
    return static_cast<int>(out - buffer);
}

size_t b64_decoded_len(size_t n) {
    return n / 4 * 3 + 1;
}

int b64_decode(void *out, size_t capacity, const char *text) {
    auto *bytes = static_cast<uint8_t *>(out);
    size_t written = decode_whole_groups(bytes, capacity, text);
    // Groups with padding, a NUL or too little room; padding in their first half counts as zero
    // bits.
    while (*text != '\0' && written < capacity && text[1] != '\0') {
        int first = value_of(text[0]);
        int second = value_of(text[1]);
        bytes[written++] = static_cast<uint8_t>(first << 2 | (second & 63) >> 4);
        if (text[2] == '=' || text[2] == '\0' || written == capacity) {
            break;
        }
        int third = value_of(text[2]);
        bytes[written++] = static_cast<uint8_t>(second << 4 | third >> 2);
        if (text[3] == '=' || text[3] == '\0' || written == capacity) {
            break;
        }
        bytes[written++] = static_cast<uint8_t>(third << 6 | value_of(text[3]));
        text += 4;
        written += decode_whole_groups(bytes + written, capacity - written, text);
    }
    return static_cast<int>(written);
}
