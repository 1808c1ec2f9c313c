#include <routerkit/processes.h>

#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include <fcntl.h>
#include <routerkit/strings.h>
#include <sys/mount.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include "support/daemon.h"
#include "support/lab.h"

using lab::FailsWith;

namespace {

// What the C library's scanner finds in a process's status file.
std::string scanned_name(pid_t pid) {
    char name[64] = "";
    std::string status = lab::get("/proc/" + std::to_string(pid) + "/status");
    EXPECT_EQ(std::sscanf(status.c_str(), "Name: %63s", name), 1);
    return name;
}

void reset_term() {
    ::signal(SIGTERM, SIG_DFL);
}

void ignore_term() {
    ::signal(SIGTERM, SIG_IGN);
}

// A child that has ended and is not reaped before its owner ends.
class Zombie {
  public:
    explicit Zombie(const char *name) : pid_(::fork()) {
        if (pid_ == 0) {
            ::prctl(PR_SET_NAME, name);
            std::_Exit(0);
        }
        siginfo_t info;
        ::waitid(P_PID, static_cast<id_t>(pid_), &info, WEXITED | WNOWAIT);
    }
    ~Zombie() { ::waitpid(pid_, nullptr, 0); }
    Zombie(const Zombie &) = delete;
    Zombie &operator=(const Zombie &) = delete;
    pid_t pid() const { return pid_; }

  private:
    pid_t pid_;
};

// What a function prints to standard output.
std::string printed(const std::function<void()> &function) {
    std::fflush(stdout);
    int before = ::dup(STDOUT_FILENO);
    int file = ::open("/tmp/printed", O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0600);
    ::dup2(file, STDOUT_FILENO);
    function();
    std::fflush(stdout);
    ::dup2(before, STDOUT_FILENO);
    ::close(before);
    ::close(file);
    return lab::get("/tmp/printed");
}

// How many strf slots a function spends.
long slots_spent(const std::function<void()> &function) {
    const char *before = strf("x");
    function();
    const char *after = strf("x");
    return ((after - before) / 256 + 8) % 8 - 1;
}

TEST(Names, AreComparedAsTheKernelWritesThem) {
    lab::Census census;
    for (const char *name : {"plain", "fifteen-letters", "two words", " led", "back\\slash",
                             "new\nline", "tab\there", "trail ", "a|b", "\xd1\x8f", "(x)", ""}) {
        SCOPED_TRACE(name);
        lab::Daemon daemon(name);
        std::string expected = scanned_name(daemon.pid());
        EXPECT_EQ(find_pid_by_name(expected.c_str()), daemon.pid());
        EXPECT_EQ(killall(expected.c_str(), 0), 1);
        EXPECT_EQ(killall((expected + "|other").c_str(), 0), 1);
        EXPECT_EQ(find_pid_by_name((expected + "2").c_str()), 0);
        EXPECT_EQ(killall((expected + "2").c_str(), 0), 0);
    }
    EXPECT_EQ(find_pid_by_name(""), 0);
    EXPECT_EQ(killall("", 0), 0);
}

TEST(Names, OfAListAreWholeElements) {
    struct Case {
        const char *names;
        int count;
    };
    lab::Daemon pppd("pppd");
    lab::Daemon pppd2("pppd2");
    lab::Daemon dhcpc("dhcpc");
    lab::Daemon udhcpc("udhcpc");
    const Case cases[] = {
        {"udhcpc|pppd", 2}, {"pppd|udhcpc", 2}, {"pppd", 1},        {"pppd2|pppd", 2}, {"ppp|d", 0},
        {"|pppd|", 1},      {"xpppd|pppd", 1},  {"xpppd|pppdx", 0}, {"udhcpc|", 1},    {"|", 0},
        {"pppd pppd|x", 0}, {"pppd|pppd", 1},   {"pppd-pppd|x", 0}, {"pppd2", 1},
    };
    for (const Case &one : cases) {
        EXPECT_EQ(killall(one.names, 0), one.count) << one.names;
    }
    EXPECT_EQ(killall("udhcpc|pppd", SIGTERM), 2);
    EXPECT_TRUE(lab::wait_until([&] { return !pppd.alive() && !udhcpc.alive(); }));
    EXPECT_TRUE(pppd2.alive() && dhcpc.alive());
    EXPECT_EQ(killall("pppd2", 1000), 0) << "counts what kill accepts";
}

TEST(Names, OnlySignalledProcessesCount) {
    lab::Daemon daemon("foreign");
    auto counted = lab::holds_for_stranger([&] {
        return killall("foreign", SIGTERM) == 0 && killall("foreign", 0) == 1 &&
               find_pid_by_name("foreign") == daemon.pid();
    });
    if (!counted) {
        GTEST_SKIP() << "there is one user only";
    }
    EXPECT_TRUE(*counted);
    EXPECT_TRUE(daemon.alive());
}

TEST(Walks, FailWithoutProcOrDescriptors) {
    lab::Census census;
    auto find = [] { return find_pid_by_name("none"); };
    auto active = [] { return isCmdActive("none"); };
    auto count = [] { return killall("none", 0); };
    EXPECT_THAT(lab::without_descriptors(find), FailsWith(-1, EMFILE));
    EXPECT_THAT(lab::without_descriptors(active), FailsWith(-1, EMFILE));
    EXPECT_THAT(lab::without_descriptors(count), FailsWith(-1, EMFILE));
    EXPECT_EQ(find() + active() + count(), 0);
}

// What is in the way decides: a process that comes after the one looked for is not visited.
TEST(Walks, FindGivesUpAtAnUnreadableProcess) {
    lab::Daemon first("first");
    lab::Daemon broken("broken");
    lab::Daemon last("last");
    lab::put("/tmp/status", "Namen: broken\n");
    std::string status = "/proc/" + std::to_string(broken.pid()) + "/status";
    for (const char *stand_in : {"/dev/null", "/tmp/status"}) {
        ASSERT_EQ(::mount(stand_in, status.c_str(), nullptr, MS_BIND, nullptr), 0);
        lab::Census census;
        EXPECT_EQ(find_pid_by_name("first"), first.pid());
        EXPECT_EQ(find_pid_by_name("last"), -1);
        EXPECT_EQ(killall("first|last", 0), 2);
        ::umount(status.c_str());
    }
    EXPECT_EQ(find_pid_by_name("last"), last.pid());
}

TEST(Walks, ProcessesMayComeAndGo) {
    lab::Census census;
    lab::Daemon daemon("steady");
    lab::Background churn("sh -c 'while :; do /bin/true; done'");
    for (int round = 0; round < 300; ++round) {
        ASSERT_EQ(killall("steady", 0), 1);
        ASSERT_EQ(isCmdActive("no such command"), 0);
        int pid = find_pid_by_name("steady");
        ASSERT_TRUE(pid == daemon.pid() || pid == -1);
    }
}

TEST(CommandLine, MatchesWhole) {
    lab::Census census;
    std::string longer(300, 'x');
    lab::Background sleeper("sleep 1000.25");
    lab::Background empty_word("sh -c 'sleep 1001; exit' '' b");
    lab::Background long_line("sh -c 'read wait; exit' " + longer + " < /dev/zero");
    ASSERT_TRUE(lab::wait_until([] { return isCmdActive("sleep 1000.25") != 0; }));
    EXPECT_EQ(isCmdActive("sleep 1000.25"), sleeper.pid());
    for (const char *other : {"sleep", "sleep 1000.25 ", "sleep 1000.2", " sleep 1000.25",
                              "sleep  1000.25", "", "/bin/sleep 1000.25"}) {
        EXPECT_EQ(isCmdActive(other), 0) << other;
    }
    std::string shown = "sh -c read wait; exit " + longer;
    ASSERT_TRUE(lab::wait_until([&] { return isCmdActive(shown.substr(0, 255).c_str()) != 0; }));
    EXPECT_EQ(isCmdActive(shown.substr(0, 255).c_str()), long_line.pid());
    EXPECT_EQ(isCmdActive(shown.c_str()), 0) << "255 characters are looked at";
    EXPECT_EQ(isCmdActive(shown.substr(0, 254).c_str()), 0);
    ASSERT_TRUE(lab::wait_until([] { return isCmdActive("sh -c sleep 1001; exit  b") != 0; }));
    Zombie zombie("zombie");
    EXPECT_EQ(isCmdActive(""), 0) << "a zombie has no command line";
    EXPECT_EQ(find_pid_by_name("zombie"), zombie.pid());
}

TEST(Terminate, WaitsAsLongAsItIsTold) {
    lab::Census census;
    lab::Daemon obedient("obedient", reset_term);
    EXPECT_LT(lab::elapsed_ms([&] { EXPECT_EQ(terminate(obedient.pid(), 100, 0), 0); }), 200);

    lab::Daemon stubborn("stubborn", ignore_term);
    {
        lab::SignalStorm storm;
        EXPECT_NEAR(lab::elapsed_ms([&] { EXPECT_EQ(terminate(stubborn.pid(), 20, 100), 0); }), 215,
                    35);
    }
    EXPECT_FALSE(stubborn.alive());

    lab::Daemon hasty("hasty", ignore_term);
    int result = terminate(hasty.pid(), 0, 0);
    EXPECT_TRUE(result == 0 || result == -1) << "there is one look after SIGKILL";
    EXPECT_TRUE(lab::wait_until([&] { return !hasty.alive(); }));
    EXPECT_THAT(terminate(hasty.pid(), 1, 1), FailsWith(-1, ESRCH));
}

TEST(Terminate, AZombieIsStillThere) {
    Zombie zombie("zombie");
    int64_t time =
        lab::elapsed_ms([&] { EXPECT_THAT(terminate(zombie.pid(), 3, 4), FailsWith(-1, ETIME)); });
    EXPECT_NEAR(time, 75, 25);
}

TEST(Terminate, NobodyElseIsMeant) {
    lab::Daemon daemon("bystander");
    ::signal(SIGTERM, [](int) { ADD_FAILURE() << "a signal to our group"; });
    for (pid_t pid : {0, -1, -daemon.pid()}) {
        EXPECT_THAT(terminate(pid, 0, 0), FailsWith(-1, EINVAL));
    }
    ::signal(SIGTERM, SIG_DFL);
    EXPECT_TRUE(daemon.alive());
}

TEST(SelfName, IsTheOneInUse) {
    lab::Census census;
    EXPECT_STREQ(getProcSelfName(), "processes_test");
    ::prctl(PR_SET_NAME, "other\\name x");
    EXPECT_STREQ(getProcSelfName(), "other\\\\name");
    lab::without_descriptors([] { return getProcSelfName(); });
    EXPECT_STREQ(lab::without_descriptors([] { return getProcSelfName(); }), "other\\\\name");
    EXPECT_EQ(slots_spent([] { getProcSelfName(); }), 1);
    ::prctl(PR_SET_NAME, "processes_test");
}

TEST(Trace, ShowsTheAncestorsOldestFirst) {
    lab::Census census;
    lab::Background shell("sh -c 'sleep 1000; exit'");
    ASSERT_TRUE(lab::wait_until([] { return isCmdActive("sleep 1000") != 0; }));
    auto pid = static_cast<unsigned>(isCmdActive("sleep 1000"));
    auto trace = [&](unsigned depth) {
        return printed([&] { EXPECT_EQ(trace_pid(pid, depth), 0); });
    };
    std::string own = "[" + std::to_string(pid) + "]'sleep 1000'";
    std::string parent = "[" + std::to_string(shell.pid()) + "]'sh -c sleep 1000; exit'";
    EXPECT_EQ(trace(0), "");
    EXPECT_EQ(trace(1), "> " + own);
    EXPECT_EQ(trace(2), "> " + parent + "> " + own);
    std::string whole = trace(9); // the test program's parent is process 1
    EXPECT_EQ(whole.rfind("[" + std::to_string(::getpid()) + "]'", 0), 0U) << whole;
    EXPECT_THAT(whole, testing::EndsWith("'> " + parent + "> " + own));
    EXPECT_EQ(slots_spent([&] { trace(1); }), 1);
    EXPECT_EQ(slots_spent([&] { trace(9); }), 3);
    EXPECT_EQ(slots_spent([&] { trace(0); }), 0);
}

TEST(Trace, WhatHasNoCommandLineShowsItsName) {
    lab::Census census;
    Zombie zombie("gone)");
    unsigned pid = static_cast<unsigned>(zombie.pid());
    EXPECT_EQ(printed([&] { EXPECT_EQ(trace_pid(pid, 1), 0); }),
              "> [" + std::to_string(pid) + "]'gone)'");
    lab::Daemon two_words("two words");
    EXPECT_EQ(printed([&] {
                  EXPECT_EQ(trace_pid(static_cast<unsigned>(two_words.pid()), 3), -1);
                  EXPECT_THAT(trace_pid(4000000, 3), FailsWith(-1, ENOENT));
                  EXPECT_EQ(trace_pid(4000000, 0), 0);
              }),
              "");
}

} // namespace
