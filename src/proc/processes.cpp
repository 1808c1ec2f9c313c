#include <routerkit/processes.h>

#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include <fcntl.h>
#include <unistd.h>

#include <routerkit/clocks.h>
#include <routerkit/files.h>
#include <routerkit/strings.h>

#include "support/chars.h"
#include "support/lines.h"
#include "support/owning.h"
#include "support/text_buffer.h"

namespace {

constexpr unsigned kBetweenLooks = 10; // ms
constexpr char kNameKey[] = "Name:";
constexpr char kBlanks[] = " \t\n\v\f\r";
constexpr char kUnlikeStatus[] = " \t\n\v\f\r\\"; // what a name may contain, but not its status

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

// Cuts the first word behind the Name key out of a status text; null if there is none. A process
// without a name leaves the next line's key as the first word.
const char *name_in(char *status) {
    if (!rk::begins_with(status, kNameKey)) {
        return nullptr;
    }
    char *name = status + std::strlen(kNameKey);
    name += std::strspn(name, kBlanks);
    name[std::strcspn(name, kBlanks)] = '\0';
    return *name != '\0' ? name : nullptr;
}

// The name that name_in would find in the process's status; null if it cannot be read. `text` is
// the room for it.
//
// For the first of the status file's sixty lines the kernel would format them all, which is most of
// what a walk costs. The comm file has the same name, but unescaped, and is missing before Linux
// 2.6.33: status decides where there could be any difference.
const char *quick_name(const ProcessWalk &process, rk::Chars<64> &text) {
    int length = process.read("/comm", text, sizeof text) - 1; // less the newline
    if (length > 0 && std::strcspn(text, kUnlikeStatus) == static_cast<size_t>(length) &&
        text[length] == '\n') {
        text[length] = '\0';
        return text;
    }
    return process.read("/status", text, sizeof text) < 0 ? nullptr : name_in(text);
}

// Whether the name is the text, or one of those between the text's bars.
bool is_listed(const char *names, const char *name) {
    const char *at = std::strstr(names, name);
    while (at != nullptr) {
        const char *behind = at + std::strlen(name);
        if ((at == names || at[-1] == '|') && (*behind == '\0' || *behind == '|')) {
            return true;
        }
        const char *bar = std::strchr(behind, '|');
        at = bar != nullptr ? std::strstr(bar, name) : nullptr;
    }
    return false;
}

// Makes one text of the arguments, each of which ends with a NUL.
void join_arguments(char *text, int length) {
    for (int i = 0; i < length - 1; ++i) {
        text[i] = text[i] != '\0' ? text[i] : ' ';
    }
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
    rk::Chars<128> name; // in parentheses
    char state;
    unsigned parent;
};

bool read_stat(unsigned pid, Stat &stat) {
    rk::Chars<128> text;
    return readStrFromFile(strf("/proc/%u/stat", pid), text, sizeof text) >= 0 &&
           std::sscanf(text, "%u %127s %c %u", &stat.pid, stat.name.data(), &stat.state,
                       &stat.parent) == 4;
}

// The command line, or the name without its parentheses for what has none, as a kernel thread.
const char *trace_text(unsigned pid, Stat &stat, rk::Chars<128> &command) {
    rk::TextBuffer<32> path;
    path.format("/proc/%u/cmdline", pid);
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
        rk::Chars<128> text;
        const char *found =
            processes.read("/status", text, sizeof text) < 0 ? nullptr : name_in(text);
        if (found == nullptr) {
            return -1;
        }
        if (std::strcmp(found, name) == 0) {
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
        rk::Chars<256> text;
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
        rk::Chars<64> text;
        const char *name = quick_name(processes, text);
        if (name != nullptr && is_listed(names, name) &&
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
    const int stages[][2] = {{SIGTERM, waitTerm}, {SIGKILL, waitKill}};
    for (const auto &[signal, sleeps] : stages) {
        if (::kill(pid, signal) != 0) {
            return -1;
        }
        if (is_gone_within(pid, sleeps)) {
            return 0;
        }
    }
    return rk::fail(ETIME);
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
    rk::Chars<128> command;
    const char *text = trace_text(pid, stat, command);
    if (stat.parent != 1) {
        trace_pid(stat.parent, depth - 1);
        std::printf("> ");
    }
    std::printf("[%u]'%s'", stat.pid, text);
    return 0;
}
