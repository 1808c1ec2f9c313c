// Base64 against a well-known fast implementation.
#include <routerkit/base64.h>

#include <string>
#include <vector>

#include <modp_b64.h>

#include "support/pairs.h"

namespace {

constexpr size_t kBytes = 6000;

std::vector<char> bytes(kBytes);
std::vector<char> decoded(kBytes + 16);
std::string text;
std::string encoded(2 * kBytes, '\0');
size_t length;

std::string take(const char *data) {
    std::string answer(data, length);
    length = 0;
    return answer;
}

} // namespace

void bench::declare_rows() {
    for (size_t i = 0; i < kBytes; ++i) {
        bytes[i] = static_cast<char>(i * 131 + i / 200);
    }
    Row encode("b64_encode, 6 KB");
    encode.ours(
        [](size_t) {
            length = static_cast<size_t>(
                b64_encode(encoded.data(), encoded.size(), bytes.data(), kBytes));
        },
        [] { return take(encoded.data()); });
    encode.peer(
        "modp_b64", 0.60,
        [](size_t) { length = modp_b64_encode(encoded.data(), bytes.data(), kBytes); },
        [] { return take(encoded.data()); });

    text.resize(b64_encoded_len(kBytes));
    b64_encode(text.data(), text.size() + 1, bytes.data(), kBytes);
    Row decode("b64_decode, 6 KB");
    decode.ours(
        [](size_t) {
            length = static_cast<size_t>(b64_decode(decoded.data(), decoded.size(), text.c_str()));
        },
        [] { return take(decoded.data()); });
    decode.peer(
        "modp_b64", 0.75,
        [](size_t) { length = modp_b64_decode(decoded.data(), text.c_str(), text.size()); },
        [] { return take(decoded.data()); });
}
