#include <routerkit/processes.h>

#include <cerrno>
#include <climits>
#include <csignal>
#include <cstdarg>

#include <unistd.h>

#include <routerkit/clocks.h>
#include <routerkit/files.h>

#include "support/errno.h"
#include "support/text_buffer.h"

namespace {

constexpr int kLooks = 4;
constexpr unsigned kBetweenLooks = 100; // ms

// The number as a pid, or 0 for one that names no single process: kill takes 0 and negative numbers
// for groups and for everybody.
pid_t single_pid(long number) {
    return number > 0 && number <= INT_MAX ? static_cast<pid_t>(number) : 0;
}

// Signals a process and sees it off. False, with errno, if it is there but cannot be signalled.
bool put_down(pid_t pid, int signal) {
    if (::kill(pid, signal) != 0) {
        return errno == ESRCH;
    }
    for (int look = 0; look < kLooks; ++look) {
        if (::kill(pid, 0) != 0) {
            return true;
        }
        safe_msleep(kBetweenLooks);
    }
    ::kill(pid, SIGKILL);
    return true;
}

int kill_by_file(int signal, const char *path) {
    long number = readNumFromFile(path);
    if (number < 0) {
        return 0;
    }
    pid_t pid = single_pid(number);
    if (pid != 0 && !put_down(pid, signal)) {
        return -1;
    }
    ::unlink(path);
    return 1;
}

} // namespace

long getPid_fromFile(const char *path) {
    return readNumFromFile(path);
}

int setPid_toFile(const char *path) {
    return writeNumToFile(path, ::getpid());
}

int sendSignalByPidFile(int signal, const char *path) {
    pid_t pid = single_pid(readNumFromFile(path));
    return pid != 0 ? ::kill(pid, signal) : -2;
}

int killByPidFile(int signal, const char *format, ...) {
    rk::TextBuffer<256> path;
    va_list args;
    va_start(args, format);
    bool fits = path.vformat(format, args);
    va_end(args);
    return fits ? kill_by_file(signal, path.c_str()) : rk::fail(ENOBUFS);
}

int killDaemonByPidFile(const char *path) {
    return killByPidFile(SIGKILL, "%s", path);
}
