// What the tests share: captured log lines, a census of descriptors and children, signal storms,
// guarded memory, and other hosts on a small private network.
#pragma once

#include <cerrno>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <string>
#include <string_view>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <sys/resource.h>
#include <sys/types.h>

#include "support/fenced.h"

namespace lab {

class Pinned { // no copies
  protected:
    Pinned() = default;
    ~Pinned() = default;
    Pinned(const Pinned &) = delete;
    Pinned &operator=(const Pinned &) = delete;
};

// --- The system log ---

// Binds /dev/log and lets the C library connect to it, so that no later call seems to leak that
// descriptor; called once by the test program's main.
void open_log();

// The lines logged since the last call, each as "priority: text", for example "err: socket: ...".
std::vector<std::string> take_log();

// --- Files and commands ---

void put(const std::string &path, std::string_view content); // makes the folders too
std::string get(const std::string &path);                    // "" where there is none
bool exists(const std::string &path);

// Runs a shell command that has to succeed; returns what it printed.
std::string sh(const std::string &command);

// Puts a script in place as /bin/<name>; /bin is the sandbox's own then, with all that was in it.
void put_program(const std::string &name, const std::string &script);

// What a call writes to standard output and to standard error.
struct Printed {
    std::string output;
    std::string error;
};
Printed printed(const std::function<void()> &call);

// Calls a function in a child process, where it may spoil what belongs to the process, and returns
// its result; 100 and more for a death by signal. Expectations in it count for nothing.
int in_child(const std::function<int()> &function);

// --- Leaks ---

size_t open_descriptors();

// Everything that its scope opened must be closed and every child reaped when the scope ends.
class Census : Pinned {
  public:
    Census();
    ~Census();

  private:
    size_t descriptors_;
    std::string children_;
};

// EXPECT_THAT(call(), FailsWith(-1, ENOENT)): the result and errno in one assertion.
MATCHER_P2(FailsWith, result, error, "") {
    int seen = errno;
    *result_listener << "errno " << seen;
    return arg == result && seen == error;
}

// True under qemu-user, which runs a program of another processor on this one's kernel.
bool emulated();

// --- Bad moments ---

// Interrupts the process every few milliseconds while it lives (SIGALRM, calls are not restarted).
class SignalStorm : Pinned {
  public:
    explicit SignalStorm(int milliseconds = 3);
    ~SignalStorm();

    static int count(); // signals since the storm began
};

// The result of a call during which nothing can be opened (EMFILE):
//     EXPECT_THAT(lab::without_descriptors([] { return f(); }), FailsWith(-1, EMFILE));
template <typename Call>
auto without_descriptors(Call call) {
    struct Limit {
        rlimit before;
        Limit() {
            ::getrlimit(RLIMIT_NOFILE, &before);
            rlimit none = {0, before.rlim_max};
            ::setrlimit(RLIMIT_NOFILE, &none);
        }
        ~Limit() { ::setrlimit(RLIMIT_NOFILE, &before); } // leaves errno alone
    } limit;
    return call();
}

// Milliseconds that a call took.
int64_t elapsed_ms(const std::function<void()> &call);

// The call's result, once it was seen to take so long: not less, and not much more.
template <typename Call>
auto takes_ms(int64_t wanted, Call call) {
    decltype(call()) result;
    int error = 0;
    int64_t took = elapsed_ms([&] {
        result = call();
        error = errno;
    });
    EXPECT_THAT(took, testing::AllOf(testing::Ge(wanted - 1), testing::Le(wanted + 60)));
    errno = error;
    return result;
}

// Asks again every few milliseconds until the answer is yes or the time is up; returns the answer.
bool wait_until(const std::function<bool()> &ready, int milliseconds = 5000);

// --- Other processes and hosts ---

// A program in the background, started through the shell, ended (by pid) with its scope.
class Background : Pinned {
  public:
    explicit Background(const std::string &command);
    ~Background();

    pid_t pid() const { return pid_; }
    void stop();

  private:
    pid_t pid_;
};

// Another host in a network namespace of its own, joined to ours by one cable:
//     Host provider("isp", "eth1", "10.1.0.2/24", "10.1.0.1/24");
// gives us eth1 with 10.1.0.2/24 and the host an interface "up0" with 10.1.0.1/24.
class Host : Pinned {
  public:
    Host(const std::string &name, const std::string &our_ifname, const std::string &our_address,
         const std::string &its_address);
    ~Host();

    // The command as one that runs there; for sh() and Background.
    std::string command(const std::string &text) const;

  private:
    std::string name_;
    std::string our_ifname_;
};

} // namespace lab
