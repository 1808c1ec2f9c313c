// A file in memory, for functions that take a path.
#pragma once

#include <string>
#include <string_view>

#include <sys/mman.h>
#include <unistd.h>

#include "support/fuzz.h"

namespace fuzz {

class File {
  public:
    File()
        : fd_(::memfd_create("fuzz", MFD_CLOEXEC)), path_("/proc/self/fd/" + std::to_string(fd_)) {}

    const char *path() const { return path_.c_str(); }

    void put(std::string_view content) {
        require(::ftruncate(fd_, 0) == 0 && ::pwrite(fd_, content.data(), content.size(), 0) ==
                                                static_cast<ssize_t>(content.size()));
    }

    std::string get() const {
        std::string content(static_cast<size_t>(::lseek(fd_, 0, SEEK_END)), '\0');
        require(::pread(fd_, content.data(), content.size(), 0) ==
                static_cast<ssize_t>(content.size()));
        return content;
    }

  private:
    int fd_;
    std::string path_;
};

} // namespace fuzz
