// A real server beside a benchmark program.
#pragma once

#include <csignal>
#include <cstdio>
#include <cstdlib>

#include <sched.h>
#include <sys/prctl.h>
#include <unistd.h>

namespace bench {

[[noreturn]] inline void give_up(const char *step) {
    std::perror(step);
    std::exit(1);
}

// This program and the server take turns on one processor, as on a router that has no second one;
// where the scheduler wakes the server would otherwise decide more than the rows do.
inline void stay_on_one_processor() {
    cpu_set_t one;
    CPU_ZERO(&one);
    CPU_SET(::sched_getcpu(), &one);
    if (::sched_setaffinity(0, sizeof one, &one) != 0) {
        give_up("sched_setaffinity");
    }
}

// Its name and arguments; it ends with this program.
template <typename... Arguments>
void start_server(const char *name, Arguments... arguments) {
    if (::fork() == 0) {
        ::prctl(PR_SET_PDEATHSIG, SIGKILL);
        ::execlp(name, name, arguments..., nullptr);
        std::_Exit(127);
    }
}

} // namespace bench
