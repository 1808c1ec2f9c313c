#include "support/syscalls.h"

#include <cerrno>
#include <csignal>
#include <cstdlib>

#include <gtest/gtest.h>
#include <sys/ptrace.h>
#include <sys/wait.h>
#include <unistd.h>

namespace lab {
namespace {

// No kernel has a call of this number: made before and after the function, it marks the part that
// counts.
constexpr long kMarker = 0x7fff;

[[noreturn]] void run_traced(const std::function<void()> &function) {
    if (::ptrace(PTRACE_TRACEME, 0, nullptr, nullptr) != 0) {
        std::_Exit(EXIT_FAILURE);
    }
    ::raise(SIGSTOP); // until the parent is ready
    ::syscall(kMarker);
    function();
    ::syscall(kMarker);
    std::_Exit(EXIT_SUCCESS);
}

// The number of the call that a stopped child is about to make, or -1 on its way out of one.
long entered_call(pid_t child) {
    __ptrace_syscall_info info = {};
    if (::ptrace(PTRACE_GET_SYSCALL_INFO, child, sizeof info, &info) < 0) {
        ADD_FAILURE() << "ptrace cannot tell the system calls here, errno " << errno;
    }
    return info.op == PTRACE_SYSCALL_INFO_ENTRY ? static_cast<long>(info.entry.nr) : -1;
}

// Lets the child go on to its next stop; the status of that stop.
int resume(pid_t child, int signal) {
    int status = 0;
    ::ptrace(PTRACE_SYSCALL, child, nullptr, signal);
    ::waitpid(child, &status, 0);
    return status;
}

// Shows each system call of the function to `look`, which ends the child by saying false; whether it
// came to its end.
bool trace(const std::function<void()> &function, const std::function<bool(long)> &look) {
    pid_t child = ::fork();
    if (child == 0) {
        run_traced(function);
    }
    int status = 0;
    ::waitpid(child, &status, 0);
    ::ptrace(PTRACE_SETOPTIONS, child, nullptr, PTRACE_O_TRACESYSGOOD | PTRACE_O_EXITKILL);
    int markers = 0;
    int signal = 0;
    while (WIFSTOPPED(status = resume(child, signal))) {
        bool at_call = WSTOPSIG(status) == (SIGTRAP | 0x80);
        signal = at_call ? 0 : WSTOPSIG(status);
        long call = at_call ? entered_call(child) : -1;
        markers += call == kMarker ? 1 : 0;
        if (markers == 1 && call >= 0 && call != kMarker && !look(call)) {
            ::kill(child, SIGKILL);
        }
    }
    return WIFEXITED(status) && WEXITSTATUS(status) == EXIT_SUCCESS && markers == 2;
}

} // namespace

std::vector<long> system_calls(const std::function<void()> &function) {
    std::vector<long> calls;
    EXPECT_TRUE(trace(function, [&](long call) {
        calls.push_back(call);
        return true;
    })) << "the traced child ended early";
    return calls;
}

bool cut_off(size_t n, const std::function<void()> &function) {
    size_t made = 0;
    return !trace(function, [&](long) { return ++made != n; });
}

} // namespace lab
