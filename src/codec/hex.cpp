#include <routerkit/conversions.h>

#include <algorithm>
#include <cstring>

#include <routerkit/files.h>

#include "codec/text_ring.h"
#include "support/build.h"
#include "support/hex_digits.h"
#include "support/owning.h"

namespace {

// Several bytes become digits at once, side by side in one machine word. The word is stored byte by
// byte, which every processor can do at any address and in any byte order, and which the compiler
// joins where one access will do.
using Word = uintptr_t;
constexpr size_t kBlock = sizeof(Word) / 2;

// Two bytes at once, all that a word of 32 bits holds, take as many steps as two looks at the
// digits.
constexpr bool kBlocksPay = kBlock > 2;

constexpr int kStepsAtOnce = rk::kForSize ? 1 : 2;

constexpr Word in_every_byte(Word value) {
    return ~Word{0} / 255 * value;
}

inline void put_hex_block(char *out, const uint8_t *bytes) {
    Word word = 0;
#pragma GCC unroll 4
    for (size_t i = 0; i < kBlock; ++i) {
        word |= Word{bytes[i]} << (16 * i);
    }
    Word values = (word >> 4 | word << 8) & in_every_byte(15);
    Word letters = (values + in_every_byte(6)) >> 4 & in_every_byte(1); // 1 for 10 to 15
    Word digits = values + in_every_byte('0') + letters * ('A' - '9' - 1);
#pragma GCC unroll 8
    for (size_t i = 0; i < sizeof digits; ++i) {
        out[i] = static_cast<char>(digits >> (8 * i));
    }
}

// Of a byte string that is too long for a ring slot, the first bytes and an ellipsis are shown.
constexpr size_t kShownWhole = 21;
constexpr size_t kShownOfLonger = 18;

} // namespace

int hex_ntostr(char *buffer, size_t size, const void *bytes, size_t count) {
    if (size == 0) {
        return 0;
    }
    const auto *byte = static_cast<const uint8_t *>(bytes);
    size_t fitting = std::min(count, (size - 1) / 2);
    size_t in_blocks = kBlocksPay ? fitting - fitting % kBlock : 0;
    size_t i = 0;
#pragma GCC unroll kStepsAtOnce
    for (; i != in_blocks; i += kBlock) {
        put_hex_block(buffer + 2 * i, byte + i);
    }
    for (; i != fitting; ++i) {
        rk::put_hex_pair(buffer + 2 * i, byte[i]);
    }
    buffer[2 * i] = '\0';
    return static_cast<int>(2 * i);
}

char *hex_ntoa(const void *bytes, size_t count) {
    char *slot = rk::next_address_text();
    if (count <= kShownWhole) {
        hex_ntostr(slot, rk::kAddressTextSize, bytes, count);
    } else {
        int length = hex_ntostr(slot, rk::kAddressTextSize, bytes, kShownOfLonger);
        std::memcpy(slot + length, "...", sizeof "...");
    }
    return slot;
}

int hex_aton(void *out, size_t count, const char *text) {
    auto *byte = static_cast<uint8_t *>(out);
    size_t i = 0;
#pragma GCC unroll kStepsAtOnce
    for (; i < count; ++i) {
        int pair = rk::read_hex_pair(text + 2 * i);
        if (pair == rk::kTextEnds) {
            break;
        }
        if (pair < 0) {
            return 0;
        }
        byte[i] = static_cast<uint8_t>(pair);
    }
    return static_cast<int>(2 * i);
}

int hex_check(size_t count, const char *text) {
    bool whole = count == 0;
    for (size_t i = 0; whole || i < count; ++i) {
        int pair = rk::read_hex_pair(text + 2 * i);
        if (pair < 0) {
            return whole && pair == rk::kTextEnds ? 1 : 0;
        }
    }
    return 1;
}

int writeHexToFile(const char *path, const void *bytes, size_t count) {
    if (count > (SIZE_MAX - 1) / 2) {
        return rk::fail(EOVERFLOW);
    }
    size_t size = 2 * count + 1;
    rk::MallocPtr<char> text(static_cast<char *>(std::malloc(size)));
    if (!text) {
        return rk::fail(ENOMEM);
    }
    hex_ntostr(text.get(), size, bytes, count);
    writeStrToFile(path, text.get());
    return 0;
}

int readHexFromFile(const char *path, void *out, size_t count) {
    rk::MallocPtr<char> text(loadFile(path, nullptr));
    return text ? hex_aton(out, count, text.get()) : -1;
}
