// What starting a program does to the host (nothing), and what of the host reaches the program.
#include <routerkit/commands.h>

#include <array>
#include <bitset>
#include <cctype>
#include <csignal>
#include <cstdlib>

#include <fcntl.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include "support/lab.h"

using lab::get;
using testing::ElementsAre;
using testing::HasSubstr;

namespace {

using Signals = std::bitset<128>; // MIPS has so many, other processors half of them

// The sets of signals in /proc/<pid>/status: blocked, ignored, caught.
std::array<Signals, 3> signal_sets(const std::string &status) {
    std::array<Signals, 3> sets = {};
    for (size_t i = 0; i < 3; ++i) {
        const char *names[] = {"SigBlk:\t", "SigIgn:\t", "SigCgt:\t"};
        size_t at = status.find(names[i]) + 8;
        for (; std::isxdigit(status.at(at)) != 0; ++at) {
            sets[i] = sets[i] << 4 | Signals(std::stoul(status.substr(at, 1), nullptr, 16));
        }
    }
    return sets;
}

Signals bit(int number) {
    return Signals(1) << static_cast<size_t>(number - 1);
}

TEST(Spawn, SignalsAreThoseOfAForkAndExec) {
    int result = lab::in_child([] {
        sigset_t blocked;
        ::sigemptyset(&blocked);
        ::sigaddset(&blocked, SIGUSR2);
        ::sigaddset(&blocked, SIGRTMAX);
        ::sigprocmask(SIG_SETMASK, &blocked, nullptr);
        ::signal(SIGPIPE, SIG_DFL);
        ::signal(SIGHUP, SIG_IGN);
        for (int number : {SIGINT, SIGTERM, SIGUSR2, SIGRTMIN + 3}) {
            ::signal(number, [](int) {});
        }
        auto before = signal_sets(get("/proc/self/status"));
        char plain[8192];
        cmdf("cat /proc/self/status > /tmp/bin");
        cmdf("nosuch");
        sncmdf(plain, sizeof plain, "cat /proc/self/status");
        lab::put("/tmp/plain", plain);
        return signal_sets(get("/proc/self/status")) == before ? 0 : 1;
    });
    EXPECT_EQ(result, 0) << "the host's own signals";
    for (const char *path : {"/tmp/bin", "/tmp/plain"}) {
        auto [blocked, ignored, caught] = signal_sets(get(path));
        EXPECT_EQ(blocked, bit(SIGUSR2) | bit(SIGRTMAX));
        EXPECT_EQ(ignored & (bit(SIGHUP) | bit(SIGTERM) | bit(SIGPIPE)), bit(SIGHUP));
        EXPECT_EQ((ignored & bit(SIGINT)).any(), path == std::string("/tmp/bin"));
        EXPECT_EQ(caught, Signals());
    }
}

// A signal to the whole process group reaches children before they exec, too: it must not run the
// host's handler there, on the host's memory.
TEST(Spawn, HandlersOfTheHostNeverRunInTheChild) {
    static pid_t host;
    int result = lab::in_child([] {
        host = ::getpid();
        ::setpgid(0, 0);
        ::signal(SIGUSR1, [](int) { ::getpid() == host ? void() : ::_exit(99); });
        pid_t sender = ::fork();
        if (sender == 0) {
            ::signal(SIGUSR1, SIG_IGN);
            for (::alarm(20);;) {
                ::kill(0, SIGUSR1);
            }
        }
        int killed = 0;
        int status = 0;
        for (int i = 0; i < 5000 && killed < 40 && status != 99; ++i) {
            status = cmdf("true");
            killed += status == SIGUSR1 ? 1 : 0;
        }
        ::kill(sender, SIGKILL);
        ::waitpid(sender, nullptr, 0);
        return status == 99 ? 99 : killed;
    });
    EXPECT_EQ(result, 40) << "99: one ran; fewer: the signals have to arrive early";
}

TEST(Spawn, EnvironmentOfTheProgram) {
    char *first[] = {const_cast<char *>("A=1"), const_cast<char *>("PATH=/usr/bin:/bin"),
                     const_cast<char *>("PATHS=2"), const_cast<char *>("PATH=/x"), nullptr};
    char *second[] = {const_cast<char *>("A=1"), nullptr};
    char **kept = environ;
    auto seen = [](char **environment) {
        environ = environment;
        cmdf("env > /tmp/env");
        return get("/tmp/env");
    };
    EXPECT_EQ(seen(first), "A=1\nPATH=/bin\nPATHS=2\nPATH=/x\n");
    char output[256];
    EXPECT_EQ(sncmdf(output, sizeof output, "env"), 0);
    EXPECT_STREQ(output, "A=1\nPATH=/usr/bin:/bin\nPATHS=2\nPATH=/x\n");
    EXPECT_EQ(seen(second), "A=1\nPATH=/bin\n");
    EXPECT_EQ(second[1], nullptr);
    EXPECT_EQ(seen(nullptr), "PATH=/bin\n");
    environ = kept;
}

TEST(Spawn, NoDescriptorOfTheLibraryReachesThePrograms) {
    lab::in_child([] {
        char output[64];
        ::close_range(3, ~0U, 0);
        lcmdf("ls /proc/self/fd > /tmp/logging");
        cmdf("ls /proc/self/fd > /tmp/file");
        sncmdf(output, sizeof output, "ls /proc/self/fd");
        lab::put("/tmp/captured", output);
        return 0;
    });
    for (const char *path : {"/tmp/logging", "/tmp/file", "/tmp/captured"}) {
        EXPECT_EQ(get(path), "0\n1\n2\n3\n") << path << ": 3 is the folder that ls reads";
    }
}

TEST(Spawn, HostsWithoutStandardStreams) {
    lab::put_program("speak", "#!/bin/sh\necho out\necho err >&2\nexit 3\n");
    for (unsigned closed = 0; closed < 8; ++closed) {
        lab::in_child([closed] {
            for (int fd = 0; fd < 3; ++fd) {
                if ((closed >> fd & 1) != 0) {
                    ::close(fd);
                }
            }
            const char *words[] = {"speak", nullptr};
            char output[16] = "";
            sncmdf(output, sizeof output, "speak");
            std::string seen = output;
            for (auto *runner : {lcmdf, cmdf, qcmdf}) {
                seen += std::to_string(runner("speak > /tmp/file"));
                seen += get("/tmp/file");
            }
            execulity(const_cast<char *const *>(words), "/tmp/file");
            seen += get("/tmp/file");
            cmdf("nosuch > /tmp/file");
            lab::put("/tmp/seen", seen + get("/tmp/file"));
            return 0;
        });
        EXPECT_EQ(get("/tmp/seen"), "out\n3out\n3out\nerr\n3out\nerr\nout\nerr\n"
                                    "nosuch: No such file or directory\n")
            << "closed: " << closed;
        EXPECT_THAT(lab::take_log(),
                    ElementsAre("err: (3)\"err\" < speak ", HasSubstr("execvp(nosuch")))
            << closed;
    }
}

TEST(Spawn, FailedProgramsLeaveTheHostsStdioAndExitHandlersAlone) {
    ::mkfifo("/tmp/gate", 0600);
    int result = lab::in_child([] {
        FILE *file = std::fopen("/tmp/once", "we");
        std::fputs("once", file);
        std::atexit([] { lab::put("/tmp/exited", ""); });
        lab::printed([] {
            cmdf("nosuch");
            cmdf("true > /tmp/no/file");
            lcmdf("nosuch");
            reinitApply();
            pid_t pid = forkcmdf("nosuch > /tmp/gate");
            get("/tmp/gate");
            _waitpid(pid);
        });
        std::fclose(file);
        return 0;
    });
    EXPECT_EQ(result, 0);
    EXPECT_EQ(get("/tmp/once"), "once");
    EXPECT_FALSE(lab::exists("/tmp/exited"));
}

// A text without the line that names its interpreter runs in the shell, as execvp has it.
TEST(Spawn, ScriptsWithoutAnInterpreterLine) {
    lab::put_program("bare", "exit 6\n");
    char buffer[8];
    EXPECT_EQ(cmdf("bare"), 6);
    EXPECT_EQ(sncmdf(buffer, sizeof buffer, "bare"), 6);
}

} // namespace
