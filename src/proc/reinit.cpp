#include <routerkit/commands.h>

#include <cerrno>
#include <cstdarg>

#include <unistd.h>

#include "proc/spawn.h"
#include "support/errno.h"
#include "support/text_buffer.h"

using rk::fail;

namespace {

// Starts the configuration daemon's client; its pid, or -1.
[[gnu::format(printf, 2, 0)]] pid_t start_client(const char *event, const char *format,
                                                 va_list args) {
    if (event == nullptr) {
        return fail(EINVAL);
    }
    rk::TextBuffer<4096> data;
    data.format("pid=%u", static_cast<unsigned>(::getpid()));
    if (format != nullptr) {
        data.append(',').vformat(format, args);
    }
    if (data.cut()) {
        return fail(ENOBUFS);
    }
    const char *const words[] = {"reinitCli", "-e", event, "-d", data.c_str(), nullptr};
    return rk::exec_from_path(const_cast<char *const *>(words), {}, nullptr);
}

} // namespace

pid_t forkReinitEvent(const char *event, const char *format, ...) {
    va_list args;
    va_start(args, format);
    pid_t pid = start_client(event, format, args);
    va_end(args);
    return pid;
}

int reinitEvent(const char *event, const char *format, ...) {
    va_list args;
    va_start(args, format);
    pid_t pid = start_client(event, format, args);
    va_end(args);
    return _waitpid(pid);
}

int reinitApply() {
    return reinitEvent("apply", nullptr);
}
