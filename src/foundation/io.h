// System calls on files that every family makes, each a single one that a signal does not end. They
// use no memory but their arguments', so a child may call them between vfork and exec.
#pragma once

#include <cstddef>

#include <sys/types.h>

namespace rk {

// As open, close-on-exec.
int open_file(const char *path, int flags);

// As write, which may take a part only.
ssize_t write_some(int fd, const void *buffer, size_t length);

} // namespace rk
