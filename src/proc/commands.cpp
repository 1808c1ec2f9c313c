#include <routerkit/commands.h>

#include <cerrno>
#include <cstdarg>
#include <cstring>

#include <fcntl.h>
#include <sys/wait.h>
#include <syslog.h>
#include <unistd.h>

#include <routerkit/files.h>

#include "proc/cmdline.h"
#include "proc/spawn.h"
#include "support/chars.h"
#include "support/errno.h"
#include "support/log.h"
#include "support/owning.h"
#include "support/text_buffer.h"

using rk::CommandLine;
using rk::fail;
using rk::retry_eintr;
using rk::Streams;
using rk::UniqueFd;

namespace {

constexpr size_t kLogText = 512; // of the logging runner: captured text and words

// Formats a command and starts it; the child's pid, or -1.
[[gnu::format(printf, 1, 0)]] pid_t exec_cmdf(const char *format, va_list args, bool quiet) {
    CommandLine command;
    if (!command.parse(format, args)) {
        return -1;
    }
    Streams streams;
    streams.quiet = quiet;
    streams.file = command.target();
    return rk::exec_program(command.words(), streams);
}

// Fills the buffer from a pipe until that ends or the buffer is full, and terminates the text.
void read_all(int pipe, char *buffer, size_t size) {
    int count = 1;
    while (size > 1 && count > 0) {
        count = safe_read(pipe, buffer, size - 1);
        if (count > 0) {
            buffer += count;
            size -= static_cast<size_t>(count);
        }
    }
    *buffer = '\0';
}

// Moves a descriptor above the standard ones, which a child replaces; -1 on failure.
int above_standard(int fd) {
    if (fd > STDERR_FILENO) {
        return fd;
    }
    UniqueFd low(fd);
    return ::fcntl(fd, F_DUPFD_CLOEXEC, STDERR_FILENO + 1);
}

// Starts a command and takes what comes from one of its standard descriptors, streams.pipe_target.
// The pipe closes before anybody waits for the child: one that goes on writing gets SIGPIPE. The
// child's pid, or -1.
pid_t capture(const CommandLine &command, Streams streams, char *buffer, size_t size) {
    int ends[2];
    if (::pipe2(ends, O_CLOEXEC) != 0) {
        return -1;
    }
    UniqueFd from(ends[0]);
    UniqueFd to(above_standard(ends[1]));
    if (!to) {
        return -1;
    }
    streams.pipe = to.get();
    pid_t pid = rk::exec_from_path(command.words(), streams, "execvp failed");
    to.reset();
    if (pid >= 0) {
        read_all(from.get(), buffer, size);
    }
    return pid;
}

void log_failure(int status, const char *error_text, char *const *words) {
    rk::TextBuffer<kLogText> command;
    rk::append_words(command, words);
    if (*error_text == '\0') {
        rk::log_at(LOG_ERR, "(%d) %s", status, command.c_str());
        return;
    }
    auto length = static_cast<int>(std::strcspn(error_text, "\n"));
    rk::log_at(LOG_ERR, "(%d)\"%.*s\" < %s ", status, length, error_text, command.c_str() + 1);
}

Streams to_file_or_closed(const char *outPath) {
    Streams streams;
    streams.file = outPath;
    streams.close_error = outPath == nullptr;
    return streams;
}

int run_words(const char *const *words, const char *outPath) {
    return execulity(const_cast<char *const *>(words), outPath);
}

} // namespace

int cmdf(const char *format, ...) {
    va_list args;
    va_start(args, format);
    pid_t pid = exec_cmdf(format, args, false);
    va_end(args);
    return _waitpid(pid);
}

int qcmdf(const char *format, ...) {
    va_list args;
    va_start(args, format);
    pid_t pid = exec_cmdf(format, args, true);
    va_end(args);
    return _waitpid(pid);
}

pid_t forkcmdf(const char *format, ...) {
    va_list args;
    va_start(args, format);
    pid_t pid = exec_cmdf(format, args, false);
    va_end(args);
    return pid;
}

int sncmdf(char *buffer, size_t size, const char *format, ...) {
    if (buffer == nullptr || size == 0) {
        return fail(EINVAL);
    }
    buffer[0] = '\0';
    CommandLine command;
    va_list args;
    va_start(args, format);
    bool parsed = command.parse(format, args);
    va_end(args);
    if (!parsed) {
        return -1;
    }
    Streams streams;
    streams.quiet = true;
    streams.pipe_target = STDOUT_FILENO;
    return _waitpid(capture(command, streams, buffer, size));
}

int lcmdf(const char *format, ...) {
    CommandLine command;
    va_list args;
    va_start(args, format);
    bool parsed = command.parse(format, args);
    va_end(args);
    if (!parsed) {
        return -1;
    }
    Streams streams;
    streams.file = command.target();
    streams.pipe_target = STDERR_FILENO;
    rk::Chars<kLogText> error_text;
    pid_t pid = capture(command, streams, error_text, sizeof error_text);
    if (pid < 0) {
        return -1;
    }
    int status = _waitpid(pid);
    if (status != 0) {
        log_failure(status, error_text, command.words());
    }
    return status;
}

pid_t forkexeculity(char *const *words, const char *outPath) {
    if (words == nullptr || words[0] == nullptr) {
        return fail(EINVAL);
    }
    return rk::exec_program(words, to_file_or_closed(outPath));
}

int execulity(char *const *words, const char *outPath) {
    return _waitpid(forkexeculity(words, outPath));
}

int _waitpid(pid_t pid) {
    if (pid < 0) {
        return -1;
    }
    int status = 0;
    if (retry_eintr([&] { return ::waitpid(pid, &status, 0); }) < 0) {
        return -1;
    }
    return WIFEXITED(status) ? WEXITSTATUS(status) : status;
}

int pingulity(const char *host, const char *outPath) {
    const char *const words[] = {"ping", "-c", "4", host, nullptr};
    return host == nullptr ? fail(EINVAL) : run_words(words, outPath);
}

int traceroulity(const char *host, const char *outPath) {
    const char *const words[] = {"traceroute", host, nullptr};
    return host == nullptr ? fail(EINVAL) : run_words(words, outPath);
}
