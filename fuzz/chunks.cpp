// The chunked transfer encoding (RFC 9112, 7.1), against a reader that copies the chunks.
#include "http/http_reply.h"

#include <optional>

#include "support/fuzz.h"
#include "support/hex_digits.h"

namespace {

// Nothing for a malformed body; one that ends between two chunks is whole.
std::optional<std::string> unchunked(const std::string &body) {
    std::string result;
    size_t at = 0;
    do {
        size_t line_end = body.find("\r\n", at);
        if (line_end == std::string::npos) {
            return {};
        }
        uint64_t length = 0;
        for (; at < line_end && rk::hex_value(body[at]) >= 0 && length < 1U << 31; ++at) {
            length = length * 16 + static_cast<uint64_t>(rk::hex_value(body[at]));
        }
        size_t data = line_end + 2;
        if (length == 0 && data < body.size()) {
            break;
        }
        if (length > body.size() - data || body.compare(data + length, 2, "\r\n") != 0) {
            return {};
        }
        result += body.substr(data, length);
        at = data + length + 2;
    } while (at < body.size());
    return result;
}

} // namespace

void fuzz::run(std::string_view input) {
    lab::Fenced body(input);
    int length = rk::unchunk(body.data(), body.size());
    auto wanted = unchunked(std::string(input));
    require(length == (wanted ? static_cast<int>(wanted->size()) : -1));
    require(!wanted || body.view().substr(0, wanted->size()) == *wanted);
}
