// The files of one connection, for the library's own use: the host's strf slots stay untouched.
#pragma once

#include <routerkit/files.h>

#include "support/text_buffer.h"

namespace rk {

inline constexpr unsigned kLastWanIndex = 8; // connections are numbered from 1
inline constexpr int kTypePppoe = 3;
inline constexpr size_t kIfNameText = 20; // interface names and addresses: 19 characters are read
inline constexpr const char *kWanRoot = "/var/wan/";

// Holds the name of the attached modem's interface; there is no such file without a modem.
inline constexpr const char *kModemIface = "/tmp/modem-iface";

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

// An attribute file.
class WanFile {
  public:
    WanFile(unsigned index, const char *name) : WanFile(WanFolderName(index).c_str(), name) {}

    [[nodiscard]] const char *path() const { return path_.c_str(); }

    [[nodiscard]] bool exists() const { return isFileExist(path()) != 0; }

    // -1 when the file cannot be read.
    [[nodiscard]] long number() const { return readNumFromFile(path()); }

    // 0 when the file cannot be read or is negative.
    [[nodiscard]] long count() const {
        long value = number();
        return value < 0 ? 0 : value;
    }

    int text(char *buffer, size_t size) const { return readStrFromFile(path(), buffer, size); }

  protected:
    WanFile(const char *folder, const char *name) {
        path_.append(kWanRoot).append(folder).append('/').append(name);
    }

  private:
    TextBuffer<64> path_; // the names are the library's own: they fit
};

// A session's file: below the index in decimal, also where the folder of attributes has a name.
class SessionFile : public WanFile {
  public:
    SessionFile(unsigned index, const char *name)
        : WanFile(TextBuffer<16>().append_decimal(static_cast<int>(index)).c_str(), name) {}
};

} // namespace rk
