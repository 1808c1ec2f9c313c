#include <routerkit/conversions.h>

#include <algorithm>
#include <cstring>

#include <routerkit/files.h>

#include "codec/hex_digits.h"
#include "codec/text_ring.h"
#include "support/owning.h"

namespace {

// Of a byte string that is too long for a ring slot, the first bytes and an ellipsis are shown.
constexpr size_t kShownWhole = 21;
constexpr size_t kShownOfLonger = 18;

} // namespace

int hex_ntostr(char *buffer, size_t size, const void *bytes, size_t count) {
    if (size == 0) {
        return 0;
    }
    const auto *byte = static_cast<const uint8_t *>(bytes);
    const uint8_t *end = byte + std::min(count, (size - 1) / 2);
    char *out = buffer;
    while (byte != end) {
        out = rk::put_hex(out, *byte++);
    }
    *out = '\0';
    return static_cast<int>(out - buffer);
}

char *hex_ntoa(const void *bytes, size_t count) {
    char *slot = rk::next_address_text();
    if (count <= kShownWhole) {
        hex_ntostr(slot, rk::kAddressTextSize, bytes, count);
    } else {
        int length = hex_ntostr(slot, rk::kAddressTextSize, bytes, kShownOfLonger);
        std::strcpy(slot + length, "...");
    }
    return slot;
}

int hex_aton(void *out, size_t count, const char *text) {
    auto *byte = static_cast<uint8_t *>(out);
    const char *at = text;
    for (; count != 0; --count) {
        unsigned pair = rk::read_hex_pair(at);
        if (pair == rk::kNoPair) {
            return *at == '\0' ? static_cast<int>(at - text) : 0;
        }
        *byte++ = static_cast<uint8_t>(pair);
        at += 2;
    }
    return static_cast<int>(at - text);
}

int hex_check(size_t count, const char *text) {
    bool whole = count == 0;
    for (; whole || count != 0; --count) {
        if (rk::read_hex_pair(text) == rk::kNoPair) {
            return whole && *text == '\0' ? 1 : 0;
        }
        text += 2;
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
