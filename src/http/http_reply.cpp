#include "http/http_reply.h"

#include <cctype>
#include <cstring>

#include <strings.h>

#include <routerkit/http.h>
#include <routerkit/strings.h>

#include "support/errno.h"
#include "support/hex_digits.h"
#include "support/lines.h"

namespace rk {
namespace {

constexpr int kMaxHeaderLines = 31;
constexpr int kBase = 10;

std::string_view between(const char *start, const char *end) {
    return {start, static_cast<size_t>(end - start)};
}

void skip_spaces(std::string_view &text) {
    while (!text.empty() && text.front() == ' ') {
        text.remove_prefix(1);
    }
}

// The number that a text starts with, as atoi reads it: white space and a sign may stand before it.
// Held within 32 bits; none without a digit.
std::optional<int32_t> leading_number(std::string_view text) {
    while (!text.empty() && std::isspace(static_cast<unsigned char>(text.front())) != 0) {
        text.remove_prefix(1);
    }
    bool negative = has_prefix(text, "-");
    if (negative || has_prefix(text, "+")) {
        text.remove_prefix(1);
    }
    if (text.empty() || std::isdigit(static_cast<unsigned char>(text.front())) == 0) {
        return std::nullopt;
    }
    int64_t number = 0;
    for (char digit : text) {
        if (digit < '0' || digit > '9') {
            break;
        }
        number = number * kBase + (digit - '0');
        number = number < INT32_MAX ? number : INT32_MAX;
    }
    return static_cast<int32_t>(negative ? -number : number);
}

int status_of(std::string_view line) {
    constexpr std::string_view kVersion = "HTTP/1.";
    if (!has_prefix(line, kVersion)) {
        return -1;
    }
    line.remove_prefix(kVersion.size());
    if (!has_prefix(line, "0") && !has_prefix(line, "1")) {
        return -1;
    }
    line.remove_prefix(1);
    int code = leading_number(line).value_or(-1);
    return code >= 100 && code <= 999 ? code : -1;
}

bool same_name(std::string_view left, std::string_view right) {
    return left.size() == right.size() &&
           ::strncasecmp(left.data(), right.data(), left.size()) == 0;
}

// The size that a chunk's line starts with, 0 without a digit; none above 32 bits.
std::optional<uint32_t> chunk_size(std::string_view line) {
    uint64_t size = 0;
    for (char digit : line) {
        if (hex_value(digit) < 0) {
            break;
        }
        size = size * 16 + static_cast<uint64_t>(hex_value(digit));
        if (size > UINT32_MAX) {
            return std::nullopt;
        }
    }
    return static_cast<uint32_t>(size);
}

} // namespace

ReplyShape look_at_reply(char *reply, char *end) {
    ReplyShape shape;
    shape.line_end = memestr(reply, end, "\r\n");
    if (shape.line_end != nullptr) {
        shape.status = status_of(between(reply, shape.line_end));
        shape.blank = memestr(shape.line_end, end, "\r\n\r\n");
    }
    return shape;
}

std::string_view header_lines(const ReplyShape &shape, const char *end) {
    if (shape.line_end == nullptr || shape.line_end == shape.blank) {
        return {};
    }
    const char *start = shape.line_end + 2;
    if (shape.blank != nullptr) {
        end = shape.blank;
    } else if (start < end && end[-1] == '\r') { // half a line end
        --end;
    }
    return between(start, end);
}

std::optional<std::string_view> find_header(std::string_view lines, std::string_view name) {
    const char *pos = lines.data();
    const char *end = pos + lines.size();
    for (int count = 0; count < kMaxHeaderLines && pos < end; ++count) {
        const char *line_end = memestr(pos, end, "\r\n");
        const char *next = line_end != nullptr ? line_end + 2 : end;
        line_end = line_end != nullptr ? line_end : end;
        const char *colon = memechr(pos, line_end, ':');
        if (colon == nullptr) {
            break;
        }
        if (same_name(between(pos, colon), name)) {
            std::string_view value = between(colon + 1, line_end);
            skip_spaces(value);
            return value;
        }
        pos = next;
    }
    return std::nullopt;
}

std::optional<size_t> content_length(std::string_view lines) {
    std::optional<std::string_view> value = find_header(lines, "Content-Length");
    std::optional<int32_t> length = value ? leading_number(*value) : std::nullopt;
    return length && *length >= 0 ? std::optional(static_cast<size_t>(*length)) : std::nullopt;
}

int unchunk(char *body, size_t size) {
    char *end = body + size;
    char *out = body;
    char *pos = body;
    do {
        char *line_end = memestr(pos, end, "\r\n");
        if (line_end == nullptr) {
            return fail(EPROTO);
        }
        char *data = line_end + 2;
        auto left = static_cast<size_t>(end - data);
        std::optional<uint32_t> length = chunk_size(between(pos, line_end));
        if (length && *length == 0 && left != 0) {
            break;
        }
        if (!length || left < 2 || *length > left - 2 ||
            std::memcmp(data + *length, "\r\n", 2) != 0) {
            return fail(EPROTO);
        }
        std::memmove(out, data, *length);
        out += *length;
        pos = data + *length + 2;
    } while (pos < end);
    return static_cast<int>(out - body);
}

} // namespace rk

int http_response_code(const char *line) {
    return rk::status_of(line);
}

int http_post_response(char *reply, size_t len, char **body_out) {
    if (len == 0) {
        return rk::fail(EPROTO);
    }
    char *end = reply + len;
    *end = '\0';
    rk::ReplyShape shape = rk::look_at_reply(reply, end);
    if (shape.line_end != nullptr) {
        *shape.line_end = '\0';
    }
    if (shape.status < 0) {
        return rk::fail(EPROTO);
    }
    auto in_line_end = [](char character) { return character == '\r' || character == '\n'; };
    char *body = shape.blank;
    if (body != nullptr) {
        // The blank line may start with the status line's end, which is cut by now.
        for (body += 2; body < end && in_line_end(*body);) {
            ++body;
        }
        while (end > body && in_line_end(end[-1])) {
            *--end = '\0';
        }
    }
    *body_out = body;
    return shape.status;
}
