// What starting a program does to the host (nothing), and what of the host reaches the program.
#include <routerkit/commands.h>

#include <atomic>
#include <csignal>
#include <cstdlib>

#include <fcntl.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include "support/lab.h"

using lab::get;
using testing::ElementsAre;
using testing::HasSubstr;

namespace {

// The SigBlk, SigIgn and SigCgt lines of /proc/<pid>/status.
std::string signals_of(const std::string &status) {
    return status.substr(status.find("SigBlk"), status.find("CapInh") - status.find("SigBlk"));
}

uint64_t signal_set(const std::string &status, const std::string &name) {
    return std::stoull(status.substr(status.find(name) + name.size()), nullptr, 16);
}

uint64_t bit(int number) {
    return uint64_t{1} << (number - 1);
}

std::vector<std::string> environment_of(const std::string &output) {
    std::vector<std::string> entries;
    for (size_t from = 0, end; (end = output.find('\n', from)) != std::string::npos;
         from = end + 1) {
        entries.push_back(output.substr(from, end - from));
    }
    return entries;
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
        std::string before = signals_of(get("/proc/self/status"));
        char plain[8192];
        cmdf("cat /proc/self/status > /tmp/status");
        cmdf("nosuch");
        sncmdf(plain, sizeof plain, "cat /proc/self/status");
        lab::put("/tmp/plain", plain);
        return signals_of(get("/proc/self/status")) == before ? 0 : 1;
    });
    EXPECT_EQ(result, 0) << "the host's own signals";
    std::string status = get("/tmp/status");
    std::string plain = get("/tmp/plain");
    for (const std::string &text : {status, plain}) {
        EXPECT_EQ(signal_set(text, "SigBlk:"), bit(SIGUSR2) | bit(SIGRTMAX));
        EXPECT_EQ(signal_set(text, "SigCgt:"), 0U);
        EXPECT_EQ(signal_set(text, "SigIgn:") & (bit(SIGHUP) | bit(SIGTERM) | bit(SIGPIPE)),
                  bit(SIGHUP));
    }
    EXPECT_NE(signal_set(status, "SigIgn:") & bit(SIGINT), 0U) << "ignored in tools from /bin";
    EXPECT_EQ(signal_set(plain, "SigIgn:") & bit(SIGINT), 0U);
}

// A signal to the whole process group reaches children before they exec, too: it must not run the
// host's handler there, on the host's memory.
TEST(Spawn, HandlersOfTheHostNeverRunInTheChild) {
    static std::atomic<int> *strangers;
    static pid_t host;
    strangers = static_cast<std::atomic<int> *>(::mmap(
        nullptr, sizeof *strangers, PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0));
    int result = lab::in_child([] {
        host = ::getpid();
        ::setpgid(0, 0);
        ::signal(SIGUSR1, [](int) { *strangers += ::getpid() == host ? 0 : 1; });
        pid_t sender = ::fork();
        if (sender == 0) {
            ::signal(SIGUSR1, SIG_IGN);
            for (::alarm(20);;) {
                ::kill(0, SIGUSR1);
            }
        }
        int killed = 0;
        for (int i = 0; i < 5000 && killed < 40; ++i) {
            killed += cmdf("true") == SIGUSR1 ? 1 : 0;
        }
        ::kill(sender, SIGKILL);
        ::waitpid(sender, nullptr, 0);
        return killed == 40 ? 0 : 1;
    });
    EXPECT_EQ(result, 0) << "the signals have to arrive early to prove anything";
    EXPECT_EQ(*strangers, 0);
    ::munmap(strangers, sizeof *strangers);
}

TEST(Spawn, EnvironmentOfTheProgram) {
    char *first[] = {const_cast<char *>("A=1"), const_cast<char *>("PATH=/usr/bin:/bin"),
                     const_cast<char *>("PATHS=2"), const_cast<char *>("PATH=/x"), nullptr};
    char *second[] = {const_cast<char *>("A=1"), nullptr};
    char **kept = environ;
    char output[256];

    environ = first;
    EXPECT_EQ(cmdf("env > /tmp/env"), 0);
    EXPECT_THAT(environment_of(get("/tmp/env")),
                ElementsAre("A=1", "PATH=/bin", "PATHS=2", "PATH=/x"));
    EXPECT_EQ(sncmdf(output, sizeof output, "env"), 0);
    EXPECT_THAT(environment_of(output),
                ElementsAre("A=1", "PATH=/usr/bin:/bin", "PATHS=2", "PATH=/x"));
    EXPECT_STREQ(::getenv("PATH"), "/usr/bin:/bin");
    environ = second;
    EXPECT_EQ(cmdf("env > /tmp/env"), 0);
    EXPECT_THAT(environment_of(get("/tmp/env")), ElementsAre("A=1", "PATH=/bin"));
    EXPECT_EQ(environ, second);
    EXPECT_EQ(second[1], nullptr);
    environ = nullptr;
    EXPECT_EQ(cmdf("env > /tmp/env"), 0);
    environ = kept;
    EXPECT_THAT(environment_of(get("/tmp/env")), ElementsAre("PATH=/bin"));
}

TEST(Spawn, NoDescriptorOfTheLibraryReachesThePrograms) {
    char output[64] = "";
    lab::in_child([&] {
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

// Which streams come out wrong in a host that runs without some of the standard descriptors.
std::string wrong_streams() {
    char program[] = "speak";
    char *words[] = {program, nullptr};
    char output[16] = "";
    std::string wrong;
    auto expect = [&](const char *name, int status, const std::string &text) {
        wrong += status == 3 && get("/tmp/file") == text ? "" : std::string(name) + " ";
    };
    int status = sncmdf(output, sizeof output, "speak");
    wrong += status == 3 && output == std::string("out\n") ? "" : "sncmdf ";
    expect("lcmdf", lcmdf("speak > /tmp/file"), "out\n");
    expect("cmdf", cmdf("speak > /tmp/file"), "out\nerr\n");
    expect("qcmdf", qcmdf("speak > /tmp/file"), "out\nerr\n");
    expect("execulity", execulity(words, "/tmp/file"), "out\nerr\n");
    status = cmdf("nosuch > /tmp/file") == ENOENT ? 3 : 0;
    expect("nosuch", status, "nosuch: No such file or directory\n");
    return wrong;
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
            lab::put("/tmp/wrong", wrong_streams() + "end");
            return 0;
        });
        EXPECT_EQ(get("/tmp/wrong"), "end") << "closed: " << closed;
        std::vector<std::string> log = lab::take_log();
        EXPECT_THAT(log, ElementsAre("err: (3)\"err\" < speak ", HasSubstr("execvp(nosuch")))
            << closed;
    }
}

TEST(Spawn, FailedProgramsLeaveTheHostsStdioAndExitHandlersAlone) {
    ::mkfifo("/tmp/gate", 0600);
    int result = lab::in_child([] {
        FILE *file = std::fopen("/tmp/once", "we");
        std::fputs("once", file);
        std::atexit([] { lab::put("/tmp/exited", ""); });
        char buffer[8];
        lab::printed([&] {
            cmdf("nosuch");
            cmdf("true > /tmp/no/file");
            sncmdf(buffer, sizeof buffer, "nosuch");
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
