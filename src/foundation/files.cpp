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

#include "support/owning.h"
#include "support/text_buffer.h"

using rk::fail;
using rk::FormatBuffer;
using rk::MallocPtr;
using rk::retry_eintr;
using rk::UniqueFd;

namespace {

constexpr int kReplace = O_WRONLY | O_CREAT | O_TRUNC;
constexpr int kAppend = O_WRONLY | O_APPEND | O_CREAT;
constexpr size_t kLargestTransfer = 0x7ffff000; // what one sendfile moves at most
constexpr size_t kNumberLength = 15;

class OpenFile : public UniqueFd {
  public:
    OpenFile(const char *path, int flags)
        : UniqueFd(retry_eintr([&] { return ::open(path, flags | O_CLOEXEC, 0666); })) {}
};

int write_all(const char *path, int flags, const void *buffer, size_t length) {
    OpenFile file(path, flags);
    return file ? safe_write(file.get(), buffer, length) : -1;
}

bool is_folder(const struct stat &status) {
    return S_ISDIR(status.st_mode);
}

// Another process may make the same folder between our look and our mkdir.
bool make_folder(const char *path) {
    struct stat status;
    if (::stat(path, &status) != 0) {
        if (::mkdir(path, 0777) == 0) {
            return true;
        }
        rk::ErrnoSaver keep;
        return errno == EEXIST && ::stat(path, &status) == 0 && is_folder(status);
    }
    if (!is_folder(status)) {
        errno = ENOTDIR;
        return false;
    }
    return true;
}

} // namespace

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
    OpenFile file(path, kReplace);
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
        ssize_t written = retry_eintr([&] { return ::write(fd, from, left); });
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
    if (!fits) {
        return fail(ENOBUFS);
    }
    return static_cast<int>(retry_eintr([&] { return ::write(fd, text.c_str(), text.size()); }));
}

int writeFile(const char *path, const void *buffer, size_t length) {
    return buffer == nullptr ? ::unlink(path) : write_all(path, kReplace, buffer, length);
}

int writeStrToFile(const char *path, const char *text) {
    return text == nullptr ? fail(EINVAL) : writeFile(path, text, std::strlen(text));
}

int writeFmtToFile(const char *path, const char *format, ...) {
    FormatBuffer text;
    va_list args;
    va_start(args, format);
    bool fits = text.vformat(format, args);
    va_end(args);
    return fits ? writeFile(path, text.c_str(), text.size()) : fail(ENOBUFS);
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
    return buffer == nullptr ? fail(EINVAL) : write_all(path, kAppend, buffer, length);
}

int appendStrToFile(const char *path, const char *text) {
    return text == nullptr ? 0 : appendFile(path, text, std::strlen(text));
}

int appendFmtToFile(const char *path, const char *format, ...) {
    FormatBuffer text;
    va_list args;
    va_start(args, format);
    bool fits = text.vformat(format, args);
    va_end(args);
    return fits ? appendFile(path, text.c_str(), text.size()) : fail(ENOBUFS);
}

int appendLineToFile(const char *path, const char *text) {
    return text == nullptr ? 0 : appendFmtToFile(path, "%s\n", text);
}

int safe_read(int fd, void *buffer, size_t length) {
    return static_cast<int>(retry_eintr([&] { return ::read(fd, buffer, length); }));
}

int readFile(const char *path, void *buffer, size_t length) {
    OpenFile file(path, O_RDONLY);
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
    char text[2048];
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
    char text[kNumberLength + 1];
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
    OpenFile from(source, O_RDONLY);
    if (!from) {
        return -1;
    }
    OpenFile to(destination, kReplace);
    if (!to) {
        return -1;
    }
    off_t offset = 0;
    return static_cast<int>(
        retry_eintr([&] { return ::sendfile(to.get(), from.get(), &offset, kLargestTransfer); }));
}
