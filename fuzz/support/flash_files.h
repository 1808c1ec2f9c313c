// The kernel's list of partitions, and one partition behind every device, as files in memory.
// Defines open: for one source a program.
#pragma once

#include <cstdarg>

#include <fcntl.h>
#include <sys/syscall.h>

#include "support/fake_ioctl.h"
#include "support/file.h"

namespace fuzz {

inline File partition_list;
inline File partition;

} // namespace fuzz

extern "C" int open(const char *path, int flags, ...) {
    std::string_view wanted(path);
    path = wanted == "/proc/mtd"                 ? fuzz::partition_list.path()
           : wanted.starts_with("/dev/mtdblock") ? fuzz::partition.path()
                                                 : path;
    va_list args;
    va_start(args, flags);
    auto mode = va_arg(args, mode_t);
    va_end(args);
    return static_cast<int>(::syscall(SYS_openat, AT_FDCWD, path, flags, mode));
}
