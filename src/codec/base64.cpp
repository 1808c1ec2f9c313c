#include <routerkit/base64.h>

#include <algorithm>
#include <array>
#include <cstdint>

#include "support/bytes.h"

namespace {

constexpr char kAlphabet[] = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";

// Set in the value of the two characters that may end a text.
constexpr uint8_t kMayEnd = 0x80;

constexpr std::array<uint8_t, 256> kValues = [] {
    std::array<uint8_t, 256> values = {};
    for (uint8_t value = 0; value < 64; ++value) {
        values[static_cast<uint8_t>(kAlphabet[value])] = value;
    }
    values['='] = kMayEnd;
    values['\0'] = kMayEnd;
    return values;
}();

uint8_t value_of(char character) {
    return kValues[static_cast<uint8_t>(character)];
}

void put_group(char *out, uint32_t bits) {
    out[0] = kAlphabet[bits >> 18];
    out[1] = kAlphabet[bits >> 12 & 63];
    out[2] = kAlphabet[bits >> 6 & 63];
    out[3] = kAlphabet[bits & 63];
}

// The last one or two bytes.
void put_padded_group(char *out, const uint8_t *byte, size_t count) {
    put_group(out, static_cast<uint32_t>(byte[0] << 16 | (count > 1 ? byte[1] << 8 : 0)));
    out[3] = '=';
    if (count == 1) {
        out[2] = '=';
    }
}

// Whole groups whose characters are all followed by more, as long as there is room for three bytes.
// Returns the bytes written and steps over the characters.
size_t decode_whole_groups(uint8_t *out, size_t capacity, const char *&text) {
    size_t written = 0;
    for (; capacity - written >= 3; written += 3, text += 4) {
        uint32_t first = value_of(text[0]);
        if ((first & kMayEnd) != 0) {
            break;
        }
        uint32_t second = value_of(text[1]);
        if ((second & kMayEnd) != 0) {
            break;
        }
        uint32_t third = value_of(text[2]);
        if ((third & kMayEnd) != 0) {
            break;
        }
        uint32_t fourth = value_of(text[3]);
        if ((fourth & kMayEnd) != 0) {
            break;
        }
        out[written] = static_cast<uint8_t>(first << 2 | second >> 4);
        out[written + 1] = static_cast<uint8_t>(second << 4 | third >> 2);
        out[written + 2] = static_cast<uint8_t>(third << 6 | fourth);
    }
    return written;
}

} // namespace

size_t b64_encoded_len(size_t n) {
    return (4 * n / 3 + 3) / 4 * 4;
}

int b64_encode(char *buffer, size_t size, const void *data, size_t count) {
    const auto *byte = static_cast<const uint8_t *>(data);
    char *out = buffer;
    size_t groups = size != 0 ? (size - 1) / 4 : 0;
    for (; groups != 0 && count >= 3; --groups, byte += 3, count -= 3, out += 4) {
        put_group(out, static_cast<uint32_t>(byte[0] << 16 | byte[1] << 8 | byte[2]));
    }
    if (groups != 0 && count != 0) {
        put_padded_group(out, byte, count);
        out += 4;
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
        auto first = static_cast<uint8_t>(value_of(text[0]) & ~kMayEnd);
        auto second = static_cast<uint8_t>(value_of(text[1]) & ~kMayEnd);
        bytes[written++] = static_cast<uint8_t>(first << 2 | second >> 4);
        if (text[2] == '=' || text[2] == '\0' || written == capacity) {
            break;
        }
        uint8_t third = value_of(text[2]);
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
