#include <routerkit/logs.h>

#include <algorithm>
#include <cstdlib>
#include <ctime>
#include <sstream>

#include <net/if.h>
#include <netinet/in.h>
#include <sys/wait.h>

#include "support/fake_ioctl.h"
#include "support/lab.h"
#include "support/syscalls.h"

using lab::FailsWith;
using lab::get;
using lab::put;

namespace {

time_t now = 7; // what the wall clock shows

constexpr const char *kLog = "/tmp/log";
constexpr size_t kSize = 16;

// A whole record: the text, cut or filled up with NUL bytes, and a newline.
std::string record(std::string text, size_t size = kSize) {
    text.resize(size - 1);
    return text + '\n';
}

} // namespace

extern "C" time_t time(time_t *out) noexcept {
    return out != nullptr ? *out = now : now;
}

namespace {

// The first test of the program: the record size is still unset.
TEST(Logs, RefusedSizesAndFiles) {
    lab::Census census;
    FILE *stream = std::fopen(kLog, "w+e");
    EXPECT_THAT(circ_write_entry(stream, "x"), FailsWith(-1, EINVAL));
    EXPECT_THAT(circ_find_last_entry_offset(stream), FailsWith(0, EINVAL));
    EXPECT_EQ(circ_open_and_write("/tmp/other", 20, 9, "x"), 0);
    for (size_t size : {0, 5121}) {
        EXPECT_THAT(circ_open_and_write("/tmp/refused", size, 9, "x"), FailsWith(-1, EINVAL));
    }
    EXPECT_EQ(circ_write_entry(stream, "size 20 still holds"), 0);
    EXPECT_EQ(circ_write_entry(nullptr, "x"), -1);
    std::fclose(stream);
    EXPECT_EQ(get(kLog).size(), 20U);
    EXPECT_FALSE(lab::exists("/tmp/refused"));

    EXPECT_THAT(circ_open_and_write("/tmp/no/log", kSize, 3, "x"), FailsWith(-1, ENOENT));
    EXPECT_THAT(circ_open_and_write("/tmp", kSize, 3, "x"), FailsWith(-1, EISDIR));
    EXPECT_EQ(IncreaseCountInFile("/tmp/no/count"), 0);
    EXPECT_EQ(IncreaseCountInFile("/tmp"), 0);
    lab::sh("mkdir /tmp/full && mount -t tmpfs -o size=4k lab /tmp/full && echo > /tmp/full/all");
    EXPECT_EQ(circ_open_and_write("/tmp/full/new", kSize, 3, "x"), 0) << "nobody is told";
    EXPECT_EQ(IncreaseCountInFile("/tmp/full/new"), -1);
    EXPECT_EQ(get("/tmp/full/new"), "");
    lab::sh("umount /tmp/full");
}

TEST(Logs, NextEntryGoesBehindTheNewest) {
    struct Case {
        const char *before; // the texts of the records
        size_t missing;     // bytes at the end
        size_t slot;
    };
    for (const Case &one : {
             Case{"", 0, 0}, Case{"50,a", 0, 1},
             Case{"50,a 60,b 70,c", 0, 0},             // the newest is in the last slot
             Case{"70,a 50,b 60,c", 0, 1},             // the circle closes, or the clock was set
             Case{"50,a 70,b 70,c", 0, 0},             // of equal times the last,
             Case{"70,a 70,b 60,c", 0, 2},             // also before the oldest
             Case{"70,a 60,b 60,c 60,d 60,e", 0, 1},   // a log that had more slots
             Case{"50,a 60,b 60,c 60,d 70,e", 0, 0},   //
             Case{"50,a 60,b", 7, 1},                  // a record cut short
             Case{"70,a", 7, 0},                       //
             Case{"junk", 0, 1},                       // no time: that of the one before, or 0
             Case{"60,a junk 50,b", 0, 2},             //
             Case{"-5,a junk", 0, 0},                  // before 1970: older than everything
             Case{"50,a 0000000000000001 60,b", 0, 0}, // no number goes on in the next record
         }) {
        std::string log;
        std::istringstream texts(one.before);
        for (std::string text; texts >> text;) {
            log += text.size() == kSize ? text : record(text);
        }
        log.resize(log.size() - one.missing);
        put(kLog, log);
        log.resize(std::max(log.size(), (one.slot + 1) * kSize));
        now = 40;
        EXPECT_EQ(circ_open_and_write(kLog, kSize, 3, "now"), 0);
        EXPECT_EQ(get(kLog), log.replace(one.slot * kSize, kSize, record("40, now"))) << one.before;
    }
}

TEST(Logs, EntriesAreCutToTheRecordAndCountersTo7Digits) {
    now = 7;
    for (size_t size : {1, 2, 5, 9, 5120}) {
        const std::string text(size - 1, 'x'), path = "/tmp/size" + std::to_string(size);
        EXPECT_EQ(circ_open_and_write(path.c_str(), size, 0, text.c_str()), 0);
        EXPECT_EQ(circ_open_and_write(path.c_str(), size, 0, text.c_str()), 0);
        EXPECT_EQ(get(path), record("7, " + text, size)) << "no slots are as one";
    }
    EXPECT_EQ(IncreaseCountInFile("/tmp/count"), 0);
    EXPECT_EQ(get("/tmp/count"), "1");
    const char *const counts[][2] = {{"", "1"},
                                     {"41", "42"},
                                     {"999999\n", "1000000"},
                                     {"9999999", "1000000"},
                                     {"12345678", "1234568"},
                                     {"x7", "1"},
                                     {"\n41", "1"},
                                     {"-3", "-2"}};
    for (const auto &[before, after] : counts) {
        put("/tmp/count", before);
        EXPECT_EQ(IncreaseCountInFile("/tmp/count"), 0);
        EXPECT_EQ(get("/tmp/count"), after) << before;
    }
}

TEST(Logs, TwoProgramsLogPppoeFrames) {
    lab::Census census;
    pppoed_frame_log(nullptr, 7);
    EXPECT_FALSE(lab::exists("/tmp/pppoed_frame_log_7") ||
                 lab::exists("/tmp/pppoed_frame_count_7"));
    const pid_t other = ::fork();
    const int instance = other == 0 ? 8 : 7;
    std::string expected;
    for (now = 1700000001; now <= 1700000050; ++now) {
        const std::string time = std::to_string(now);
        pppoed_frame_log(std::string(400, 'p').c_str(), instance);
        expected += record(time + ", " + time + ";" + std::string(244, 'p'), 300);
    }
    pppoed_frame_log("PADI", instance);
    if (other == 0) {
        std::_Exit(0);
    }
    ::waitpid(other, nullptr, 0);
    expected.replace(0, 300, record("1700000051, 1700000051;PADI", 300));
    for (const char *which : {"7", "8"}) {
        EXPECT_EQ(get(std::string("/tmp/pppoed_frame_log_") + which), expected);
        EXPECT_EQ(get(std::string("/tmp/pppoed_frame_count_") + which), "51");
    }
    auto add = [] { circ_open_and_write("/tmp/pppoed_frame_log_7", 300, 50, "PADO"); };
    // open, three blocks and the end, seek, write, close; the C library may add one of its own
    EXPECT_THAT(lab::system_calls(add), testing::SizeIs(testing::Le(9U)));
}

TEST(Logs, DhcpEventsNameThePort) {
    ::setenv("TZ", "LAB-3", 1);
    now = 1794853723; // 2026-11-16 18:28:43 in UTC
    const char mac[] = "\x02\xab\0\0\0\x01";
    const uint32_t ip = htonl(0xc0a80001);
    EXPECT_EQ(dhcp_log("ack", mac, ip, "laptop"), 0);
    EXPECT_THAT(lab::take_log(), testing::ElementsAre("err: br_mac2port: ioctl: No such device"));
    lab::on_ioctl = [&](unsigned long, void *request) { // the bridge knows it behind port 3
        auto *words = reinterpret_cast<unsigned long *>(static_cast<ifreq *>(request)->ifr_data);
        std::string(mac, 6).append("\3").copy(reinterpret_cast<char *>(words[1]), 7);
        return 1;
    };
    ++now;
    const std::string cut(600, 't');
    EXPECT_EQ(dhcp_log(cut.c_str(), mac, ip, "laptop"), 0);
    lab::on_ioctl = nullptr;
    const std::string station = ";02:AB:00:00:00:01;192.168.0.1;";
    EXPECT_EQ(get("/tmp/dhcp_log"),
              record("1794853723, 16-11-2026 21:28:43;LAN" + station + "ack;laptop;", 300) +
                  record("1794853724, 16-11-2026 21:28:44;LAN3" + station + cut, 300));
    EXPECT_EQ(get("/tmp/dhcp_events_count"), "2");
    for (int i = 3; i <= 21; ++i) {
        ++now;
        dhcp_log("more", mac, ip, "");
    }
    lab::take_log();
    EXPECT_EQ(get("/tmp/dhcp_log").size(), 20U * 300);
    EXPECT_EQ(get("/tmp/dhcp_log").find("ack;"), std::string::npos) << "the first one is gone";

    char text[] = "####################";
    EXPECT_EQ(time_t2humanview(text), 19);
    EXPECT_STREQ(text, "16-11-2026 21:29:03");
    ::setenv("TZ", "LAB-4", 1);
    time_t2humanview(text);
    EXPECT_STREQ(text, "16-11-2026 22:29:03");
    if constexpr (sizeof now > 4) {
        now = static_cast<time_t>(253402300800); // the year 10000
        EXPECT_EQ(time_t2humanview(text), 0);
        EXPECT_STREQ(text, "");
    }
}

} // namespace
