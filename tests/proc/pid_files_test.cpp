#include <routerkit/processes.h>

#include <algorithm>
#include <climits>
#include <csignal>

#include <unistd.h>

#include "support/daemon.h"
#include "support/lab.h"

using lab::FailsWith;

namespace {

constexpr const char *kFile = "/var/run/daemon.pid";

void ignore_term() {
    ::signal(SIGTERM, SIG_IGN);
}

void put_pid(pid_t pid) {
    lab::put(kFile, std::to_string(pid) + "\n");
}

// A number in the file, as far as a long holds it.
constexpr long saturated(long long number) {
    return static_cast<long>(std::min<long long>(number, LONG_MAX));
}

// None of these may ever reach kill: 0, -1 and the others would be groups, or everybody.
TEST(PidFiles, ContentsThatNameNoProcess) {
    struct Case {
        const char *text; // null: no file
        long number;
        int killed; // killByPidFile's result
    };
    const Case cases[] = {{nullptr, -1, 0},
                          {"", 0, 1},
                          {"0\n", 0, 1},
                          {"junk", 0, 1},
                          {"-1\n", -1, 0},
                          {"2147483648\n", saturated(2147483648), 1},
                          {"4294967297\n", saturated(4294967297), 1}};
    lab::Census census;
    ::signal(SIGTERM, [](int) { ADD_FAILURE() << "a signal to everybody"; });
    for (const Case &one : cases) {
        SCOPED_TRACE(one.number);
        if (one.text != nullptr) {
            lab::put(kFile, one.text);
        }
        EXPECT_EQ(getPid_fromFile(kFile), one.number);
        bool possible = one.number == INT_MAX; // where that is the largest long
        EXPECT_EQ(sendSignalByPidFile(SIGTERM, kFile), possible ? -1 : -2);
        EXPECT_EQ(lab::exists(kFile), one.text != nullptr);
        EXPECT_EQ(killByPidFile(SIGTERM, "%s", kFile), one.killed);
        EXPECT_EQ(lab::exists(kFile), one.text != nullptr && one.killed == 0);
        ::unlink(kFile);
    }
    ::signal(SIGTERM, SIG_DFL);
}

TEST(PidFiles, HoldTheWritersPid) {
    lab::Census census;
    std::string text = std::to_string(::getpid()) + "\n";
    lab::put(kFile, "old content");
    EXPECT_EQ(setPid_toFile(kFile), static_cast<int>(text.size()));
    EXPECT_EQ(lab::get(kFile), text);
    EXPECT_EQ(sendSignalByPidFile(0, kFile), 0);
    EXPECT_THAT(sendSignalByPidFile(1000, kFile), FailsWith(-1, EINVAL));
    EXPECT_THAT(setPid_toFile("/var/missing/file"), FailsWith(-1, ENOENT));
}

// Kills by the file, which has to go, and tells after how long that was done.
int64_t killed_after(int signal) {
    int64_t time =
        lab::elapsed_ms([&] { EXPECT_EQ(killByPidFile(signal, "/var/%s", "run/daemon.pid"), 1); });
    EXPECT_FALSE(lab::exists(kFile));
    return time;
}

TEST(PidFiles, DaemonsThatEndAndDaemonsThatStay) {
    lab::Daemon obedient("obedient");
    put_pid(obedient.pid());
    EXPECT_LT(killed_after(SIGTERM), 150);
    EXPECT_FALSE(obedient.alive());
    put_pid(obedient.pid()); // stale
    EXPECT_THAT(sendSignalByPidFile(SIGTERM, kFile), FailsWith(-1, ESRCH));
    EXPECT_LT(killed_after(SIGTERM), 50);

    lab::Daemon stubborn("stubborn", ignore_term);
    put_pid(stubborn.pid());
    {
        lab::SignalStorm storm;
        EXPECT_NEAR(killed_after(SIGTERM), 410, 40);
    }
    EXPECT_TRUE(lab::wait_until([&] { return !stubborn.alive(); }));
    lab::Daemon killed("killed", ignore_term);
    put_pid(killed.pid());
    EXPECT_EQ(killDaemonByPidFile(kFile), 1);
    EXPECT_TRUE(lab::wait_until([&] { return !killed.alive(); }));
}

TEST(PidFiles, AForeignProcessAndItsFileStay) {
    lab::Daemon daemon("foreign");
    put_pid(daemon.pid());
    auto refused = lab::holds_for_stranger([] {
        return killByPidFile(SIGTERM, kFile) == -1 && errno == EPERM &&
               sendSignalByPidFile(SIGTERM, kFile) == -1 && errno == EPERM;
    });
    EXPECT_NE(refused, false) << "no answer: there is one user only";
    EXPECT_TRUE(lab::exists(kFile));
    EXPECT_TRUE(daemon.alive());
    EXPECT_THAT(killByPidFile(1000, kFile), FailsWith(-1, EINVAL));
    EXPECT_TRUE(lab::exists(kFile));
}

// What the cut path would name must stay as it is.
TEST(PidFiles, ALongPathIsRefused) {
    std::string path = "/var/run/" + std::string(246, 'p');
    ASSERT_EQ(path.size(), 255U);
    lab::Daemon daemon("untouched");
    lab::put(path, std::to_string(daemon.pid()));
    EXPECT_THAT(killByPidFile(SIGTERM, "%s%s", path.c_str(), "q"), FailsWith(-1, ENOBUFS));
    EXPECT_TRUE(lab::exists(path));
    EXPECT_TRUE(daemon.alive());
    EXPECT_EQ(killDaemonByPidFile(path.c_str()), 1);
    EXPECT_FALSE(lab::exists(path));
}

} // namespace
