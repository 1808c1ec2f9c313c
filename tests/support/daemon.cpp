#include "support/daemon.h"

#include <csignal>
#include <cstdlib>

#include <fcntl.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include "support/lab.h"

namespace lab {

Daemon::Daemon(const std::string &name, const std::function<void()> &prepare) : pid_(-1) {
    int ready[2];
    EXPECT_EQ(::pipe2(ready, O_CLOEXEC), 0);
    pid_t parent = ::fork();
    if (parent == 0) {
        if (::fork() != 0) {
            std::_Exit(0);
        }
        ::prctl(PR_SET_NAME, name.c_str());
        prepare();
        pid_t self = ::getpid();
        (void)!::write(ready[1], &self, sizeof self);
        for (;;) {
            ::pause();
        }
    }
    ::close(ready[1]);
    ::waitpid(parent, nullptr, 0);
    EXPECT_EQ(::read(ready[0], &pid_, sizeof pid_), static_cast<ssize_t>(sizeof pid_));
    ::close(ready[0]);
}

Daemon::~Daemon() {
    if (alive()) {
        ::kill(pid_, SIGKILL);
        EXPECT_TRUE(wait_until([this] { return !alive(); }));
    }
}

bool Daemon::alive() const {
    return pid_ > 0 && ::kill(pid_, 0) == 0;
}

std::optional<bool> holds_for_stranger(const std::function<bool()> &check) {
    constexpr int kNobodyElse = 2;
    pid_t child = ::fork();
    if (child == 0) {
        std::_Exit(::setuid(1) != 0 ? kNobodyElse : check() ? 0 : 1);
    }
    int status = -1;
    ::waitpid(child, &status, 0);
    return status == kNobodyElse << 8 ? std::nullopt : std::optional(status == 0);
}

} // namespace lab
