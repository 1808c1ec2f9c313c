// errno discipline: the errno that a caller sees is that of the call that failed.
#pragma once

#include <cerrno>

namespace rk {

// Puts errno back at the end of a scope: for cleanup and logging after a failure.
class ErrnoSaver {
  public:
    ErrnoSaver() : saved_(errno) {}
    ~ErrnoSaver() { errno = saved_; }
    ErrnoSaver(const ErrnoSaver &) = delete;
    ErrnoSaver &operator=(const ErrnoSaver &) = delete;

  private:
    int saved_;
};

// For `return fail(EINVAL);`: sets errno and gives the usual failure result. One copy, which a hundred
// places call.
[[nodiscard, gnu::noinline]] inline int fail(int error) {
    errno = error;
    return -1;
}

// Whether the system call that has just failed did so because a signal arrived. One copy, too.
[[nodiscard, gnu::noinline]] inline bool interrupted() {
    return errno == EINTR;
}

// Repeats a system call for as long as a signal interrupts it. Never for close: on Linux the
// descriptor is gone even when close reports EINTR.
template <typename Call>
auto retry_eintr(Call call) {
    for (;;) {
        auto result = call();
        if (result >= 0 || !interrupted()) {
            return result;
        }
    }
}

} // namespace rk
