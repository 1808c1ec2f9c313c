// Which system calls a piece of code makes.
#pragma once

#include <functional>
#include <vector>

#include <sys/syscall.h>

namespace lab {

// What stat() and send() call: the kernels for different processors have different ones.
#ifdef SYS_newfstatat
constexpr long kStat = SYS_newfstatat;
#else
constexpr long kStat = SYS_statx;
#endif
#ifdef SYS_send
constexpr long kSend = SYS_send;
#else
constexpr long kSend = SYS_sendto;
#endif

// The numbers (SYS_read, ...) of the system calls that a function makes, in their order:
//     EXPECT_THAT(lab::system_calls([] { ... }), testing::ElementsAre(SYS_openat, SYS_read));
// The function runs in a child process under ptrace: its effects on memory stay there, expectations
// inside it count for nothing, and processes that it starts are not followed. Call whatever warms
// up (a first clock reading, a first allocation) beforehand. Fails the test when the child dies.
std::vector<long> system_calls(const std::function<void()> &function);

// Runs a function in a child process that is killed when it is about to make its n-th system call,
// counted from 1. False if it came to its end: it makes fewer.
bool cut_off(size_t n, const std::function<void()> &function);

} // namespace lab
