// Hex and Base64 (RFC 4648), bit by bit.
#include <routerkit/base64.h>
#include <routerkit/conversions.h>

#include <algorithm>

#include "support/fuzz.h"

namespace {

// The value of a character in an alphabet; nothing's is 0.
unsigned value(const std::string &alphabet, char character) {
    size_t place = alphabet.find(character);
    return place != std::string::npos ? static_cast<unsigned>(place) : 0;
}

const std::string kLetters = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";

std::string from_base64(const std::string &text, size_t room) {
    std::string bytes;
    unsigned bits = 0;
    for (size_t i = 0; i < text.size() && (i % 4 < 2 || text[i] != '='); ++i) {
        bits = bits << 6 | value(kLetters, text[i]);
        if (i % 4 != 0) {
            bytes += static_cast<char>(bits >> (6 - i % 4 * 2));
        }
    }
    return bytes.substr(0, room);
}

std::string to_base64(std::string_view bytes, size_t size) {
    std::string text;
    for (size_t i = 0; i < bytes.size(); i += 3) {
        unsigned bits = 0;
        for (size_t j = i; j < i + 3; ++j) {
            bits = bits << 8 | (j < bytes.size() ? static_cast<unsigned char>(bytes[j]) : 0);
        }
        size_t count = std::min(bytes.size() - i, size_t{3});
        for (size_t j = 0; j < 4; ++j) {
            text += j <= count ? kLetters[bits >> (18 - 6 * j) & 63] : '=';
        }
    }
    return size != 0 ? text.substr(0, (size - 1) / 4 * 4) : "";
}

void base64(std::string_view input, const std::string &text, size_t size) {
    lab::Fenced bytes(input), encoded(std::string(size, '#'));
    lab::Fenced fenced = lab::Fenced::terminated(text), decoded(std::string(size, '#'));
    int length = b64_encode(encoded.data(), size, bytes.data(), bytes.size());
    const std::string wanted = to_base64(input, size);
    fuzz::require(length == static_cast<int>(wanted.size()));
    fuzz::require(size == 0 || encoded.data() == wanted);
    length = b64_decode(decoded.data(), size, fenced.data());
    fuzz::require(decoded.view().substr(0, static_cast<size_t>(length)) == from_base64(text, size));
}

void hex(std::string_view input, const std::string &text, size_t size) {
    size_t digits = std::min(text.find_first_not_of("0123456789abcdefABCDEF"), text.size());
    lab::Fenced fenced = lab::Fenced::terminated(text), bytes(std::string(size, '#'));
    bool whole = digits / 2 >= size || (digits == text.size() && digits % 2 == 0);
    size_t count = std::min(digits / 2, size);
    int length = hex_aton(bytes.data(), size, fenced.data());
    fuzz::require(length == (whole ? static_cast<int>(2 * count) : 0));
    fuzz::require(hex_check(size, fenced.data()) ==
                  (size != 0 ? digits / 2 >= size : digits == text.size() && digits % 2 == 0));
    lab::Fenced written(std::string(2 * size + 1, '#')), read(bytes.view());
    hex_ntostr(written.data(), written.size(), bytes.data(), count);
    fuzz::require(hex_aton(read.data(), count, written.data()) == static_cast<int>(2 * count));
    fuzz::require(read.view() == bytes.view());
    lab::Fenced source(input), cut(std::string(size + 1, '#'));
    count = std::min(input.size(), size / 2);
    length = hex_ntostr(cut.data(), size + 1, source.data(), source.size());
    fuzz::require(length == static_cast<int>(2 * count) && cut.data()[length] == '\0');
}

} // namespace

void fuzz::run(std::string_view input) {
    size_t size = take(input);
    base64(input, text_of(input), size);
    hex(input, text_of(input), size);
}
