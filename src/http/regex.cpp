#include <routerkit/regex.h>

#include <cstdarg>

#include <regex.h>

#include "support/log.h"
#include "support/text_buffer.h"

namespace {

class Pattern {
  public:
    explicit Pattern(const char *pattern)
        : compiled_(::regcomp(&regex_, pattern, REG_EXTENDED) == 0) {
        if (!compiled_) {
            rk::log_at(LOG_DEBUG, "regex error: '%s'", pattern);
        }
    }
    ~Pattern() {
        if (compiled_) {
            ::regfree(&regex_);
        }
    }
    Pattern(const Pattern &) = delete;
    Pattern &operator=(const Pattern &) = delete;

    bool match(const char *text, regmatch_t (&slots)[REGEX_SLOTS]) const {
        return compiled_ && ::regexec(&regex_, text, REGEX_SLOTS, slots, 0) == 0;
    }

  private:
    regex_t regex_;
    bool compiled_;
};

bool took_part(const regmatch_t &slot) {
    return slot.rm_so != -1;
}

// Char is char or const char: the text's own.
template <typename Char, typename Callback>
int find_all(Char *text, const char *pattern, Callback callback, void *arg) {
    Pattern compiled(pattern);
    regmatch_t slots[REGEX_SLOTS];
    int count = 0;
    while (compiled.match(text, slots)) {
        Char *starts[REGEX_SLOTS];
        Char *ends[REGEX_SLOTS];
        for (int i = 0; i < REGEX_SLOTS; ++i) {
            starts[i] = took_part(slots[i]) ? text + slots[i].rm_so : nullptr;
            ends[i] = took_part(slots[i]) ? text + slots[i].rm_eo : nullptr;
        }
        text = callback(starts, ends, arg);
        if (text == nullptr) {
            break;
        }
        ++count;
    }
    return count;
}

// The first match; false for none.
bool find_first(const char *text, const char *pattern, regmatch_t (&slots)[REGEX_SLOTS]) {
    return Pattern(pattern).match(text, slots);
}

// Stores where the groups start and end, for as long as there are places. The end of the match, or
// null.
template <typename Char>
Char *find_ref(Char *text, const char *pattern, va_list args) {
    regmatch_t slots[REGEX_SLOTS];
    if (!find_first(text, pattern, slots)) {
        return nullptr;
    }
    for (int i = 1; i < REGEX_SLOTS && took_part(slots[i]); ++i) {
        auto **start_out = va_arg(args, Char **);
        if (start_out == nullptr) {
            break;
        }
        auto **end_out = va_arg(args, Char **);
        *start_out = text + slots[i].rm_so;
        if (end_out != nullptr) {
            *end_out = text + slots[i].rm_eo;
        }
    }
    return text + slots[0].rm_eo;
}

} // namespace

int regex_find_all_cb(char *text, const char *pattern, regex_cb_t *callback, void *arg) {
    return find_all(text, pattern, callback, arg);
}

int regex_find_all_const_cb(const char *text, const char *pattern, regex_const_cb_t *callback,
                            void *arg) {
    return find_all(text, pattern, callback, arg);
}

char *regex_find_ref(char *text, const char *pattern, ...) {
    va_list args;
    va_start(args, pattern);
    char *end = find_ref(text, pattern, args);
    va_end(args);
    return end;
}

const char *regex_find_const_ref(const char *text, const char *pattern, ...) {
    va_list args;
    va_start(args, pattern);
    const char *end = find_ref(text, pattern, args);
    va_end(args);
    return end;
}

const char *regex_find_ex(const char *text, const char *pattern, ...) {
    regmatch_t slots[REGEX_SLOTS];
    if (!find_first(text, pattern, slots)) {
        return nullptr;
    }
    va_list args;
    va_start(args, pattern);
    for (int i = 1; i < REGEX_SLOTS && took_part(slots[i]); ++i) {
        char *buffer = va_arg(args, char *);
        if (buffer == nullptr) {
            break;
        }
        int size = va_arg(args, int);
        if (size > 0) {
            rk::TextWriter(buffer, static_cast<size_t>(size))
                .append(
                    {text + slots[i].rm_so, static_cast<size_t>(slots[i].rm_eo - slots[i].rm_so)});
        }
    }
    va_end(args);
    return text + slots[0].rm_eo;
}
