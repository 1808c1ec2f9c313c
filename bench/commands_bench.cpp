// Starting programs, from a small host and from one of 300 MB, against the C library's ways.
#include <routerkit/commands.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>

#include <fcntl.h>
#include <spawn.h>
#include <sys/mman.h>
#include <sys/wait.h>
#include <unistd.h>

#include "support/pairs.h"
#include "support/sandbox.h"

namespace {

constexpr const char *kSilent = ROUTERKIT_PRINTS "0";
constexpr const char *kShort = ROUTERKIT_PRINTS "16";
constexpr const char *kLong = ROUTERKIT_PRINTS "1048576";

int status = -1;
char output[(1 << 20) + 1];

char *const *words_of(const char *program) {
    static char *words[2];
    words[0] = const_cast<char *>(program);
    return words;
}

int wait_for(pid_t pid) {
    int wait_status = -1;
    ::waitpid(pid, &wait_status, 0);
    return wait_status;
}

// posix_spawn and waitpid, with the same done to the streams.
template <typename Prepare>
int spawn(const char *program, Prepare prepare) {
    posix_spawn_file_actions_t actions;
    ::posix_spawn_file_actions_init(&actions);
    prepare(&actions);
    pid_t pid = -1;
    ::posix_spawn(&pid, program, &actions, nullptr, words_of(program), environ);
    ::posix_spawn_file_actions_destroy(&actions);
    return wait_for(pid);
}

void read_all(int fd) {
    size_t used = 0;
    for (ssize_t count; (count = ::read(fd, output + used, sizeof output - 1 - used)) > 0;) {
        used += static_cast<size_t>(count);
    }
    output[used] = '\0';
}

int spawn_with_pipe(const char *program) {
    int ends[2];
    if (::pipe2(ends, O_CLOEXEC) != 0) {
        return -1;
    }
    posix_spawn_file_actions_t actions;
    ::posix_spawn_file_actions_init(&actions);
    ::posix_spawn_file_actions_addopen(&actions, 2, "/dev/null", O_WRONLY, 0);
    ::posix_spawn_file_actions_adddup2(&actions, ends[1], 1);
    pid_t pid = -1;
    ::posix_spawn(&pid, program, &actions, nullptr, words_of(program), environ);
    ::posix_spawn_file_actions_destroy(&actions);
    ::close(ends[1]);
    read_all(ends[0]);
    ::close(ends[0]);
    return wait_for(pid);
}

int open_pipe(const char *program) {
    FILE *pipe = ::popen(program, "re");
    output[std::fread(output, 1, sizeof output - 1, pipe)] = '\0';
    return ::pclose(pipe);
}

std::string exit_status() {
    return std::to_string(status);
}

std::string exit_status_and_output() {
    return std::to_string(status) + " " + std::to_string(std::strlen(output));
}

void without_output(const std::string &host) {
    bench::Row plain("cmdf, " + host, 1, bench::Clock::kWall);
    plain.ours([](size_t) { status = cmdf("%s", kSilent); }, exit_status);
    plain.peer(
        "posix_spawn", 0.80, [](size_t) { status = spawn(kSilent, [](auto *) {}); }, exit_status);

    bench::Row quiet("qcmdf, " + host, 1, bench::Clock::kWall);
    quiet.ours([](size_t) { status = qcmdf("%s", kSilent); }, exit_status);
    quiet.peer(
        "posix_spawn", 0.80,
        [](size_t) {
            status = spawn(kSilent, [](auto *actions) {
                ::posix_spawn_file_actions_addopen(actions, 2, "/dev/null", O_WRONLY, 0);
            });
        },
        exit_status);

    bench::Row words("execulity, " + host, 1, bench::Clock::kWall);
    words.ours([](size_t) { status = execulity(words_of(kSilent), nullptr); }, exit_status);
    words.peer(
        "posix_spawn", 0.80,
        [](size_t) {
            status = spawn(kSilent,
                           [](auto *actions) { ::posix_spawn_file_actions_addclose(actions, 2); });
        },
        exit_status);
}

void with_output() {
    bench::Row brief("sncmdf, 16 bytes", 1, bench::Clock::kWall);
    brief.ours([](size_t) { status = sncmdf(output, sizeof output, "%s", kShort); },
               exit_status_and_output);
    brief.peer(
        "posix_spawn + pipe", 0.82, [](size_t) { status = spawn_with_pipe(kShort); },
        exit_status_and_output);
    brief.peer(
        "popen", 0.15, [](size_t) { status = open_pipe(kShort); }, exit_status_and_output);

    bench::Row large("sncmdf, 1 MB", 1, bench::Clock::kWall);
    large.ours([](size_t) { status = sncmdf(output, sizeof output, "%s", kLong); },
               exit_status_and_output);
    large.peer(
        "popen + fread", 1.0, [](size_t) { status = open_pipe(kLong); }, exit_status_and_output);
}

void through_the_shell() {
    bench::Row row("systemf", 1, bench::Clock::kWall);
    row.ours([](size_t) { status = systemf("exit %d", 3); }, exit_status);
    row.peer(
        "system", 1.03, [](size_t) { status = std::system("exit 3"); }, exit_status);
}

// What fork would copy: page tables for so much memory.
void grow(size_t bytes) {
    void *memory =
        ::mmap(nullptr, bytes, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
    if (memory == MAP_FAILED) {
        std::perror("commands_bench: mmap");
        std::exit(1);
    }
    std::memset(memory, 1, bytes);
}

} // namespace

// Two tables: a child process is the small host, and this one is large when that has ended.
void bench::declare_rows() {
    lab::enter_sandbox();
    std::fflush(stdout);
    pid_t small = ::fork();
    if (small == 0) {
        grow(size_t{8} << 20);
        without_output("8 MB");
        with_output();
        through_the_shell();
        return;
    }
    if (wait_for(small) != 0) {
        std::exit(1);
    }
    grow(size_t{300} << 20);
    without_output("300 MB");
}
