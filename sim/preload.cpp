// The C library's functions that a program reaches the hardware by: each serves what is simulated
// and passes everything else on to the next library's function of its name.
//
// They are defined under names of their own and given the C library's in the object file: its
// headers do not agree on the types (ioctl's request, off_t) nor on what may throw.
#include <algorithm>
#include <cerrno>
#include <cstdarg>
#include <cstdint>
#include <cstdio>

#include <dlfcn.h>
#include <fcntl.h>
#include <sys/ioctl.h>
#include <sys/mount.h>
#include <sys/socket.h>
#include <unistd.h>

#include "drivers.h"
#include "flash.h"
#include "support/errno.h"

#define SIM_REPLACES(name) __asm__(name) __attribute__((visibility("default")))

using rk::fail;

namespace {

// The function that the program would have called without us. A C library whose types are wide
// anyway need not have the name that ends in 64.
template <typename Function>
Function *next(const char *name, const char *otherwise = nullptr) {
    rk::ErrnoSaver keep;
    void *found = ::dlsym(RTLD_NEXT, name);
    return reinterpret_cast<Function *>(
        found != nullptr || otherwise == nullptr ? found : ::dlsym(RTLD_NEXT, otherwise));
}

using Open = int(const char *, int, ...);
using OpenAt = int(int, const char *, int, ...);
using OpenFile = FILE *(const char *, const char *);
using Ioctl = int(int, unsigned long, ...);
using Read = ssize_t(int, void *, size_t);
using Write = ssize_t(int, const void *, size_t);
using Sync = int(int);
template <typename Offset>
using Seek = Offset(int, Offset, int);
template <typename Offset>
using WriteAt = ssize_t(int, const void *, size_t, Offset);
template <typename Offset>
using Truncate = int(int, Offset);

// The mode argument, there only where a file may be made.
mode_t mode_of(int flags, va_list args) {
    return (flags & O_CREAT) != 0 || (flags & O_TMPFILE) == O_TMPFILE ? va_arg(args, mode_t) : 0;
}

// A device is neither made nor emptied by opening it.
int open_flash(const char *path, const sim::Path &file, int flags) {
    static OpenAt *open_next = next<OpenAt>("openat");
    if (sim::is_device_path(path)) {
        sim::record("open %s\n", path);
    }
    if (sim::fails("open")) {
        return -1;
    }
    int fd = open_next(AT_FDCWD, file.c_str(), flags & ~(O_CREAT | O_EXCL | O_TRUNC | O_APPEND));
    if (fd >= 0 && sim::is_device_path(path)) {
        sim::remember_device(fd, path);
    }
    return fd;
}

// How much of `length` bytes at `position` the device takes; -1 with ENOSPC behind its end.
ssize_t room_at(int64_t size, int64_t position, size_t length) {
    if (sim::fails("write")) {
        return -1;
    }
    if (position >= size && length != 0) {
        return fail(ENOSPC);
    }
    return static_cast<ssize_t>(
        std::min<uint64_t>(length, static_cast<uint64_t>(std::max<int64_t>(size - position, 0))));
}

template <typename Offset>
Offset seek_device(int fd, int64_t size, Offset offset, int whence, Seek<Offset> *seek_next) {
    if (sim::fails("seek")) {
        return -1;
    }
    Offset before = seek_next(fd, 0, SEEK_CUR);
    Offset after = seek_next(fd, offset, whence);
    if (after > size) {
        seek_next(fd, before, SEEK_SET);
        errno = EINVAL;
        return -1;
    }
    return after;
}

template <typename Offset>
Offset seek(int fd, Offset offset, int whence, Seek<Offset> *seek_next) {
    int64_t size = sim::device_size(fd);
    return size < 0 ? seek_next(fd, offset, whence)
                    : seek_device(fd, size, offset, whence, seek_next);
}

template <typename Offset>
ssize_t write_at(int fd, const void *bytes, size_t length, Offset offset,
                 WriteAt<Offset> *write_next) {
    int64_t size = sim::device_size(fd);
    ssize_t room = size < 0 ? 0 : room_at(size, offset, length);
    return room < 0 ? room
                    : write_next(fd, bytes, size < 0 ? length : static_cast<size_t>(room), offset);
}

bool is_socket(int fd) {
    int type;
    socklen_t size = sizeof type;
    return ::getsockopt(fd, SOL_SOCKET, SO_TYPE, &type, &size) == 0;
}

} // namespace

extern "C" {

// --- Opening ---

int sim_open(const char *path, int flags, ...) SIM_REPLACES("open");
int sim_open(const char *path, int flags, ...) {
    static Open *open_next = next<Open>("open");
    sim::Path file;
    if (sim::flash_path(path, file)) {
        return open_flash(path, file, flags);
    }
    va_list args;
    va_start(args, flags);
    mode_t mode = mode_of(flags, args);
    va_end(args);
    return open_next(path, flags, mode);
}

int sim_open64(const char *path, int flags, ...) SIM_REPLACES("open64");
int sim_open64(const char *path, int flags, ...) {
    va_list args;
    va_start(args, flags);
    mode_t mode = mode_of(flags, args);
    va_end(args);
    return sim_open(path, flags | O_LARGEFILE, mode);
}

int sim_openat(int folder, const char *path, int flags, ...) SIM_REPLACES("openat");
int sim_openat(int folder, const char *path, int flags, ...) {
    static OpenAt *open_next = next<OpenAt>("openat");
    sim::Path file;
    if (sim::flash_path(path, file)) {
        return open_flash(path, file, flags);
    }
    va_list args;
    va_start(args, flags);
    mode_t mode = mode_of(flags, args);
    va_end(args);
    return open_next(folder, path, flags, mode);
}

int sim_openat64(int folder, const char *path, int flags, ...) SIM_REPLACES("openat64");
int sim_openat64(int folder, const char *path, int flags, ...) {
    va_list args;
    va_start(args, flags);
    mode_t mode = mode_of(flags, args);
    va_end(args);
    return sim_openat(folder, path, flags | O_LARGEFILE, mode);
}

// What a program built with _FORTIFY_SOURCE calls: never with a mode.
int sim_open_2(const char *path, int flags) SIM_REPLACES("__open_2");
int sim_open_2(const char *path, int flags) {
    return sim_open(path, flags);
}

int sim_open64_2(const char *path, int flags) SIM_REPLACES("__open64_2");
int sim_open64_2(const char *path, int flags) {
    return sim_open64(path, flags);
}

int sim_openat_2(int folder, const char *path, int flags) SIM_REPLACES("__openat_2");
int sim_openat_2(int folder, const char *path, int flags) {
    return sim_openat(folder, path, flags);
}

int sim_openat64_2(int folder, const char *path, int flags) SIM_REPLACES("__openat64_2");
int sim_openat64_2(int folder, const char *path, int flags) {
    return sim_openat64(folder, path, flags);
}

FILE *sim_fopen(const char *path, const char *mode) SIM_REPLACES("fopen");
FILE *sim_fopen(const char *path, const char *mode) {
    static OpenFile *open_next = next<OpenFile>("fopen");
    sim::Path file;
    if (!sim::flash_path(path, file)) {
        return open_next(path, mode);
    }
    return sim::fails("open") ? nullptr : open_next(file.c_str(), mode[0] == 'r' ? mode : "r+");
}

FILE *sim_fopen64(const char *path, const char *mode) SIM_REPLACES("fopen64");
FILE *sim_fopen64(const char *path, const char *mode) {
    static OpenFile *open_next = next<OpenFile>("fopen64", "fopen");
    sim::Path file;
    return sim::flash_path(path, file) ? sim_fopen(path, mode) : open_next(path, mode);
}

// --- Using what is open ---

int sim_ioctl(int fd, unsigned long request, ...) SIM_REPLACES("ioctl");
int sim_ioctl(int fd, unsigned long request, ...) {
    static Ioctl *ioctl_next = next<Ioctl>("ioctl");
    va_list args;
    va_start(args, request);
    void *argument = va_arg(args, void *);
    va_end(args);
    request = static_cast<unsigned>(request); // some C libraries pass an int
    if (request == static_cast<unsigned>(BLKFLSBUF) && sim::device_size(fd) >= 0) {
        return sim::fails("flush") ? -1 : 0;
    }
    if (request >= SIOCDEVPRIVATE && request <= SIOCDEVPRIVATE + 2 && is_socket(fd)) {
        if (std::optional<int> result = sim::driver_request(request, argument)) {
            return *result;
        }
    }
    return ioctl_next(fd, request, argument);
}

ssize_t sim_read(int fd, void *bytes, size_t length) SIM_REPLACES("read");
ssize_t sim_read(int fd, void *bytes, size_t length) {
    static Read *read_next = next<Read>("read");
    return sim::device_size(fd) >= 0 && sim::fails("read") ? -1 : read_next(fd, bytes, length);
}

ssize_t sim_write(int fd, const void *bytes, size_t length) SIM_REPLACES("write");
ssize_t sim_write(int fd, const void *bytes, size_t length) {
    static Write *write_next = next<Write>("write");
    static auto *seek_next = next<Seek<int64_t>>("lseek64", "lseek");
    int64_t size = sim::device_size(fd);
    if (size < 0) {
        return write_next(fd, bytes, length);
    }
    ssize_t room = room_at(size, seek_next(fd, 0, SEEK_CUR), length);
    return room < 0 ? room : write_next(fd, bytes, static_cast<size_t>(room));
}

ssize_t sim_pwrite(int fd, const void *bytes, size_t length, off_t offset) SIM_REPLACES("pwrite");
ssize_t sim_pwrite(int fd, const void *bytes, size_t length, off_t offset) {
    static auto *write_next = next<WriteAt<off_t>>("pwrite");
    return write_at(fd, bytes, length, offset, write_next);
}

ssize_t sim_pwrite64(int fd, const void *bytes, size_t length, int64_t offset)
    SIM_REPLACES("pwrite64");
ssize_t sim_pwrite64(int fd, const void *bytes, size_t length, int64_t offset) {
    static auto *write_next = next<WriteAt<int64_t>>("pwrite64", "pwrite");
    return write_at(fd, bytes, length, offset, write_next);
}

off_t sim_lseek(int fd, off_t offset, int whence) SIM_REPLACES("lseek");
off_t sim_lseek(int fd, off_t offset, int whence) {
    static auto *seek_next = next<Seek<off_t>>("lseek");
    return seek(fd, offset, whence, seek_next);
}

int64_t sim_lseek64(int fd, int64_t offset, int whence) SIM_REPLACES("lseek64");
int64_t sim_lseek64(int fd, int64_t offset, int whence) {
    static auto *seek_next = next<Seek<int64_t>>("lseek64", "lseek");
    return seek(fd, offset, whence, seek_next);
}

int sim_fsync(int fd) SIM_REPLACES("fsync");
int sim_fsync(int fd) {
    static Sync *sync_next = next<Sync>("fsync");
    return sim::device_size(fd) >= 0 && sim::fails("sync") ? -1 : sync_next(fd);
}

// A device has a length that nobody changes; programs that try all the same are let go on.
int sim_ftruncate(int fd, off_t length) SIM_REPLACES("ftruncate");
int sim_ftruncate(int fd, off_t length) {
    static auto *truncate_next = next<Truncate<off_t>>("ftruncate");
    return sim::device_size(fd) >= 0 ? 0 : truncate_next(fd, length);
}

int sim_ftruncate64(int fd, int64_t length) SIM_REPLACES("ftruncate64");
int sim_ftruncate64(int fd, int64_t length) {
    static auto *truncate_next = next<Truncate<int64_t>>("ftruncate64", "ftruncate");
    return sim::device_size(fd) >= 0 ? 0 : truncate_next(fd, length);
}

} // extern "C"
