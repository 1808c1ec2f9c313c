#include "proc/spawn.h"

#include <climits>
#include <csignal>
#include <cstdlib>
#include <cstring>

#include <fcntl.h>
#include <sys/stat.h>
#include <sys/sysmacros.h>
#include <syslog.h>
#include <unistd.h>

#include "foundation/io.h"
#include "proc/cmdline.h"
#include "support/errno.h"
#include "support/lines.h"
#include "support/log.h"
#include "support/owning.h"
#include "support/text_buffer.h"

namespace rk {
namespace {

constinit char bin_path[] = "PATH=/bin";

// musl has no vfork for MIPS: its function of that name forks.
constexpr bool kVforkCopies = ROUTERKIT_VFORK_COPIES;

// Everything that a child needs, made before there is a child: it shares its parent's memory until
// it execs, and only makes system calls.
struct Launch {
    char *const *words;
    const Streams &streams;
    const char *file; // the program, searched for along the caller's PATH
    char *const *envp;
    bool bin_only;
    const char *complaint;
    bool may_wait = false; // the child, before it execs
    int exec_error = 0;    // what the child reports

    // Whether the child has a copy of the memory.
    [[nodiscard]] bool copied() const { return kVforkCopies || may_wait; }
};

// glibc's strerror translates, with locks and memory of the host's; the host sets no language for
// its tools, so the plain text is the same. musl's only reads a table.
const char *error_text(int error) {
#ifdef __GLIBC__
    const char *text = ::strerrordesc_np(error);
    return text != nullptr ? text : "Unknown error";
#else
    return std::strerror(error);
#endif
}

// As perror, without stdio.
void print_error(const char *prefix, int error) {
    TextBuffer<2048 + 128> line;
    if (*prefix != '\0') {
        line.append(prefix).append(": ");
    }
    line.append(error_text(error)).append('\n');
    write_some(STDERR_FILENO, line.c_str(), line.size());
}

// The words as far as they fit.
void log_program(char *const *words) {
    TextBuffer<255> text;
    append_words(text, words);
    log_at(LOG_ERR, "execvp(%s, [%s]): %m", words[0], text.c_str() + 1);
}

void log_exec_failure(const Launch &launch) {
    errno = launch.exec_error;
    if (launch.bin_only) {
        log_program(launch.words);
    } else {
        log_at(LOG_ERR, "execvp(%s): %m", launch.words[0]);
    }
}

// --- In the child ---

// A handler of the host would run on the host's memory.
void default_handlers() {
    for (int number = 1; number < NSIG; ++number) {
        struct sigaction action;
        if (::sigaction(number, nullptr, &action) == 0 && action.sa_handler != SIG_DFL &&
            action.sa_handler != SIG_IGN) {
            ::signal(number, SIG_DFL);
        }
    }
}

[[noreturn]] void give_up(const char *what) {
    int error = errno;
    print_error(what, error);
    ::_exit(error);
}

// A descriptor that already has the number wanted, because the host runs without its standard
// streams, only has to survive the exec. Output that cannot be led away must not appear elsewhere.
void attach(int fd, int target) {
    if (fd == target) {
        ::fcntl(fd, F_SETFD, 0);
    } else if (retry_eintr([&] { return ::dup2(fd, target); }) < 0) {
        give_up("dup2");
    }
}

// Attaches an output file to the descriptors from `first` to `last`; its own ends with the exec.
void redirect_output(const char *path, int first, int last) {
    int fd = open_file(path, O_WRONLY | O_CREAT | O_TRUNC);
    if (fd < 0) {
        give_up(path);
    }
    for (int target = first; target <= last; ++target) {
        attach(fd, target);
    }
}

void connect_streams(const Streams &streams) {
    if (streams.quiet) {
        redirect_output("/dev/null", STDERR_FILENO, STDERR_FILENO);
    }
    if (streams.close_error) {
        ::close(STDERR_FILENO);
    }
    if (streams.file != nullptr) {
        bool error_too = streams.pipe_target != STDERR_FILENO;
        redirect_output(streams.file, STDOUT_FILENO, error_too ? STDERR_FILENO : STDOUT_FILENO);
    }
    if (streams.pipe != 0) {
        attach(streams.pipe, streams.pipe_target);
    }
}

// `mask` is the host's.
[[noreturn]] void run_child(Launch &launch, const sigset_t &mask) {
    default_handlers();
    if (launch.bin_only) {
        ::signal(SIGINT, SIG_IGN);
    }
    ::sigprocmask(SIG_SETMASK, &mask, nullptr);
    connect_streams(launch.streams);
    ::execvpe(launch.file, launch.words, launch.envp);
    int error = errno;
    launch.exec_error = error;
    if (launch.copied()) {
        log_exec_failure(launch);
    }
    if (launch.complaint != nullptr) {
        print_error(launch.complaint, error);
    }
    ::_exit(launch.bin_only ? error : 1);
}

// --- In the parent ---

// Opening a pipe waits for its reader, a terminal for its carrier: the host would wait too while
// its memory is in use.
bool open_may_wait(const char *path) {
    struct stat status;
    return path != nullptr && ::stat(path, &status) == 0 &&
           (S_ISFIFO(status.st_mode) ||
            (S_ISCHR(status.st_mode) && status.st_rdev != makedev(1, 3))); // 1, 3 is /dev/null
}

// A function of its own, with nothing else in it that the child could spoil on its stack. A fork
// copies the page tables, which takes a hundred times as long from a large host.
[[gnu::noinline]] pid_t make_child(Launch &launch, const sigset_t &mask) {
    pid_t pid = launch.copied() ? ::fork() : ::vfork(); // NOLINT(clang-analyzer-*)
    if (pid == 0) {
        run_child(launch, mask);
    }
    return pid;
}

pid_t start(Launch &launch) {
    sigset_t all, mask;
    ::sigfillset(&all);
    ::sigprocmask(SIG_SETMASK, &all, &mask);
    launch.may_wait = !kVforkCopies && open_may_wait(launch.streams.file);
    int before = errno;
    pid_t pid = make_child(launch, mask);
    int error = pid < 0 ? errno : before; // errno is memory that the child shares, too
    ::sigprocmask(SIG_SETMASK, &mask, nullptr);
    if (!launch.copied() && launch.exec_error != 0) {
        log_exec_failure(launch);
    }
    errno = error;
    return pid;
}

// The caller's environment with PATH=/bin; null without memory.
char **bin_environment() {
    size_t count = 0;
    while (environ != nullptr && environ[count] != nullptr) {
        ++count;
    }
    auto **copy = static_cast<char **>(std::malloc((count + 2) * sizeof(char *)));
    if (copy == nullptr) {
        return nullptr;
    }
    for (size_t i = 0; i < count; ++i) {
        copy[i] = environ[i];
    }
    copy[count] = nullptr;
    copy[count + 1] = nullptr;
    char **path = copy;
    while (*path != nullptr && !begins_with(*path, "PATH=")) {
        ++path;
    }
    *path = bin_path;
    return copy;
}

} // namespace

pid_t exec_program(char *const *words, const Streams &streams) {
    // A longer name, cut here, is still too long for any file: ENAMETOOLONG.
    TextBuffer<sizeof "/bin/" + NAME_MAX + 1> path;
    const char *file = words[0];
    if (*file != '\0' && std::strchr(file, '/') == nullptr) {
        file = path.append("/bin/").append(file).c_str();
    }
    MallocPtr<char *> envp(bin_environment());
    if (!envp) {
        return -1;
    }
    Launch launch = {words, streams, file, envp.get(), true, words[0]};
    return start(launch);
}

pid_t exec_from_path(char *const *words, const Streams &streams, const char *complaint) {
    Launch launch = {words, streams, words[0], environ, false, complaint};
    return start(launch);
}

} // namespace rk
