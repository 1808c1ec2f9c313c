// Hex and Base64 (RFC 4648): reading bit by bit, and what was written read again.
#include <routerkit/base64.h>
#include <routerkit/conversions.h>

#include <algorithm>

#include "support/fuzz.h"

namespace {

constexpr std::string_view kLetters =
    "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";

std::string from_base64(const std::string &text) {
    std::string bytes;
    unsigned bits = 0;
    for (size_t i = 0; i < text.size() && (i % 4 < 2 || text[i] != '='); ++i) {
        size_t value = std::min(kLetters.find(text[i]), size_t{64}); // 64: no letter, zero bits
        bits = bits << 6 | static_cast<unsigned>(value % 64);
        if (i % 4 != 0) {
            bytes += static_cast<char>(bits >> (6 - i % 4 * 2));
        }
    }
    return bytes;
}

void base64(std::string_view input, const std::string &text, size_t size) {
    lab::Fenced source(input), fenced = lab::Fenced::terminated(text);
    lab::Fenced encoded(std::string(size, '#')), decoded(encoded.view());
    int length = b64_encode(encoded.data(), size, source.data(), source.size());
    size_t groups = size != 0 ? (size - 1) / 4 : 0;
    fuzz::require(length == static_cast<int>(4 * std::min(groups, (source.size() + 2) / 3)));
    fuzz::require(size == 0 || source.view().starts_with(from_base64(encoded.data())));
    length = b64_decode(decoded.data(), size, fenced.data());
    fuzz::require(decoded.view().substr(0, static_cast<size_t>(length)) ==
                  from_base64(text).substr(0, size));
}

void hex(std::string_view input, const std::string &text, size_t size) {
    size_t digits = std::min(text.find_first_not_of("0123456789abcdefABCDEF"), text.size());
    size_t count = std::min(digits / 2, size);
    bool whole = digits == text.size() && digits % 2 == 0;
    lab::Fenced fenced = lab::Fenced::terminated(text), bytes(std::string(size, '#'));
    int length = hex_aton(bytes.data(), size, fenced.data());
    fuzz::require(length == (whole || count == size ? static_cast<int>(2 * count) : 0));
    bool checked = size == 0 ? whole : count == size;
    fuzz::require(hex_check(size, fenced.data()) == (checked ? 1 : 0));
    lab::Fenced source(input), written(std::string(size + 1, '#')), read(bytes.view());
    length = hex_ntostr(written.data(), size + 1, source.data(), source.size());
    fuzz::require(length == static_cast<int>(2 * std::min(input.size(), size / 2)));
    fuzz::require(hex_aton(read.data(), size, written.data()) == length);
    fuzz::require(input.starts_with(read.view().substr(0, static_cast<size_t>(length) / 2)));
}

} // namespace

void fuzz::run(std::string_view input) {
    size_t size = take(input);
    base64(input, text_of(input), size);
    hex(input, text_of(input), size);
}
