// Command texts and their words.
#pragma once

#include <cstdarg>
#include <cstddef>

#include "support/chars.h"
#include "support/text_buffer.h"

namespace rk {

constexpr size_t kWordSlots = 32; // of a command's words, the closing null included

// Splits a command in place, by the rules that <routerkit/commands.h> gives. The words and the
// redirection's path (null without one) point into the text; a null `target` drops the path.
// Returns the number of words, 0 for a blank text, or -1 with errno E2BIG for too many.
int split_cmdline(char *(&words)[kWordSlots], char **target, char *text);

// The words, a space before each of them.
void append_words(TextWriter &text, char *const *words);

// A formatted command and its words.
class CommandLine {
  public:
    CommandLine() = default;
    CommandLine(const CommandLine &) = delete;
    CommandLine &operator=(const CommandLine &) = delete;

    // False with errno EINVAL for a command without words, ENOBUFS or E2BIG for too long a one.
    [[gnu::format(printf, 2, 0)]] bool parse(const char *format, va_list args);

    [[nodiscard]] char *const *words() const { return words_; }
    [[nodiscard]] const char *target() const { return target_; } // null without a redirection

  private:
    char *target_ = nullptr;
    char *words_[kWordSlots];
    Chars<2048> text_;
};

} // namespace rk
