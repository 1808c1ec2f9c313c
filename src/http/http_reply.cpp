#include "http/http_reply.h"

#include <algorithm>
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

// The number that a text starts with, as atoi reads it: white space and a sign may stand before it.
// Held within 32 bits; negative, too, without a digit.
int32_t leading_number(const char *pos, const char *end) {
    while (pos < end && (*pos == ' ' || (*pos >= '\t' && *pos <= '\r'))) {
        ++pos;
    }
    bool negative = pos < end && *pos == '-';
    if (pos < end && (*pos == '-' || *pos == '+')) {
        ++pos;
    }
    constexpr uint32_t kMost = INT32_MAX;
    const char *digits = pos;
    uint32_t number = 0;
    for (; pos < end && *pos >= '0' && *pos <= '9'; ++pos) {
        auto digit = static_cast<uint32_t>(*pos - '0');
        number = number <= kMost / kBase ? number * kBase + digit : UINT32_MAX;
    }
    if (pos == digits) {
        return -1;
    }
    auto held = static_cast<int32_t>(std::min(number, kMost));
    return negative ? -held : held;
}

// Of a line that has its CR LF, or a NUL, at its end.
int status_of(const char *line, const char *end) {
    constexpr std::string_view kVersion = "HTTP/1.";
    if (!has_prefix({line, static_cast<size_t>(end - line)}, kVersion)) {
        return -1;
    }
    line += kVersion.size();
    if (*line != '0' && *line != '1') {
        return -1;
    }
    int code = leading_number(line + 1, end);
    return code >= 100 && code <= 999 ? code : -1;
}

// The size that a chunk's line starts with, 0 without a digit; UINT32_MAX, too, for a larger one.
uint32_t chunk_size(const char *pos, const char *end) {
    uint32_t size = 0;
    for (; pos < end && hex_value(*pos) >= 0; ++pos) {
        size = size >> 28 == 0 ? size << 4 | static_cast<uint32_t>(hex_value(*pos)) : UINT32_MAX;
    }
    return size;
}

} // namespace

ReplyShape look_at_reply(char *reply, char *end) {
    ReplyShape shape = {-1, memestr(reply, end, "\r\n"), nullptr};
    if (shape.line_end != nullptr) {
        shape.status = status_of(reply, shape.line_end);
        shape.blank = memestr(shape.line_end, end, "\r\n\r\n");
    }
    return shape;
}

ReplyShape split_reply(char *reply, size_t size) {
    char *end = reply + size;
    *end = '\0';
    ReplyShape shape = look_at_reply(reply, end);
    if (shape.line_end != nullptr) {
        *shape.line_end = '\0';
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

std::string_view find_header(std::string_view lines, const char *name) {
    const char *pos = lines.data();
    const char *end = pos + lines.size();
    size_t length = std::strlen(name);
    for (int count = 0; count < kMaxHeaderLines && pos < end; ++count) {
        const char *line_end = memestr(pos, end, "\r\n");
        const char *next = line_end != nullptr ? line_end + 2 : end;
        line_end = line_end != nullptr ? line_end : end;
        const char *colon = memechr(pos, line_end, ':');
        if (colon == nullptr) {
            break;
        }
        if (static_cast<size_t>(colon - pos) == length && ::strncasecmp(pos, name, length) == 0) {
            const char *value = colon + 1;
            while (value < line_end && *value == ' ') {
                ++value;
            }
            return between(value, line_end);
        }
        pos = next;
    }
    return {};
}

int32_t content_length(std::string_view value) {
    return leading_number(value.data(), value.data() + value.size());
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
        size_t length = chunk_size(pos, line_end);
        if (length == 0 && left != 0) {
            break;
        }
        if (left < 2 || length > left - 2 || std::memcmp(data + length, "\r\n", 2) != 0) {
            return fail(EPROTO);
        }
        std::memmove(out, data, length);
        out += length;
        pos = data + length + 2;
    } while (pos < end);
    return static_cast<int>(out - body);
}

} // namespace rk

int http_response_code(const char *line) {
    return rk::status_of(line, line + std::strlen(line));
}

int http_post_response(char *reply, size_t len, char **body_out) {
    if (len == 0) {
        return rk::fail(EPROTO);
    }
    rk::ReplyShape shape = rk::split_reply(reply, len);
    if (shape.status < 0) {
        return rk::fail(EPROTO);
    }
    auto in_line_end = [](char character) { return character == '\r' || character == '\n'; };
    char *end = reply + len;
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
