// What the next start finds when the writer of a file was killed in the middle, or when the disk did
// not take what was written; docs/storage.md says what host programs can rely on.
#include <cerrno>
#include <functional>
#include <set>
#include <string>

#include <sys/mount.h>

#include <routerkit/files.h>
#include <routerkit/logs.h>
#include <routerkit/wan.h>

#include "support/lab.h"
#include "support/syscalls.h"

using lab::FailsWith;
using lab::get;
using lab::put;
using testing::AnyOf;

using States = std::set<std::string>;

namespace {

constexpr char kTotal[] = "/var/wan/1/all-sessions-time";
constexpr char kRoutes[] = "/var/wan/1/routes";
constexpr char kLog[] = "/tmp/log";

// The states found after a writer was killed before its first, second, ... system call.
States states_after_cuts(const std::function<void()> &prepare, const std::function<void()> &write,
                         const std::function<std::string()> &state) {
    States found;
    for (size_t n = 1; n < 100; ++n) {
        prepare();
        if (!lab::cut_off(n, write)) {
            EXPECT_GT(n, 3U) << "the writer makes system calls";
            return found;
        }
        found.insert(state());
    }
    ADD_FAILURE() << "the writer has no end";
    return found;
}

TEST(PowerCut, AStoppedSessionIsCountedOnceOrNotOrTheTotalStartsAnew) {
    auto session_of_an_hour = [] {
        lab::sh("rm -rf /var/wan");
        put("/var/wan/1/type", "1");
        put(kTotal, "1000\n");
        put("/var/wan/1/uptime", "1\n");
    };
    States found = states_after_cuts(
        session_of_an_hour, [] { wan_stopSession(1); },
        [] {
            bool runs = lab::exists("/var/wan/1/uptime");
            wan_stopSession(1); // what a daemon does first when it starts
            wan_startSession(1);
            EXPECT_LE(wan_getUptime(1), 1U) << "a new session";
            long total = readNumFromFile(kTotal);
            std::string counted = total == 0 ? "lost" : total == 1000 ? "as before" : "counted";
            return (runs ? "running, " : "stopped, ") + counted;
        });
    EXPECT_EQ(found, (States{"running, counted", "stopped, as before", "stopped, counted",
                             "stopped, lost"}));
}

TEST(PowerCut, ALogLosesTheNewEntryAtMost) {
    constexpr size_t kSize = 32;
    auto write = [](const char *text) { circ_open_and_write(kLog, kSize, 3, text); };
    auto full = [&] {
        ::unlink(kLog);
        for (const char *text : {"one", "two", "three"}) {
            write(text);
        }
    };
    States found = states_after_cuts(
        full, [&] { write("four"); },
        [&] {
            std::string log = get(kLog);
            EXPECT_EQ(log.size(), 3 * kSize);
            write("five");
            EXPECT_EQ(get(kLog).size(), 3 * kSize);
            return log.find("four") != log.npos ? "new" : "old";
        });
    EXPECT_EQ(found, (States{"new", "old"}));
}

TEST(PowerCut, ACounterOrARouteFileIsOldNewOrEmpty) {
    EXPECT_EQ(states_after_cuts([] { put("/tmp/count", "41"); },
                                [] { IncreaseCountInFile("/tmp/count"); },
                                [] {
                                    std::string left = get("/tmp/count");
                                    EXPECT_EQ(IncreaseCountInFile("/tmp/count"), 0);
                                    return left;
                                }),
              (States{"", "41", "42"}));
    constexpr wan_route_t kNew[] = {{0x0a000000, 0xff000000, 0xc0a80101},
                                    {0xac100000, 0xfff00000, 0xc0a80102}};
    wan_route_t read[4];
    EXPECT_EQ(
        states_after_cuts([] { put(kRoutes, "10.9.0.0/16-192.168.1.1\n"); },
                          [&] { wan_writeRoutes(1, kNew, 2); },
                          [&] { return std::to_string(wan_readRoutes(1, read, 4)) + " routes"; }),
        (States{"0 routes", "1 routes", "2 routes"}));
}

// The folder of a connection on a disk with room for so many blocks of 4 KB.
class SmallDisk {
  public:
    explicit SmallDisk(int blocks) {
        lab::sh("mkdir -p /var/wan/1 && mount -t tmpfs -o size=" + std::to_string(4 * blocks) +
                "k small /var/wan/1");
    }
    ~SmallDisk() { lab::sh("umount /var/wan/1"); }
    SmallDisk(const SmallDisk &) = delete;
    SmallDisk &operator=(const SmallDisk &) = delete;
};

TEST(FullDisk, WhatDidNotFitIsToldAndTheWholeLinesOfItAreRead) {
    SmallDisk disk(1);
    std::vector<wan_route_t> routes(300, {0x0a0b0c00, 0xffffff00, 0xc0a80101});
    lab::Census census;
    EXPECT_THAT(wan_writeRoutes(1, routes.data(), routes.size()), FailsWith(-1, ENOSPC));
    std::string left = get(kRoutes);
    EXPECT_EQ(left.size(), 4096U);
    size_t whole = static_cast<size_t>(std::count(left.begin(), left.end(), '\n'));
    std::vector<wan_route_t> read(300);
    int count = wan_readRoutes(1, read.data(), read.size());
    EXPECT_THAT(count, AnyOf(whole, whole + 1)) << "the last line may be cut";
    for (size_t i = 0; i < whole; ++i) {
        EXPECT_EQ(read[i].gateway, routes[i].gateway);
    }
    EXPECT_THAT(appendStrToFile(kRoutes, "x"), FailsWith(-1, ENOSPC));
    EXPECT_THAT(writeNumToFile(kTotal, 5), FailsWith(-1, ENOSPC));
    EXPECT_EQ(readNumFromFile(kTotal), 0);
    ::unlink(kRoutes);
    EXPECT_GT(writeNumToFile(kTotal, 5), 0) << "room again";
}

TEST(ReadOnlyDisk, KeepsWhatItHas) {
    SmallDisk disk(4);
    put(kTotal, "1000\n");
    put("/var/wan/1/uptime", "1\n");
    put(kRoutes, "10.9.0.0/16-192.168.1.1\n");
    ASSERT_EQ(::mount("small", "/var/wan/1", nullptr, MS_REMOUNT | MS_RDONLY, nullptr), 0);
    lab::Census census;
    wan_route_t route = {};
    EXPECT_THAT(wan_writeRoutes(1, &route, 1), FailsWith(-1, EROFS));
    EXPECT_EQ(wan_readRoutes(1, &route, 1), 1);
    EXPECT_EQ(wan_stopSession(1), 0);
    EXPECT_EQ(readNumFromFile(kTotal), 1000);
    EXPECT_EQ(readNumFromFile("/var/wan/1/uptime"), 1) << "the session goes on";
    EXPECT_THAT(circ_open_and_write("/var/wan/1/log", 32, 3, "x"), FailsWith(-1, EROFS));
    EXPECT_EQ(IncreaseCountInFile("/var/wan/1/count"), 0);
    EXPECT_THAT(flagFile("/var/wan/1/flag", 1), FailsWith(-1, EROFS));
}

} // namespace
