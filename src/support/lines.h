// Text taken line by line.
#pragma once

#include <cstddef>
#include <cstring>
#include <string_view>

#include <unistd.h>

#include "support/chars.h"
#include "support/errno.h"

namespace rk {

// string_view's own starts_with needs the C++ runtime where the compiler does not optimise.
inline bool has_prefix(std::string_view text, std::string_view prefix) {
    return text.size() >= prefix.size() &&
           std::memcmp(text.data(), prefix.data(), prefix.size()) == 0;
}

inline bool begins_with(const char *text, const char *prefix) {
    return std::strncmp(text, prefix, std::strlen(prefix)) == 0;
}

// The lines of a text in memory, without their newlines; the last one needs none.
//     for (Lines lines(text); lines.next();) { use(lines.line()); }
class Lines {
  public:
    explicit Lines(std::string_view text) : rest_(text) {}

    [[nodiscard]] std::string_view line() const { return line_; }

    bool next() {
        if (rest_.empty()) {
            return false;
        }
        const void *newline = std::memchr(rest_.data(), '\n', rest_.size());
        size_t length =
            newline == nullptr
                ? rest_.size()
                : static_cast<size_t>(static_cast<const char *>(newline) - rest_.data());
        line_ = std::string_view(rest_.data(), length);
        rest_.remove_prefix(newline == nullptr ? length : length + 1);
        return true;
    }

  private:
    std::string_view rest_;
    std::string_view line_;
};

// The lines of an open file in Size - 1 characters each, without the heap that stdio would take. As
// with fgets a line keeps its newline, and a longer one arrives in several pieces.
template <size_t Size>
class LineReader {
  public:
    explicit LineReader(int fd) : fd_(fd) {}

    [[nodiscard]] const char *line() const { return line_; }

    bool next() {
        size_t length = 0;
        while (length < Size - 1 && (used_ < filled_ || fill())) {
            char character = block_[used_++];
            line_[length++] = character;
            if (character == '\n') {
                break;
            }
        }
        line_[length] = '\0';
        return length != 0;
    }

  private:
    bool fill() {
        ssize_t count = retry_eintr([&] { return ::read(fd_, block_, sizeof block_); });
        used_ = 0;
        filled_ = count > 0 ? static_cast<size_t>(count) : 0;
        return filled_ != 0;
    }

    int fd_;
    size_t used_ = 0;
    size_t filled_ = 0;
    Chars<Size> line_;
    Chars<1024> block_;
};

} // namespace rk
