// Bounded text that knows whether everything fitted.
#pragma once

#include <cstdarg>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <string_view>

#include "support/chars.h"

namespace rk {

// Appends text to a caller's buffer and always keeps it terminated. What does not fit is cut at the
// buffer's end; from then on `cut()` holds and nothing more is added.
class TextWriter {
  public:
    TextWriter(char *buffer, size_t size) : start_(buffer), size_(size) { start_[0] = '\0'; }
    TextWriter(const TextWriter &) = delete;
    TextWriter &operator=(const TextWriter &) = delete;

    [[nodiscard]] bool cut() const { return cut_; }
    [[nodiscard]] size_t size() const { return used_; }
    [[nodiscard]] const char *c_str() const { return start_; }
    [[nodiscard]] std::string_view view() const { return {start_, used_}; }

    TextWriter &append(std::string_view text) {
        size_t room = cut_ ? 0 : size_ - 1 - used_;
        size_t length = text.size() < room ? text.size() : room;
        cut_ = cut_ || length < text.size();
        if (length != 0) { // an empty view may have no address
            std::memcpy(start_ + used_, text.data(), length);
        }
        used_ += length;
        start_[used_] = '\0';
        return *this;
    }

    TextWriter &append(const char *text) { return append(std::string_view(text)); }

    TextWriter &append(char character) { return append(std::string_view(&character, 1)); }

    TextWriter &append_decimal(long number) {
        Chars<24> digits;
        char *digit = digits + sizeof digits;
        auto rest = static_cast<unsigned long>(number);
        rest = number < 0 ? 0 - rest : rest;
        do {
            *--digit = static_cast<char>('0' + rest % 10);
            rest /= 10;
        } while (rest != 0);
        if (number < 0) {
            *--digit = '-';
        }
        return append(std::string_view(digit, static_cast<size_t>(digits + sizeof digits - digit)));
    }

    // Both tell whether all of the text so far fitted.
    [[gnu::format(printf, 2, 3)]] bool format(const char *format, ...) {
        va_list args;
        va_start(args, format);
        bool fits = vformat(format, args);
        va_end(args);
        return fits;
    }

    [[gnu::format(printf, 2, 0)]] bool vformat(const char *format, va_list args) {
        if (cut_) {
            return false;
        }
        int length = std::vsnprintf(start_ + used_, size_ - used_, format, args);
        if (length < 0) { // the format itself failed: nothing of it counts
            start_[used_] = '\0';
            cut_ = true;
            return false;
        }
        cut_ = static_cast<size_t>(length) >= size_ - used_;
        used_ = cut_ ? size_ - 1 : used_ + static_cast<size_t>(length);
        return !cut_;
    }

  private:
    char *start_;
    size_t size_;
    size_t used_ = 0;
    bool cut_ = false;
};

// A TextWriter with its own room for Size - 1 characters.
template <size_t Size>
class TextBuffer : public TextWriter {
  public:
    TextBuffer() : TextWriter(reinterpret_cast<char *>(storage_), Size) {}

  private:
    unsigned char storage_[Size]; // as in Chars
};

// Formatted paths, commands and contents are built in buffers of this size.
using FormatBuffer = TextBuffer<2048>;

} // namespace rk
