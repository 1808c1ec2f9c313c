#include "torture/shim.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdint>
#include <cstdio>
#include <ctime>
#include <string_view>

#include <dirent.h>
#include <fcntl.h>
#include <netdb.h>
#include <poll.h>
#include <regex.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

namespace {

struct Row {
    const char *name;
    bool waits; // and may be interrupted by a signal
    std::array<int, 6> errors;
};

constexpr Row kRows[] = {
    {"open", true, {EMFILE, ENOENT, EACCES, ENOSPC, EROFS, EIO}},
    {"openat", true, {EMFILE, ENOENT, EACCES}},
    {"close", true, {EIO}}, // interrupted or not, the descriptor is closed
    {"read", true, {EIO, EISDIR, ESRCH}},
    {"write", true, {ENOSPC, EIO, EDQUOT, EPIPE}},
    {"stat", false, {ENOMEM, ENOENT, EACCES, ENOTDIR}},
    {"mkdir", false, {ENOSPC, EROFS, EACCES, ENOENT}},
    {"rename", false, {ENOSPC, EROFS, ENOENT}},
    {"symlink", false, {ENOSPC, EROFS, EEXIST, ENOENT}},
    {"unlink", false, {EROFS, ENOENT, EACCES}},
    {"readlink", false, {EACCES, ENOENT, EINVAL}},
    {"lseek", false, {ESPIPE, EINVAL}},
    {"fsync", true, {EIO, ENOSPC}},
    {"sendfile", true, {EIO, EINVAL, ENOSPC}},
    {"fcntl", false, {EMFILE, EPERM}},
    {"pipe2", false, {EMFILE, ENFILE}},
    {"dup2", true, {EBUSY}},
    {"socket", false, {EMFILE, ENOBUFS, EACCES, EAFNOSUPPORT}},
    {"bind", false, {EADDRINUSE, EACCES, ENODEV}},
    {"connect", true, {ECONNREFUSED, ETIMEDOUT, ENETUNREACH, EADDRNOTAVAIL}},
    {"setsockopt", false, {ENODEV, EPERM, ENOPROTOOPT}},
    {"getsockopt", false, {ENOBUFS}},
    {"getsockname", false, {ENOBUFS}},
    {"send", true, {ECONNRESET, EPIPE, ENOBUFS}},
    {"sendto", true, {ENETUNREACH, EPERM, ENOBUFS, EMSGSIZE}},
    {"recv", true, {ECONNRESET, ECONNREFUSED, ENOMEM}},
    {"poll", true, {ENOMEM}},
    {"ioctl", true, {ENODEV, EPERM, ENXIO, EOPNOTSUPP}},
    {"fork", false, {EAGAIN, ENOMEM}},
    {"vfork", false, {EAGAIN, ENOMEM}},
    {"execvpe", false, {ENOENT, EACCES, ENOMEM, E2BIG}},
    {"waitpid", true, {ECHILD}}, // the host ignores SIGCHLD: the child is reaped all the same
    {"kill", false, {EPERM, ESRCH}},
    {"nanosleep", true, {EINVAL}},
    {"system", false, {EAGAIN, ENOMEM}},
    {"malloc", false, {ENOMEM}},
    {"calloc", false, {ENOMEM}},
    {"opendir", false, {EMFILE, ENOENT, ENOMEM}},
    {"readdir", false, {ENOENT}},
    {"fopen", true, {EMFILE, ENOENT, EACCES, ENOSPC}},
    {"fclose", false, {ENOSPC}},
    {"fread", false, {EIO}},
    {"fwrite", false, {ENOSPC}},
    {"fputs", false, {ENOSPC}},
    {"fseek", false, {EINVAL}},
    {"regcomp", false, {ENOMEM}},
    {"regexec", false, {ENOMEM}},
    {"gethostbyname_r", false, {ENOMEM}},
    {"backtrace_symbols", false, {ENOMEM}},
};

consteval size_t row_of(std::string_view name) {
    size_t row = 0;
    while (kRows[row].name != name) {
        ++row;
    }
    return row;
}

using shim::Mode;

constexpr size_t kMostCalls = 4096;

// Plain memory: a vforked child writes here, too.
shim::Plan plan;
bool armed = false;
size_t count = 0;
uint8_t calls[kMostCalls];
bool failed[std::size(kRows)];
bool errors[256];
bool injected = false;
long held = 0;
constexpr int64_t kStart = 1'700'000'000'000;
int64_t now_ms = kStart;

int chosen_error(const Row &row) {
    switch (plan.mode) {
    case Mode::kFail:
        return plan.at == count && plan.error < row.errors.size() ? row.errors[plan.error] : 0;
    case Mode::kFailFrom:
        return plan.at <= count ? row.errors[0] : 0;
    case Mode::kInterrupt:
        return plan.at == count && row.waits ? EINTR : 0;
    default:
        return 0;
    }
}

// One call on its way. What the real one calls in turn is none of the library's.
class Step {
  public:
    explicit Step(size_t row) : counted_(armed) {
        if (!counted_) {
            return;
        }
        error_ = chosen_error(kRows[row]);
        halved_ = plan.mode == Mode::kShort && plan.at == count;
        calls[count] = static_cast<uint8_t>(row);
        count += count < kMostCalls - 1 ? 1 : 0;
        if (error_ != 0) {
            injected = true;
            failed[row] = true;
            errors[error_] = true;
            errno = error_;
        }
        armed = false;
    }
    ~Step() { armed = armed || counted_; }
    Step(const Step &) = delete;
    Step &operator=(const Step &) = delete;

    [[nodiscard]] bool fails() const { return error_ != 0; }
    [[nodiscard]] bool is_interrupted() const { return error_ == EINTR; }

    // How much of so many bytes to move.
    size_t part(size_t size) {
        injected = injected || (halved_ && size > 1);
        return halved_ && size > 1 ? size / 2 : size;
    }

    // Fails after all, though the real call was made.
    int result(int real) const {
        errno = fails() ? error_ : errno;
        return fails() ? -1 : real;
    }

    template <typename Thing>
    Thing *hold(Thing *thing) {
        held += counted_ && thing != nullptr ? 1 : 0;
        return thing;
    }

    void give_back(const void *thing) { held -= counted_ && thing != nullptr ? 1 : 0; }

    void forget() { counted_ = false; } // in a child of its own memory

  private:
    bool counted_;
    bool halved_ = false;
    int error_ = 0;
};

} // namespace

namespace shim {

void arm(const Plan &wanted) {
    plan = wanted;
    count = 0;
    held = 0;
    injected = false;
    now_ms = kStart;
    std::fill(std::begin(failed), std::end(failed), false);
    std::fill(std::begin(errors), std::end(errors), false);
    armed = true;
}

Report disarm() {
    armed = false;
    Report report = {{}, {}, {}, injected, held};
    for (size_t i = 0; i < count; ++i) {
        report.calls.emplace_back(kRows[calls[i]].name);
    }
    for (size_t row = 0; row < std::size(kRows); ++row) {
        failed[row] ? void(report.failed.insert(kRows[row].name)) : void();
    }
    for (size_t error = 0; error < std::size(errors); ++error) {
        errors[error] ? void(report.errors.insert(static_cast<int>(error))) : void();
    }
    return report;
}

} // namespace shim

// --- The calls ---

#define WRAPPED(type, name, ...)                                                                   \
    extern "C" type __real_##name(__VA_ARGS__);                                                    \
    extern "C" type __wrap_##name(__VA_ARGS__);                                                    \
    type __wrap_##name(__VA_ARGS__)

#define FALLIBLE(type, name, parameters, arguments, failure)                                       \
    extern "C" type __real_##name parameters;                                                      \
    extern "C" type __wrap_##name parameters;                                                      \
    type __wrap_##name parameters {                                                                \
        Step step(row_of(#name));                                                                  \
        return step.fails() ? failure : __real_##name arguments;                                   \
    }

// The library passes every argument that these take.
FALLIBLE(int, open, (const char *path, int flags, mode_t mode), (path, flags, mode), -1)
FALLIBLE(int, openat, (int fd, const char *path, int flags), (fd, path, flags), -1)
FALLIBLE(int, fcntl, (int fd, int command, long argument), (fd, command, argument), -1)
FALLIBLE(int, ioctl, (int fd, unsigned long request, void *record), (fd, request, record), -1)

FALLIBLE(int, stat, (const char *path, struct stat *out), (path, out), -1)
FALLIBLE(int, mkdir, (const char *path, mode_t mode), (path, mode), -1)
FALLIBLE(int, rename, (const char *from, const char *to), (from, to), -1)
FALLIBLE(int, symlink, (const char *to, const char *path), (to, path), -1)
FALLIBLE(int, unlink, (const char *path), (path), -1)
FALLIBLE(ssize_t, readlink, (const char *path, char *out, size_t size), (path, out, size), -1)
FALLIBLE(off_t, lseek, (int fd, off_t offset, int whence), (fd, offset, whence), -1)
FALLIBLE(int, fsync, (int fd), (fd), -1)
FALLIBLE(int, pipe2, (int *ends, int flags), (ends, flags), -1)
FALLIBLE(int, dup2, (int fd, int target), (fd, target), -1)
FALLIBLE(int, socket, (int family, int type, int protocol), (family, type, protocol), -1)
FALLIBLE(int, bind, (int fd, const sockaddr *to, socklen_t size), (fd, to, size), -1)
FALLIBLE(int, setsockopt, (int fd, int level, int name, const void *value, socklen_t size),
         (fd, level, name, value, size), -1)
FALLIBLE(int, getsockopt, (int fd, int level, int name, void *value, socklen_t *size),
         (fd, level, name, value, size), -1)
FALLIBLE(int, getsockname, (int fd, sockaddr *out, socklen_t *size), (fd, out, size), -1)
FALLIBLE(ssize_t, sendto,
         (int fd, const void *bytes, size_t size, int flags, const sockaddr *to, socklen_t length),
         (fd, bytes, size, flags, to, length), -1) // datagrams are never cut
FALLIBLE(int, kill, (pid_t pid, int signal), (pid, signal), -1)
FALLIBLE(int, system, (const char *command), (command), -1)
FALLIBLE(dirent *, readdir, (DIR * dir), (dir), nullptr)
FALLIBLE(size_t, fread, (void *out, size_t size, size_t number, FILE *stream),
         (out, size, number, stream), 0)
FALLIBLE(size_t, fwrite, (const void *bytes, size_t size, size_t number, FILE *stream),
         (bytes, size, number, stream), 0)
FALLIBLE(int, fputs, (const char *text, FILE *stream), (text, stream), EOF)
FALLIBLE(int, fseek, (FILE * stream, long offset, int whence), (stream, offset, whence), -1)
FALLIBLE(int, regexec,
         (const regex_t *regex, const char *text, size_t number, regmatch_t *slots, int flags),
         (regex, text, number, slots, flags), REG_ESPACE)

// What moves bytes may move fewer; a datagram would lose its end.
WRAPPED(ssize_t, read, int fd, void *out, size_t size) {
    Step step(row_of("read"));
    return step.fails() ? -1 : __real_read(fd, out, step.part(size));
}

WRAPPED(ssize_t, write, int fd, const void *bytes, size_t size) {
    Step step(row_of("write"));
    return step.fails() ? -1 : __real_write(fd, bytes, step.part(size));
}

WRAPPED(ssize_t, send, int fd, const void *bytes, size_t size, int flags) {
    Step step(row_of("send"));
    return step.fails() ? -1 : __real_send(fd, bytes, step.part(size), flags);
}

WRAPPED(ssize_t, sendfile, int to, int from, off_t *offset, size_t size) {
    Step step(row_of("sendfile"));
    return step.fails() ? -1
                        : __real_sendfile(to, from, offset, step.part(size) == size ? size : 2);
}

// A short receive has what has come so far: what it leaves is there for the next one.
WRAPPED(ssize_t, recv, int fd, void *out, size_t size, int flags) {
    Step step(row_of("recv"));
    int type = 0;
    socklen_t length = sizeof type;
    __real_getsockopt(fd, SOL_SOCKET, SO_TYPE, &type, &length);
    bool is_short = type == SOCK_STREAM && step.part(size) != size;
    return step.fails() ? -1 : __real_recv(fd, out, is_short ? 10 : size, flags);
}

// The descriptor is gone and the child reaped whatever these return.
WRAPPED(int, close, int fd) {
    Step step(row_of("close"));
    return step.result(__real_close(fd));
}

WRAPPED(pid_t, waitpid, pid_t pid, int *status, int options) {
    Step step(row_of("waitpid"));
    return step.is_interrupted() ? -1 : step.result(__real_waitpid(pid, status, options));
}

// An interrupted connection goes on being made.
WRAPPED(int, connect, int fd, const sockaddr *to, socklen_t size) {
    Step step(row_of("connect"));
    if (step.is_interrupted()) {
        int flags = __real_fcntl(fd, F_GETFL, 0);
        __real_fcntl(fd, F_SETFL, flags | O_NONBLOCK);
        __real_connect(fd, to, size);
        __real_fcntl(fd, F_SETFL, flags);
    }
    return step.fails() ? step.result(-1) : __real_connect(fd, to, size);
}

// --- Time ---

WRAPPED(int, clock_gettime, clockid_t /*clock*/, timespec *out) {
    *out = {now_ms / 1000, now_ms % 1000 * 1000000};
    return 0;
}

WRAPPED(time_t, time, time_t *out) {
    time_t seconds = now_ms / 1000;
    out != nullptr ? void(*out = seconds) : void();
    return seconds;
}

WRAPPED(int, nanosleep, const timespec *wanted, timespec *rest) {
    Step step(row_of("nanosleep"));
    if (step.is_interrupted() && rest != nullptr) {
        *rest = *wanted;
    }
    if (step.fails()) {
        return -1;
    }
    now_ms += wanted->tv_sec * 1000 + wanted->tv_nsec / 1000000;
    constexpr timespec kMoment = {0, 1000000};
    return __real_nanosleep(&kMoment, nullptr);
}

WRAPPED(int, poll, pollfd *entries, nfds_t number, int timeout) {
    Step step(row_of("poll"));
    int ready = step.fails() ? -1 : __real_poll(entries, number, timeout);
    now_ms += ready == 0 ? timeout : 0;
    return ready;
}

// --- Processes ---

WRAPPED(pid_t, fork, ) {
    Step step(row_of("fork"));
    pid_t pid = step.fails() ? -1 : __real_fork();
    pid == 0 ? step.forget() : void();
    return pid;
}

// Nobody but the caller may return from a vfork, so that this one has to be left with a jump.
extern "C" int shim_vfork_fails();
int shim_vfork_fails() {
    return Step(row_of("vfork")).fails() ? 1 : 0;
}
__asm__(".text\n"
        ".globl __wrap_vfork\n"
        ".type __wrap_vfork, @function\n"
        "__wrap_vfork:\n"
        "    sub $8, %rsp\n"
        "    call shim_vfork_fails\n"
        "    add $8, %rsp\n"
        "    test %eax, %eax\n"
        "    jz __real_vfork@PLT\n"
        "    mov $-1, %eax\n"
        "    ret\n");

// It does not return to what it has to put back: a vforked child shares the shim's state.
WRAPPED(int, execvpe, const char *file, char *const *words, char *const *environment) {
    bool fails = Step(row_of("execvpe")).fails();
    return fails ? -1 : __real_execvpe(file, words, environment);
}

// --- What has to be given back ---

WRAPPED(void *, malloc, size_t size) {
    Step step(row_of("malloc"));
    return step.fails() ? nullptr : step.hold(__real_malloc(size));
}

WRAPPED(void *, calloc, size_t number, size_t size) {
    Step step(row_of("calloc"));
    return step.fails() ? nullptr : step.hold(__real_calloc(number, size));
}

WRAPPED(char **, backtrace_symbols, void *const *frames, int number) {
    Step step(row_of("backtrace_symbols"));
    return step.fails() ? nullptr : step.hold(__real_backtrace_symbols(frames, number));
}

WRAPPED(void, free, void *block) {
    held -= armed && block != nullptr ? 1 : 0;
    __real_free(block);
}

WRAPPED(DIR *, opendir, const char *path) {
    Step step(row_of("opendir"));
    return step.fails() ? nullptr : step.hold(__real_opendir(path));
}

WRAPPED(int, closedir, DIR *dir) {
    held -= armed ? 1 : 0;
    return __real_closedir(dir);
}

WRAPPED(FILE *, fopen, const char *path, const char *mode) {
    Step step(row_of("fopen"));
    return step.fails() ? nullptr : step.hold(__real_fopen(path, mode));
}

WRAPPED(int, fclose, FILE *stream) {
    Step step(row_of("fclose"));
    step.give_back(stream);
    return step.result(__real_fclose(stream));
}

WRAPPED(int, regcomp, regex_t *regex, const char *pattern, int flags) {
    Step step(row_of("regcomp"));
    int result = step.fails() ? REG_ESPACE : __real_regcomp(regex, pattern, flags);
    step.hold(result == 0 ? regex : nullptr);
    return result;
}

WRAPPED(void, regfree, regex_t *regex) {
    held -= armed ? 1 : 0;
    __real_regfree(regex);
}

WRAPPED(int, gethostbyname_r, const char *name, hostent *entry, char *room, size_t size,
        hostent **found, int *error) {
    Step step(row_of("gethostbyname_r"));
    *found = nullptr;
    return step.fails() ? ENOMEM : __real_gethostbyname_r(name, entry, room, size, found, error);
}
