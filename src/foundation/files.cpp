#include <routerkit/files.h>

#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>

#include <fcntl.h>
#include <sys/sendfile.h>
#include <sys/stat.h>
#include <unistd.h>

#include "foundation/io.h"
#include "support/chars.h"
#include "support/owning.h"
#include "support/text_buffer.h"

using rk::fail;
using rk::FormatBuffer;
using rk::MallocPtr;
using rk::open_file;
using rk::retry_eintr;
using rk::UniqueFd;
using rk::write_some;

namespace {

constexpr int kReplace = O_WRONLY | O_CREAT | O_TRUNC;
constexpr int kAppend = O_WRONLY | O_APPEND | O_CREAT;
constexpr size_t kLargestTransfer = 0x7ffff000; // what one sendfile moves at most
constexpr size_t kNumberLength = 15;

int write_all(const char *path, const void *buffer, size_t length, int flags) {
    UniqueFd file(open_file(path, flags));
    return file ? safe_write(file.get(), buffer, length) : -1;
}

[[gnu::format(printf, 2, 0)]] int vwrite_all(const char *path, const char *format, va_list args,
                                             int flags) {
    FormatBuffer text;
    return text.vformat(format, args) ? write_all(path, text.c_str(), text.size(), flags)
                                      : fail(ENOBUFS);
}

// Another process may make the same folder between our look and our mkdir.
bool make_folder(const char *path) {
    struct stat status;
    int error = ENOTDIR;
    bool there = ::stat(path, &status) == 0;
    if (!there) {
        if (::mkdir(path, 0777) == 0) {
            return true;
        }
        error = errno;
        there = error == EEXIST && ::stat(path, &status) == 0;
    }
    if (there && S_ISDIR(status.st_mode)) {
        return true;
    }
    errno = error;
    return false;
}

} // namespace

int rk::open_file(const char *path, int flags) {
    return retry_eintr([&] { return ::open(path, flags | O_CLOEXEC, 0666); });
}

ssize_t rk::write_some(int fd, const void *buffer, size_t length) {
    return retry_eintr([&] { return ::write(fd, buffer, length); });
}

int isFileExist(const char *path) {
    struct stat status;
    return ::stat(path, &status) == 0 ? 1 : 0;
}

int isFileEmpty(const char *path) {
    struct stat status;
    if (::stat(path, &status) != 0) {
        return -1;
    }
    return status.st_size == 0 ? 1 : 0;
}

int createFile(const char *path) {
    UniqueFd file(open_file(path, kReplace));
    return file ? 0 : -1;
}

int flagFile(const char *path, int on) {
    return on != 0 ? createFile(path) : ::unlink(path);
}

int upFlagFile(const char *path) {
    if (isFileExist(path) != 0) {
        return 0;
    }
    return createFile(path) == 0 ? 1 : -1;
}

int getFileTime(const char *path) {
    struct stat status;
    struct tm utc;
    if (::stat(path, &status) != 0 || ::gmtime_r(&status.st_mtime, &utc) == nullptr) {
        return -1;
    }
    return utc.tm_mon << 22 | utc.tm_mday << 17 | utc.tm_hour << 12 | utc.tm_min << 6 | utc.tm_sec;
}

int mkpath(char *path, int lastIsFile) {
    char *from = *path == '/' ? path + 1 : path;
    for (;;) {
        char *slash = std::strchr(from, '/');
        if (slash == nullptr) {
            return lastIsFile != 0 || make_folder(path) ? 0 : -1;
        }
        *slash = '\0';
        bool made = make_folder(path);
        *slash = '/';
        if (!made) {
            return -1;
        }
        from = slash + 1;
    }
}

int mkdirf(const char *format, ...) {
    FormatBuffer path;
    va_list args;
    va_start(args, format);
    bool fits = path.vformat(format, args);
    va_end(args);
    return fits ? ::mkdir(path.c_str(), 0755) : fail(ENOBUFS);
}

int safe_write(int fd, const void *buffer, size_t length) {
    const char *from = static_cast<const char *>(buffer);
    for (size_t left = length; left != 0;) {
        ssize_t written = write_some(fd, from, left);
        if (written < 0) {
            return static_cast<int>(written);
        }
        from += written;
        left -= static_cast<size_t>(written);
    }
    return static_cast<int>(length);
}

int writeFmt(int fd, const char *format, ...) {
    FormatBuffer text;
    va_list args;
    va_start(args, format);
    bool fits = text.vformat(format, args);
    va_end(args);
    return fits ? static_cast<int>(write_some(fd, text.c_str(), text.size())) : fail(ENOBUFS);
}

int writeFile(const char *path, const void *buffer, size_t length) {
    return buffer == nullptr ? ::unlink(path) : write_all(path, buffer, length, kReplace);
}

int writeStrToFile(const char *path, const char *text) {
    return text == nullptr ? fail(EINVAL) : writeFile(path, text, std::strlen(text));
}

int writeFmtToFile(const char *path, const char *format, ...) {
    va_list args;
    va_start(args, format);
    int result = vwrite_all(path, format, args, kReplace);
    va_end(args);
    return result;
}

int writeLineToFile(const char *path, const char *text) {
    return text == nullptr ? fail(EINVAL) : writeFmtToFile(path, "%s\n", text);
}

int writeNumToFile(const char *path, long number) {
    rk::TextBuffer<32> text;
    text.append_decimal(number).append('\n');
    return writeFile(path, text.c_str(), text.size());
}

int appendFile(const char *path, const void *buffer, size_t length) {
    return buffer == nullptr ? fail(EINVAL) : write_all(path, buffer, length, kAppend);
}

int appendStrToFile(const char *path, const char *text) {
    return text == nullptr ? 0 : appendFile(path, text, std::strlen(text));
}

int appendFmtToFile(const char *path, const char *format, ...) {
    va_list args;
    va_start(args, format);
    int result = vwrite_all(path, format, args, kAppend);
    va_end(args);
    return result;
}

int appendLineToFile(const char *path, const char *text) {
    return text == nullptr ? 0 : appendFmtToFile(path, "%s\n", text);
}

int safe_read(int fd, void *buffer, size_t length) {
    return static_cast<int>(retry_eintr([&] { return ::read(fd, buffer, length); }));
}

int readFile(const char *path, void *buffer, size_t length) {
    UniqueFd file(open_file(path, O_RDONLY));
    return file ? safe_read(file.get(), buffer, length) : -1;
}

int readStrFromFile(const char *path, char *buffer, size_t size) {
    if (size == 0) {
        return fail(EINVAL);
    }
    int length = readFile(path, buffer, size - 1);
    if (length >= 0) {
        buffer[length] = '\0';
    }
    return length;
}

int readFmtFromFile(const char *path, const char *format, ...) {
    rk::Chars<2048> text;
    int length = readStrFromFile(path, text, sizeof text);
    if (length < 0) {
        return length;
    }
    va_list args;
    va_start(args, format);
    int conversions = std::vsscanf(text, format, args);
    va_end(args);
    return conversions;
}

long readNumFromFile(const char *path) {
    rk::Chars<kNumberLength + 1> text;
    // Where a long has 32 bits, musl's atol would wrap around: any number might name process 1.
    return readStrFromFile(path, text, sizeof text) < 0 ? -1 : std::strtol(text, nullptr, 10);
}

char *loadFile(const char *path, size_t *length) {
    struct stat status;
    if (::stat(path, &status) != 0) {
        return nullptr;
    }
    auto size = static_cast<size_t>(status.st_size);
    if (status.st_size < 0 || static_cast<off_t>(size) != status.st_size || size == SIZE_MAX) {
        errno = EFBIG;
        return nullptr;
    }
    MallocPtr<char> block(static_cast<char *>(std::malloc(size + 1)));
    if (!block) {
        return nullptr;
    }
    int count = readFile(path, block.get(), size);
    if (count < 0) {
        return nullptr;
    }
    // A file that shrank since the stat also ends where its bytes end.
    block.get()[count] = '\0';
    block.get()[size] = '\0';
    if (length != nullptr) {
        *length = static_cast<size_t>(count);
    }
    return block.release();
}

int copyFile(const char *destination, const char *source) {
    UniqueFd from(open_file(source, O_RDONLY));
    if (!from) {
        return -1;
    }
    UniqueFd to(open_file(destination, kReplace));
    if (!to) {
        return -1;
    }
    off_t offset = 0;
    return static_cast<int>(
        retry_eintr([&] { return ::sendfile(to.get(), from.get(), &offset, kLargestTransfer); }));
}
