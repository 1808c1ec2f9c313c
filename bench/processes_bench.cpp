// The walks over /proc against the same walks through stdio, over 500 processes.
#include <routerkit/processes.h>

#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include <dirent.h>
#include <fcntl.h>
#include <sys/prctl.h>
#include <unistd.h>

#include "support/pairs.h"
#include "support/sandbox.h"

namespace {

constexpr int kProcesses = 500;
constexpr const char *kLongCommand = "sleep 3600.125 3600.25 3600.5";

// Half of them are one program, half another; they end with this program.
void start_processes() {
    for (int i = 0; i < kProcesses; ++i) {
        int ready[2];
        if (::pipe2(ready, O_CLOEXEC) != 0) {
            std::abort();
        }
        if (::fork() == 0) {
            ::prctl(PR_SET_PDEATHSIG, SIGKILL);
            const char *program = i % 2 == 0 ? "sleep" : "tail";
            ::execlp(program, program, i % 2 == 0 ? "3600.25" : "-f",
                     i % 2 == 0 ? "3600.5" : "/dev/null", nullptr);
            std::_Exit(127);
        }
        char byte;
        ::close(ready[1]);
        (void)!::read(ready[0], &byte, 1); // ends with the exec
        ::close(ready[0]);
    }
}

// Calls `use` with each process's open file until it returns true.
template <typename Use>
void walk_with_stdio(const char *file, Use use) {
    DIR *dir = ::opendir("/proc");
    for (dirent *entry; (entry = ::readdir(dir)) != nullptr;) {
        if (entry->d_name[0] < '0' || entry->d_name[0] > '9') {
            continue;
        }
        char path[300];
        std::snprintf(path, sizeof path, "/proc/%s/%s", entry->d_name, file);
        FILE *stream = std::fopen(path, "r");
        if (stream == nullptr) {
            continue;
        }
        bool last = use(stream, std::atoi(entry->d_name));
        std::fclose(stream);
        if (last) {
            break;
        }
    }
    ::closedir(dir);
}

int active_with_stdio(const char *command) {
    int found = 0;
    walk_with_stdio("cmdline", [&](FILE *stream, int pid) {
        char text[256];
        size_t length = std::fread(text, 1, sizeof text - 1, stream);
        if (length == 0) {
            return false;
        }
        text[length] = '\0';
        for (size_t i = 0; i + 1 < length; ++i) {
            text[i] = text[i] == '\0' ? ' ' : text[i];
        }
        found = std::strcmp(text, command) == 0 ? pid : 0;
        return found != 0;
    });
    return found;
}

int count_with_stdio(const char *wanted) {
    int count = 0;
    walk_with_stdio("status", [&](FILE *stream, int /*pid*/) {
        char name[64];
        count += std::fscanf(stream, "Name: %63s", name) == 1 && std::strcmp(name, wanted) == 0;
        return false;
    });
    return count;
}

void look_for_command() {
    static int pid;
    auto answer = [] { return std::to_string(pid); };
    bench::Row row("isCmdActive, none of 500");
    row.ours([](size_t) { pid = isCmdActive(kLongCommand); }, answer);
    row.peer(
        "fopen + fread", 0.6, [](size_t) { pid = active_with_stdio(kLongCommand); }, answer);
}

void count_by_name(const std::string &row_name, const char *name) {
    static int count;
    auto answer = [] { return std::to_string(count); };
    bench::Row row(row_name);
    row.ours([name](size_t) { count = killall(name, 0); }, answer);
    row.peer(
        "fopen + fscanf", 0.6, [name](size_t) { count = count_with_stdio(name); }, answer);
}

} // namespace

void bench::declare_rows() {
    lab::enter_sandbox();
    start_processes();
    look_for_command();
    count_by_name("killall(0), none of 500", "pppd");
    count_by_name("killall(0), half of 500", "tail");
}
