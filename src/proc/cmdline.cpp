#include "proc/cmdline.h"

#include <cerrno>
#include <cstring>

#include "support/errno.h"

namespace rk {
namespace {

// Cuts a text at its end, and the spaces before that end off. One copy for its callers.
[[gnu::noinline]] void end_text(char *start, char *end) {
    while (end > start && end[-1] == ' ') {
        --end;
    }
    *end = '\0';
}

void drop_ampersand(char *text) {
    size_t length = std::strlen(text);
    if (length != 0 && text[length - 1] == '&') {
        end_text(text, text + length - 1);
    }
}

// Cuts the redirection off a text; the path of its file, or null.
char *take_target(char *text) {
    char *sign = std::strrchr(text, '>');
    if (sign == nullptr || sign == text || sign[-1] == '\\' ||
        sign[std::strcspn(sign, "'\"")] != '\0') {
        return nullptr;
    }
    end_text(text, sign);
    ++sign;
    return sign + std::strspn(sign, " ");
}

// Unquotes the word at `from` in place and terminates it; returns where the text goes on.
char *take_word(char *from) {
    char *to = from;
    char quote = '\0';
    for (; *from != '\0' && (quote != '\0' || *from != ' '); ++from) {
        if (*from == '\\' && from[1] != '\0') {
            *to++ = *++from;
        } else if (*from == quote) {
            quote = '\0';
        } else if (quote == '\0' && (*from == '\'' || *from == '"')) {
            quote = *from;
        } else {
            *to++ = *from;
        }
    }
    char *rest = *from == '\0' ? from : from + 1;
    *to = '\0';
    return rest;
}

} // namespace

int split_cmdline(char *(&words)[kWordSlots], char **target, char *text) {
    drop_ampersand(text);
    char *path = take_target(text);
    if (target != nullptr) {
        *target = path;
    }
    size_t count = 0;
    bool blank = text[std::strspn(text, " ")] == '\0';
    // Two spaces at the end make an empty word: the first one ended the word before it.
    for (char *rest = text; !blank && *rest != '\0';) {
        if (count == kWordSlots - 1) {
            return fail(E2BIG);
        }
        words[count] = rest + std::strspn(rest, " ");
        rest = take_word(words[count]);
        ++count;
    }
    words[count] = nullptr;
    return static_cast<int>(count);
}

void append_words(TextWriter &text, char *const *words) {
    for (; *words != nullptr; ++words) {
        text.append(' ').append(*words);
    }
}

bool CommandLine::parse(const char *format, va_list args) {
    TextWriter text(text_, sizeof text_);
    // Without a format the text stays empty: no words.
    if (format != nullptr && !text.vformat(format, args)) {
        errno = ENOBUFS;
        return false;
    }
    int count = split_cmdline(words_, &target_, text_);
    if (count == 0) {
        errno = EINVAL;
    }
    return count > 0;
}

} // namespace rk
