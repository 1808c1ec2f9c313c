#include <routerkit/processes.h>

#include <algorithm>
#include <cctype>
#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string_view>

#include <fcntl.h>
#include <unistd.h>

#include <routerkit/clocks.h>
#include <routerkit/files.h>
#include <routerkit/strings.h>

#include "support/lines.h"
#include "support/owning.h"
#include "support/text_buffer.h"

namespace {

constexpr unsigned kBetweenLooks = 10; // ms
constexpr std::string_view kNameKey = "Name:";

constinit char self_name[33];

// The numbered entries of /proc, in the kernel's order.
class ProcessWalk {
  public:
    ProcessWalk() : dir_(::opendir("/proc")) {}

    explicit operator bool() const { return static_cast<bool>(dir_); }

    bool next() {
        do {
            entry_ = ::readdir(dir_.get());
        } while (entry_ != nullptr && (entry_->d_name[0] < '0' || entry_->d_name[0] > '9'));
        return entry_ != nullptr;
    }

    [[nodiscard]] pid_t pid() const { return std::atoi(entry_->d_name); }

    // One of the process's files, read as readStrFromFile does. From the open folder the kernel has
    // less of a path to walk, thousands of times.
    int read(const char *file, char *buffer, size_t size) const {
        rk::TextBuffer<300> path; // the longest entry name is 255 bytes
        path.append(entry_->d_name).append(file);
        rk::UniqueFd fd(rk::retry_eintr(
            [&] { return ::openat(::dirfd(dir_.get()), path.c_str(), O_RDONLY | O_CLOEXEC); }));
        int length = fd ? safe_read(fd.get(), buffer, size - 1) : -1;
        if (length >= 0) {
            buffer[length] = '\0';
        }
        return length;
    }

  private:
    rk::UniqueDir dir_;
    dirent *entry_ = nullptr;
};

bool is_blank(char character) {
    return std::isspace(static_cast<unsigned char>(character)) != 0;
}

// The first word behind the Name key of a status text; empty if there is none. A process without a
// name leaves the next line's key as the first word.
std::string_view name_in(std::string_view status) {
    if (!rk::has_prefix(status, kNameKey)) {
        return {};
    }
    const char *start = std::find_if_not(status.begin() + kNameKey.size(), status.end(), is_blank);
    const char *end = std::find_if(start, status.end(), is_blank);
    return {start, static_cast<size_t>(end - start)};
}

// The name that name_in would find in the process's status; empty if it cannot be read. `text` is
// the room for it.
//
// For the first of the status file's sixty lines the kernel would format them all, which is most of
// what a walk costs. The comm file has the same name, but unescaped, and is missing before Linux
// 2.6.33: status decides where there could be any difference.
std::string_view quick_name(const ProcessWalk &process, char (&text)[64]) {
    int length = process.read("/comm", text, sizeof text);
    if (length > 1) {
        std::string_view name(text, static_cast<size_t>(length) - 1); // less the newline
        bool plain =
            std::all_of(name.begin(), name.end(), [](char c) { return !is_blank(c) && c != '\\'; });
        if (plain && text[length - 1] == '\n') {
            return name;
        }
    }
    length = process.read("/status", text, sizeof text);
    return length < 0 ? std::string_view() : name_in({text, static_cast<size_t>(length)});
}

// Whether the name is the text, or one of those between the text's bars.
bool is_listed(std::string_view names, std::string_view name) {
    size_t at = names.find(name);
    while (at != std::string_view::npos) {
        size_t behind = at + name.size();
        bool starts = at == 0 || names[at - 1] == '|';
        bool ends = behind == names.size() || names[behind] == '|';
        if (starts && ends) {
            return true;
        }
        size_t bar = names.find('|', behind);
        at = bar == std::string_view::npos ? bar : names.find(name, bar);
    }
    return false;
}

// Makes one text of the arguments, each of which ends with a NUL.
void join_arguments(char *text, int length) {
    std::replace(text, text + length - 1, '\0', ' ');
}

bool is_gone_within(pid_t pid, int sleeps) {
    for (int slept = 0; ::kill(pid, 0) == 0; ++slept) {
        if (slept >= sleeps) {
            return false;
        }
        safe_msleep(kBetweenLooks);
    }
    return true;
}

// What a process's stat file begins with.
struct Stat {
    unsigned pid;
    char name[128]; // in parentheses
    char state;
    unsigned parent;
};

bool read_stat(unsigned pid, Stat &stat) {
    char text[128];
    return readStrFromFile(strf("/proc/%u/stat", pid), text, sizeof text) >= 0 &&
           std::sscanf(text, "%u %127s %c %u", &stat.pid, stat.name, &stat.state, &stat.parent) ==
               4;
}

// The command line, or the name without its parentheses for what has none, as a kernel thread.
const char *trace_text(unsigned pid, Stat &stat, char (&command)[128]) {
    rk::TextBuffer<32> path;
    path.append("/proc/").append_decimal(static_cast<long>(pid)).append("/cmdline");
    int length = readStrFromFile(path.c_str(), command, sizeof command);
    if (length > 0) {
        join_arguments(command, length);
        return command;
    }
    char *end = std::strrchr(stat.name, ')');
    if (end != nullptr) {
        *end = '\0';
    }
    return stat.name + 1;
}

} // namespace

int find_pid_by_name(const char *name) {
    ProcessWalk processes;
    if (!processes) {
        return -1;
    }
    while (processes.next()) {
        char text[128];
        int length = processes.read("/status", text, sizeof text);
        if (length < 0) {
            return -1;
        }
        std::string_view found = name_in({text, static_cast<size_t>(length)});
        if (found.empty()) {
            return -1;
        }
        if (found == name) {
            return processes.pid();
        }
    }
    return 0;
}

int isCmdActive(const char *command) {
    ProcessWalk processes;
    if (!processes) {
        return -1;
    }
    while (processes.next()) {
        char text[256];
        int length = processes.read("/cmdline", text, sizeof text);
        if (length < 1) {
            continue;
        }
        join_arguments(text, length);
        if (std::strcmp(text, command) == 0) {
            return processes.pid();
        }
    }
    return 0;
}

int killall(const char *names, int signal) {
    ProcessWalk processes;
    if (!processes) {
        return -1;
    }
    int count = 0;
    while (processes.next()) {
        char text[64];
        std::string_view name = quick_name(processes, text);
        if (!name.empty() && is_listed(names, name) &&
            (signal == 0 || ::kill(processes.pid(), signal) == 0)) {
            ++count;
        }
    }
    return count;
}

int terminate(pid_t pid, int waitTerm, int waitKill) {
    if (pid < 1) {
        return rk::fail(EINVAL);
    }
    if (::kill(pid, SIGTERM) != 0) {
        return -1;
    }
    if (is_gone_within(pid, waitTerm)) {
        return 0;
    }
    if (::kill(pid, SIGKILL) != 0) {
        return -1;
    }
    return is_gone_within(pid, waitKill) ? 0 : rk::fail(ETIME);
}

char *getProcSelfName() {
    readFmtFromFile(strf("/proc/%u/status", static_cast<unsigned>(::getpid())), "Name: %32s",
                    self_name);
    return self_name;
}

int trace_pid(unsigned pid, unsigned depth) {
    if (depth == 0) {
        return 0;
    }
    Stat stat;
    if (!read_stat(pid, stat)) {
        return -1;
    }
    char command[128];
    const char *text = trace_text(pid, stat, command);
    if (stat.parent != 1) {
        trace_pid(stat.parent, depth - 1);
        std::printf("> ");
    }
    std::printf("[%u]'%s'", stat.pid, text);
    return 0;
}
