#include <routerkit/stats.h>

#include <cstring>
#include <thread>

#include <sys/mount.h>
#include <sys/syscall.h>

#include "support/lab.h"
#include "support/syscalls.h"

using lab::without_descriptors;
using testing::ElementsAre;

namespace {

// Stands in for a file of /proc from now on, with other contents at each call.
void serve(const std::string &path, const std::string &content) {
    const std::string copy = "/tmp" + path;
    bool bound = lab::exists(copy);
    lab::put(copy, content);
    if (!bound) {
        ASSERT_EQ(::mount(copy.c_str(), path.c_str(), nullptr, MS_BIND, nullptr), 0);
    }
}

// All fields of a record, each of which is a Number.
template <typename Number, typename Record>
std::string fields(const Record &record) {
    Number numbers[sizeof record / sizeof(Number)];
    std::memcpy(numbers, &record, sizeof record);
    std::string text;
    for (Number number : numbers) {
        text += std::to_string(number) + " ";
    }
    return text;
}

TEST(Stats, ProcessorSamplesAndTheirShares) {
    lab::Census census;
    const char *const cases[][2] = {
        {"cpu  1 2 3 4 5 6 7 8 9 10\ncpu0 11 12 13\n", "1 3 2 4 5 6 7 8 "},
        {"cpu 5000000000 1 9223372036854775807 4", "5000000000 9223372036854775807 1 4 0 0 0 0 "},
        {"cpu 1 2 3\ncpu0 1 2 3\n", "1 3 2 0 0 0 0 0 "},
        {"cpu 1 2 x 4 5 6 7 8", "1 0 2 0 0 0 0 0 "},
        {"intr 1 2 3 4 5 6 7 8", "0 0 0 0 0 0 0 0 "},
        {"", "0 0 0 0 0 0 0 0 "}};
    cpu_stat sample = {9, 9, 9, 9, 9, 9, 9, 9};
    EXPECT_EQ(without_descriptors([&] { return read_cpuinfo(&sample); }), 0);
    EXPECT_EQ(calc_total_stat(&sample), 0);
    for (const auto &[file, wanted] : cases) {
        serve("/proc/stat", file);
        sample = {9, 9, 9, 9, 9, 9, 9, 9};
        EXPECT_EQ(read_cpuinfo(&sample), 0);
        EXPECT_EQ(fields<int64_t>(sample), wanted) << file;
    }
    const cpu_stat before = {100, 100, 7, 100, 0, 0, 0, 1LL << 32};
    const cpu_stat after = {103, 101, 7, 101, 0, 0, 0, 1LL << 32};
    for (const cpu_stat *from : {&before, &after}) {
        sample = {9, 9, 9, 9, 9, 9, 9, 9};
        calc_stat(from, from == &before ? &after : &before, &sample);
        EXPECT_EQ(fields<int64_t>(sample), "60 20 0 20 0 0 0 0 ");
        calc_stat(from, from, &sample);
        EXPECT_EQ(calc_total_stat(&sample), 0);
    }
    EXPECT_EQ(calc_value_percent(5, 8, 0), 0);
    EXPECT_EQ(calc_value_percent(1LL << 32, 2, 3), 66) << "the low 32 bits, truncated";
    EXPECT_EQ(calc_value_percent(0x10, 0xfffffff0, 64), 50) << "across the wrap";
    for (uint32_t i = 0, noise = 1; i < 1000; ++i, noise = noise * 1664525 + 1013904223) {
        const int value = static_cast<int>(noise >> (1 + i % 31));
        const int total = static_cast<int>(noise >> (i / 33) | 1);
        EXPECT_EQ(calc_value_percent(value, 0, total), static_cast<int>(value * 100LL / total))
            << value << " of " << total;
    }
    const cpu_stat far = {1LL << 31, 0, 0, 0, 0, 0, 0, 0};
    sample = {};
    calc_stat(&sample, &far, &sample);
    EXPECT_EQ(sample.user, 100) << "the largest distance";

    serve("/proc/stat", "cpu 100 7 100 100 0 0 0 0\n");
    std::thread load([] {
        lab::wait_until([] { return false; }, 25);
        serve("/proc/stat", "cpu 103 7 101 101 0 0 0 0\n");
    });
    lab::SignalStorm storm;
    lab::takes_ms(50, [&] { return get_cpuinfo(&sample), 0; });
    load.join();
    EXPECT_EQ(fields<int64_t>(sample), "60 20 0 20 0 0 0 0 ");
}

TEST(Stats, MemoryUpToTheFirstUnexpectedLine) {
    lab::Census census;
    const std::string both = "MemTotal:          29000 kB\nMemFree: 5000 kB\n";
    const std::string rest = "Buffers: 1000 kB\nCached: 7000 kB";
    const std::pair<std::string, const char *> cases[] = {
        {both + rest + "\nSwapCached: 3 kB\n", "29000 24000 5000 0 1000 7000 "},
        {both + rest.substr(0, rest.size() - 3), "29000 24000 5000 0 1000 7000 "},
        {both + "MemAvailable: 1 kB\n" + rest, "29000 24000 5000 0 9 9 "},
        {both + "Cached: 7000 kB\n", "29000 24000 5000 0 9 9 "},
        {"MemTotal: 29 kB\nMemFree: much", "29 20 9 0 9 9 "},
        {"MemTotal: 29 " + std::string(3000, 'k') + "\nMemFree: 5", "29 20 9 0 9 9 "},
        {rest + both, "9 0 9 0 9 9 "}};
    mem_info info[2] = {{9, 9, 9, 9, 9, 9}, {}};
    EXPECT_EQ(without_descriptors([&] { return get_meminfo(info); }), 0);
    EXPECT_EQ(fields<uint32_t>(info[0]), "9 9 9 9 9 9 ");
    for (const auto &[file, wanted] : cases) {
        serve("/proc/meminfo", file);
        info[0] = {9, 9, 9, 9, 9, 9};
        const int used = get_meminfo(info);
        EXPECT_EQ(used, static_cast<int>(info[0].used));
        EXPECT_EQ(fields<uint32_t>(info[0]), wanted) << file;
    }
    EXPECT_EQ(fields<uint32_t>(info[1]), "0 0 0 0 0 0 ") << "nothing is written behind the record";
}

TEST(Stats, LoadLineAsItStandsAndTheCostOfEachRead) {
    char text[80];
    serve("/proc/loadavg", "0.20 0.18 0.12 1/80 11206\n");
    EXPECT_EQ(get_loadavg(text), 26);
    EXPECT_STREQ(text, "0.20 0.18 0.12 1/80 11206\n");
    serve("/proc/loadavg", std::string(100, '1'));
    EXPECT_EQ(get_loadavg(text), 79);
    cpu_stat cpu;
    mem_info memory;
    auto all = [&] { read_cpuinfo(&cpu), get_meminfo(&memory), get_loadavg(text); };
    EXPECT_THAT(lab::system_calls(all),
                ElementsAre(SYS_openat, SYS_read, SYS_close, SYS_openat, SYS_read, SYS_close,
                            SYS_openat, SYS_read, SYS_close));
}

TEST(Stats, StationTablesAndJunk) {
    const std::string header = "-- STA info table -- (active: 2)\n";
    const std::string first = "1: stat_info...\n", word(5000, '1');
    const std::pair<std::string, const char *> cases[] = {
        {header + "\n" + first + "    hwaddr: 021234567890\n    rssi: 47 (-53 dBm)\n" +
             "2: stat_info...\r\n\trssi:\t-60\r\n\thwaddr: " + word + "\n3: stat_info...\nrssi: 99",
         "2: 021234567890 47, 111111111111111111111111111111 -60"},
        {header + first + "state: AUTH ASOC\nrssi: 5\nhwaddr: a", "2: a 9,  9"}, // "ASOC\nrssi"
        {header + first + word + ": " + word + "\nrssi: 5", "2:  5,  9"},
        {header + first + "rssi: none\n2: stat_info...", "2:  0,  9"},
        {header, "2:  9,  9"},
        {"(active: 1)" + first + "rssi: 5\n" + first + "rssi: 6", "1:  5,  9"},
        {"(active: 0)" + first + "rssi: 5", "0:  9,  9"},
        {header + first + "rssi: 5\nno colon", "-1:  5,  9"},
        {header + first + "rssi: 5\n: no key", "-1:  5,  9"},
        {header + first + "rssi: 5\nrssi:", "-1:  5,  9"},
        {header + "rssi: 5", "-1:  9,  9"},
        {": 2)" + first + "rssi: 5", "-1:  9,  9"},
        {"(active: two)" + first, "-1:  9,  9"},
        {"(active: 2" + first, "-1:  9,  9"},
        {"(active: -2)" + first + "rssi: 5", "-1:  9,  9"},
        {"no header", "-1:  9,  9"},
        {"", "-1:  9,  9"}};
    for (const auto &[table, wanted] : cases) {
        sta_info stations[3] = {{"", 9}, {"", 9}, {"", 9}};
        lab::Fenced text(table + '\0');
        std::string seen = std::to_string(wlan_procStaInfo(text.data(), stations)) + ":";
        for (const sta_info &one : {stations[0], stations[1]}) {
            seen += " " + std::string(one.hwaddr, strnlen(one.hwaddr, sizeof one.hwaddr)) + " " +
                    std::to_string(one.rssi) + ",";
        }
        EXPECT_EQ(seen, wanted + std::string(",")) << table;
        EXPECT_EQ(stations[2].rssi, 9) << "no more than the header says";
    }
}

} // namespace
