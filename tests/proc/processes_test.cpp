#include <routerkit/processes.h>

#include <csignal>
#include <cstdint>
#include <cstdio>
#include <cstdlib>

#include <sys/mount.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <routerkit/strings.h>

#include "support/daemon.h"
#include "support/lab.h"

using lab::FailsWith;
using testing::AllOf;
using testing::Ge;
using testing::Lt;
using testing::Pair;

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
    const std::pair<const char *, int> cases[] = {
        {"udhcpc|pppd", 2}, {"pppd|udhcpc", 2}, {"pppd", 1},        {"pppd2|pppd", 2}, {"ppp|d", 0},
        {"|pppd|", 1},      {"xpppd|pppd", 1},  {"xpppd|pppdx", 0}, {"udhcpc|", 1},    {"|", 0},
        {"pppd pppd|x", 0}, {"pppd|pppd", 1},   {"pppd-pppd|x", 0}, {"pppd2", 1}};
    lab::Daemon pppd("pppd");
    lab::Daemon pppd2("pppd2");
    lab::Daemon dhcpc("dhcpc");
    lab::Daemon udhcpc("udhcpc");
    for (auto [names, count] : cases) {
        EXPECT_EQ(killall(names, 0), count) << names;
    }
    EXPECT_EQ(killall("udhcpc|pppd", SIGTERM), 2);
    EXPECT_TRUE(lab::wait_until([&] { return !pppd.alive() && !udhcpc.alive(); }));
    EXPECT_EQ(killall("pppd2", 1000), 0) << "counts what kill accepts";
    auto counted = lab::holds_for_stranger(
        [] { return killall("pppd2", SIGTERM) == 0 && killall("pppd2", 0) == 1; });
    EXPECT_NE(counted, false) << "only the signalled count (no answer: there is one user only)";
    EXPECT_TRUE(pppd2.alive() && dhcpc.alive());
}

TEST(Walks, FailWithoutDescriptors) {
    lab::Census census;
    const std::function<int()> walks[] = {[] { return find_pid_by_name("none"); },
                                          [] { return isCmdActive("none"); },
                                          [] { return killall("none", 0); }};
    for (const auto &walk : walks) {
        EXPECT_THAT(lab::without_descriptors(walk), FailsWith(-1, EMFILE));
        EXPECT_EQ(walk(), 0);
    }
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
    std::string longer = "sh -c read wait; exit " + std::string(300, 'x');
    lab::Background sleeper("sleep 1000.25");
    lab::Background empty_word("sh -c 'sleep 1001; exit' '' b");
    lab::Background long_line("sh -c 'read wait; exit' " + std::string(300, 'x') + " < /dev/zero");
    Zombie zombie("zombie");
    const std::pair<std::string, pid_t> active[] = {
        {"sleep 1000.25", sleeper.pid()},
        {"sh -c sleep 1001; exit  b", empty_word.pid()},
        {longer.substr(0, 255), long_line.pid()}}; // as much as is looked at
    for (const auto &[line, pid] : active) {
        EXPECT_TRUE(lab::wait_until([&] { return isCmdActive(line.c_str()) == pid; })) << line;
    }
    for (const std::string &other :
         {std::string("sleep"), std::string("sleep 1000.25 "), std::string("sleep 1000.2"),
          std::string(" sleep 1000.25"), std::string("sleep  1000.25"), longer,
          longer.substr(0, 254), std::string() /* as a zombie's */}) {
        EXPECT_EQ(isCmdActive(other.c_str()), 0) << other;
    }
    EXPECT_EQ(find_pid_by_name("zombie"), zombie.pid());
}

// The milliseconds that it took, and the result.
std::pair<int64_t, int> terminated(pid_t pid, int waitTerm, int waitKill) {
    int result = -2;
    int64_t time = lab::elapsed_ms([&] { result = terminate(pid, waitTerm, waitKill); });
    return {time, result};
}

TEST(Terminate, WaitsAsLongAsItIsTold) {
    lab::Census census;
    lab::Daemon obedient("obedient", reset_term);
    EXPECT_THAT(terminated(obedient.pid(), 100, 0), Pair(Lt(600), 0));
    EXPECT_THAT(terminate(obedient.pid(), 1, 1), FailsWith(-1, ESRCH));
    lab::Daemon stubborn("stubborn", ignore_term);
    {
        lab::SignalStorm storm;
        EXPECT_THAT(terminated(stubborn.pid(), 20, 100), Pair(AllOf(Ge(180), Lt(600)), 0));
    }
    lab::Daemon hasty("hasty", ignore_term);
    terminate(hasty.pid(), 0, 0); // one look after SIGKILL: either result
    EXPECT_TRUE(lab::wait_until([&] { return !hasty.alive(); }));
    Zombie zombie("zombie");
    EXPECT_THAT(terminated(zombie.pid(), 3, 4), Pair(AllOf(Ge(70), Lt(400)), -1));
    EXPECT_THAT(terminate(zombie.pid(), 0, 0), FailsWith(-1, ETIME)) << "it is still there";
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
    EXPECT_STREQ(lab::without_descriptors([] { return getProcSelfName(); }), "other\\\\name");
    EXPECT_EQ(slots_spent([] { getProcSelfName(); }), 1);
    ::prctl(PR_SET_NAME, "processes_test");
}

// What a trace prints; its result has to be this one.
std::string trace(pid_t pid, unsigned depth, int result = 0) {
    return lab::printed([&] { EXPECT_EQ(trace_pid(static_cast<unsigned>(pid), depth), result); })
        .output;
}

std::string entry(pid_t pid, const std::string &text) {
    return "[" + std::to_string(pid) + "]'" + text + "'";
}

TEST(Trace, ShowsTheAncestorsOldestFirst) {
    lab::Census census;
    lab::Background shell("sh -c 'sleep 1000; exit'");
    ASSERT_TRUE(lab::wait_until([] { return isCmdActive("sleep 1000") != 0; }));
    pid_t pid = isCmdActive("sleep 1000");
    const std::string own = "> " + entry(pid, "sleep 1000");
    const std::string two = "> " + entry(shell.pid(), "sh -c sleep 1000; exit") + own;
    EXPECT_EQ(trace(pid, 0), "");
    EXPECT_EQ(trace(pid, 1), own);
    EXPECT_EQ(trace(pid, 2), two);
    std::string whole = trace(pid, 9); // the test program's parent is process 1
    EXPECT_THAT(whole, testing::StartsWith("[" + std::to_string(::getpid()) + "]'"));
    EXPECT_THAT(whole, testing::EndsWith("'" + two));
    EXPECT_EQ(slots_spent([&] { trace(pid, 9); }), 3);
    EXPECT_EQ(slots_spent([&] { trace(pid, 0); }), 0);
}

TEST(Trace, WhatHasNoCommandLineShowsItsName) {
    lab::Census census;
    Zombie zombie("gone)");
    EXPECT_EQ(trace(zombie.pid(), 1), "> " + entry(zombie.pid(), "gone)"));
    lab::Daemon two_words("two words");
    EXPECT_EQ(trace(two_words.pid(), 3, -1), "");
    EXPECT_EQ(trace(4000000, 3, -1), "");
    EXPECT_EQ(trace(4000000, 0), "");
}

} // namespace
