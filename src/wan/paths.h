// Paths under /var/wan for the library's own use; the host's strf slots stay untouched.
#pragma once

#include <string_view>

#include "support/text_buffer.h"

namespace rk {

inline constexpr std::string_view kWanRoot = "/var/wan";

// The folder of a connection: two indices have names, any other is the one character with code
// 48 + index.
class WanFolderName {
  public:
    explicit WanFolderName(unsigned index) : digit_{static_cast<char>('0' + index), '\0'} {
        name_ = index == 0 ? "default" : index == 255 ? "tr069" : digit_;
    }
    WanFolderName(const WanFolderName &) = delete;
    WanFolderName &operator=(const WanFolderName &) = delete;

    [[nodiscard]] const char *c_str() const { return name_; }

  private:
    char digit_[2];
    const char *name_;
};

// An attribute file of a connection.
class WanFile {
  public:
    WanFile(unsigned index, std::string_view name) {
        path_.append(kWanRoot).append('/').append(WanFolderName(index).c_str());
        path_.append('/').append(name);
    }

    [[nodiscard]] const char *path() const { return path_.c_str(); }

  private:
    TextBuffer<64> path_; // the names are the library's own: they fit
};

} // namespace rk
