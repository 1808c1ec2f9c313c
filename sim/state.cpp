#include "state.h"

#include <cerrno>
#include <cstdlib>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include "support/errno.h"
#include "support/owning.h"

using rk::ErrnoSaver;
using rk::UniqueFd;

namespace sim {
namespace {

struct ErrorName {
    std::string_view name;
    int number;
};

constexpr ErrorName kErrors[] = {
    {"EACCES", EACCES}, {"EAGAIN", EAGAIN},         {"EBUSY", EBUSY},
    {"EFAULT", EFAULT}, {"EINTR", EINTR},           {"EINVAL", EINVAL},
    {"EIO", EIO},       {"EMFILE", EMFILE},         {"ENODEV", ENODEV},
    {"ENOENT", ENOENT}, {"ENOMEM", ENOMEM},         {"ENOBUFS", ENOBUFS},
    {"ENOSPC", ENOSPC}, {"ENOTTY", ENOTTY},         {"ETIMEDOUT", ETIMEDOUT},
    {"ENXIO", ENXIO},   {"EOPNOTSUPP", EOPNOTSUPP}, {"EPERM", EPERM},
    {"EROFS", EROFS},
};

// By its name, or by its number on this machine. What is neither still fails: EIO.
int error_number(std::string_view text) {
    for (const ErrorName &error : kErrors) {
        if (error.name == text) {
            return error.number;
        }
    }
    long long number = EIO;
    parse_number(text, 1, 4095, &number);
    return static_cast<int>(number);
}

} // namespace

bool state_path(Path &path, const char *format, ...) {
    const char *folder = std::getenv("ROUTERKIT_SIM");
    if (folder == nullptr || folder[0] == '\0') {
        return false;
    }
    path.append(folder).append('/');
    va_list args;
    va_start(args, format);
    bool fits = path.vformat(format, args);
    va_end(args);
    return fits;
}

bool has_device(const char *name) {
    ErrnoSaver keep;
    Path path;
    struct stat status;
    return state_path(path, "%s", name) && ::stat(path.c_str(), &status) == 0 &&
           S_ISDIR(status.st_mode);
}

int read_text(const Path &path, char *buffer, size_t size) {
    UniqueFd file(::open(path.c_str(), O_RDONLY | O_CLOEXEC));
    if (!file) {
        return -1;
    }
    ssize_t length = rk::retry_eintr([&] { return ::read(file.get(), buffer, size - 1); });
    if (length < 0) {
        return -1;
    }
    length -= length > 0 && buffer[length - 1] == '\n' ? 1 : 0;
    buffer[length] = '\0';
    return static_cast<int>(length);
}

// A reader at the same time sees the old text or the new one.
bool write_text(const Path &path, const TextBuffer<1024> &text) {
    Path fresh;
    if (!fresh.format("%s.%d", path.c_str(), static_cast<int>(::getpid())) || text.cut()) {
        errno = ENOBUFS;
        return false;
    }
    UniqueFd file(::open(fresh.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0666));
    return file &&
           ::write(file.get(), text.c_str(), text.size()) == static_cast<ssize_t>(text.size()) &&
           ::rename(fresh.c_str(), path.c_str()) == 0;
}

namespace {

// fail/<kind> holds "N ERRNO" and counts down. The errno, or 0 for a call that goes through.
int due_error(const char *kind) {
    Path path;
    char text[64];
    if (!state_path(path, "fail/%s", kind) || read_text(path, text, sizeof text) < 0) {
        return 0;
    }
    char *error = nullptr;
    long calls = std::strtol(text, &error, 10);
    error += std::strspn(error, " ");
    if (calls > 1) {
        TextBuffer<1024> rest;
        rest.format("%ld %s\n", calls - 1, error);
        write_text(path, rest);
        return 0;
    }
    ::unlink(path.c_str());
    return error_number(error);
}

} // namespace

bool fails(const char *kind) {
    int before = errno;
    int error = due_error(kind);
    errno = error != 0 ? error : before;
    return error != 0;
}

void record(const char *format, ...) {
    ErrnoSaver keep;
    Path path;
    if (!state_path(path, "calls")) {
        return;
    }
    UniqueFd file(::open(path.c_str(), O_WRONLY | O_APPEND | O_CLOEXEC));
    if (!file) {
        return;
    }
    TextBuffer<1024> line;
    va_list args;
    va_start(args, format);
    line.vformat(format, args);
    va_end(args);
    (void)!::write(file.get(), line.c_str(), line.size());
}

bool parse_number(std::string_view text, long long least, long long most, long long *out) {
    TextBuffer<32> digits;
    digits.append(text);
    char *end = nullptr;
    long long number = std::strtoll(digits.c_str(), &end, 10);
    if (text.empty() || digits.cut() || *end != '\0' || number < least || number > most) {
        return false;
    }
    *out = number;
    return true;
}

} // namespace sim
