#include <routerkit/strings.h>

#include <cctype>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "support/lines.h"
#include "support/ring.h"
#include "support/text_buffer.h"

namespace {

constinit rk::Ring<8, 256> formatted;

// The character that follows the backslash, or 0 for a byte without a short escape.
char short_escape(char character) {
    switch (character) {
    case '"':
    case '$':
    case '`':
        return character;
    default:
        return character >= '\a' && character <= '\r' ? "abtnvfr"[character - '\a'] : '\0';
    }
}

// Writes the whole escape of a character: itself, \c, or three octal digits. Returns its length.
size_t escape(char character, char (&out)[4]) {
    out[0] = '\\';
    out[1] = short_escape(character);
    if (out[1] != '\0') {
        return 2;
    }
    auto byte = static_cast<unsigned char>(character);
    if (byte < ' ') {
        out[1] = '0';
        out[2] = static_cast<char>('0' + byte / 8);
        out[3] = static_cast<char>('0' + byte % 8);
        return 4;
    }
    out[0] = character;
    return 1;
}

// Where a URL's host starts; null for no URL.
const char *host_start(const char *url) {
    const char *colon = std::strchr(url, ':');
    if (colon == nullptr || colon[1] != '/' || colon[2] != '/') {
        return nullptr;
    }
    const char *authority = colon + 3;
    const char *at = std::strchr(authority, '@');
    return at != nullptr ? at + 1 : authority;
}

size_t host_length(const char *host) {
    return std::strcspn(host, ":/?#");
}

// Prefixes in the rows themselves: pointers would have to be relocated at every program's start.
struct SchemePort {
    char prefix[8];
    int port;
};

constexpr SchemePort kSchemePorts[] = {{"http:", 80}, {"https:", 443}, {"ftp:", 21}};

} // namespace

char *strf(const char *format, ...) {
    char *slot = formatted.next();
    rk::TextWriter text(slot, 256);
    va_list args;
    va_start(args, format);
    text.vformat(format, args);
    va_end(args);
    return slot;
}

void oprintf(str_cursor_t *out, const char *format, ...) {
    if (out->pos >= out->end) {
        return;
    }
    rk::TextWriter text(out->pos, static_cast<size_t>(out->end - out->pos));
    va_list args;
    va_start(args, format);
    text.vformat(format, args);
    va_end(args);
    out->pos += text.size();
}

void oend(str_span_t *text, int character) {
    if (text->start < text->pos && text->pos[-1] == static_cast<char>(character)) {
        *--text->pos = '\0';
    }
}

char *str_putstr(char *destination, const char *text) {
    while (*text != '\0') {
        *destination++ = *text++;
    }
    return destination;
}

char *str_putint(char *destination, int number) {
    rk::TextBuffer<16> digits;
    digits.append_decimal(number);
    return str_putstr(destination, digits.c_str());
}

char *slashstr(char *destination, size_t size, const char *text) {
    if (size == 0) {
        return destination;
    }
    char *last = destination + size - 1;
    for (; *text != '\0'; ++text) {
        char escaped[4];
        size_t length = escape(*text, escaped);
        if (static_cast<size_t>(last - destination) < length) {
            break;
        }
        std::memcpy(destination, escaped, length);
        destination += length;
    }
    *destination = '\0';
    return destination;
}

char *str_tolower(char *text) {
    for (; *text != '\0'; ++text) {
        *text = static_cast<char>(std::tolower(static_cast<unsigned char>(*text)));
    }
    return text;
}

char *str_rechrs(char *text, int from, int to) {
    while ((text = std::strchr(text, from)) != nullptr) {
        *text++ = static_cast<char>(to);
    }
    return nullptr;
}

char *memechr(const char *start, const char *end, int byte) {
    if (start == nullptr || end <= start) {
        return nullptr;
    }
    const void *found = std::memchr(start, byte, static_cast<size_t>(end - start));
    return const_cast<char *>(static_cast<const char *>(found));
}

char *memestr(const char *start, const char *end, const char *text) {
    if (text == nullptr || *text == '\0') {
        return const_cast<char *>(start);
    }
    size_t length = std::strlen(text);
    for (;;) {
        char *found = memechr(start, end, *text);
        if (found == nullptr || static_cast<size_t>(end - found) < length) {
            return nullptr;
        }
        if (std::memcmp(found, text, length) == 0) {
            return found;
        }
        start = found + 1;
    }
}

int url_gethost(char *destination, size_t size, const char *url) {
    const char *host = host_start(url);
    size_t length = host != nullptr ? host_length(host) : 0;
    if (host == nullptr || length >= size) {
        return -1;
    }
    std::memcpy(destination, host, length);
    destination[length] = '\0';
    return 0;
}

int url_getport(const char *url) {
    const char *host = host_start(url);
    if (host == nullptr) {
        return -1;
    }
    const char *behind = host + host_length(host);
    if (*behind == ':') {
        return std::atoi(behind + 1);
    }
    for (const SchemePort &scheme : kSchemePorts) {
        if (rk::begins_with(url, scheme.prefix)) {
            return scheme.port;
        }
    }
    return 0;
}

const char *url_getpath(const char *url) {
    const char *host = host_start(url);
    return host != nullptr ? host + std::strcspn(host, "/?#") : nullptr;
}
