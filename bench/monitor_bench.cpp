// The statistics against the same reads through stdio, and an entry of a full event log against a
// plain append.
#include <routerkit/files.h>
#include <routerkit/logs.h>
#include <routerkit/stats.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>

#include <fcntl.h>
#include <sys/mount.h>
#include <unistd.h>

#include "support/pairs.h"
#include "support/sandbox.h"

namespace {

constexpr const char *kLog = "/tmp/log";
constexpr const char *kPlain = "/tmp/plain";
constexpr size_t kEntry = 300;
constexpr size_t kEntries = 50;

cpu_stat cpu;
mem_info memory;
char load[80];

// The kernel takes its time to make up its answers, the same for everyone: a copy in memory that
// stands in a file's place leaves what the callers differ in.
void stand_in(const char *path) {
    static char text[65536];
    const std::string copy = std::string("/tmp") + std::strrchr(path, '/');
    if (readStrFromFile(path, text, sizeof text) < 0 || writeStrToFile(copy.c_str(), text) < 0 ||
        ::mount(copy.c_str(), path, nullptr, MS_BIND, nullptr) != 0) {
        std::perror(path);
        std::exit(1);
    }
}

// Through stdio, as hosts would do it.
template <typename Use>
void with_file(const char *path, Use use) {
    std::FILE *file = std::fopen(path, "r");
    if (file != nullptr) {
        use(file);
        std::fclose(file);
    }
}

// A conversion that fails shows as a wrong answer.
void discard(int /*conversions*/) {}

void read_cpu() {
    bench::Row row("read_cpuinfo");
    auto answer = [] {
        return std::to_string(cpu.system) + " of " + std::to_string(calc_total_stat(&cpu));
    };
    row.ours([](size_t) { read_cpuinfo(&cpu); }, answer);
    auto peer = [](size_t) {
        with_file("/proc/stat", [](std::FILE *file) {
            long long user, nice, system, idle, iowait, irq, softirq, steal;
            discard(std::fscanf(file, "cpu %lld %lld %lld %lld %lld %lld %lld %lld", &user, &nice,
                                &system, &idle, &iowait, &irq, &softirq, &steal));
            cpu = {user, system, nice, idle, iowait, irq, softirq, steal};
        });
    };
    row.peer("fopen + fscanf", 0.6, peer, answer);
}

void read_memory() {
    bench::Row row("get_meminfo");
    auto answer = [] {
        return std::to_string(memory.used) + " of " + std::to_string(memory.total);
    };
    row.ours([](size_t) { get_meminfo(&memory); }, answer);
    auto peer = [](size_t) {
        with_file("/proc/meminfo", [](std::FILE *file) {
            unsigned long total = 0, unused = 0, buffers = 0, cached = 0;
            char unit[16];
            discard(std::fscanf(file, "MemTotal: %lu %15s\n", &total, unit));
            discard(std::fscanf(file, "MemFree: %lu %15s\n", &unused, unit));
            discard(std::fscanf(file, "Buffers: %lu %15s\n", &buffers, unit));
            discard(std::fscanf(file, "Cached: %lu %15s\n", &cached, unit));
            memory = {static_cast<uint32_t>(total),   static_cast<uint32_t>(total - unused),
                      static_cast<uint32_t>(unused),  0,
                      static_cast<uint32_t>(buffers), static_cast<uint32_t>(cached)};
        });
    };
    row.peer("fopen + fscanf", 0.6, peer, answer);
}

// Nothing is parsed here: the system calls are all of it.
void read_load() {
    bench::Row row("get_loadavg");
    auto answer = [] { return std::string(load, std::strcspn(load, "\n")); };
    row.ours([](size_t) { get_loadavg(load); }, answer);
    auto through_stdio = [](size_t) {
        with_file("/proc/loadavg",
                  [](std::FILE *file) { discard(std::fscanf(file, "%79[^\n]", load)); });
    };
    row.peer("fopen + fscanf", 0.6, through_stdio, answer);
    auto bare = [](size_t) {
        int fd = ::open("/proc/loadavg", O_RDONLY | O_CLOEXEC);
        discard(static_cast<int>(::read(fd, load, sizeof load)));
        ::close(fd);
    };
    row.peer("open + read + close", 1.1, bare, answer);
}

// The log is read whole for each entry, since it has no index: eight system calls (open, three
// blocks and the end, seek, write, close), 15 000 bytes copied and 50 times read, against three.
void write_entry() {
    static const char *last;
    static const std::string text(280, 'x');
    static std::string record = std::to_string(std::time(nullptr)) + ", " + text;
    record.resize(kEntry - 1);
    record += '\n';
    for (size_t i = 0; i < kEntries; ++i) {
        circ_open_and_write(kLog, kEntry, kEntries, text.c_str());
    }
    auto answer = [] { // of the file's first record all but the time
        char bytes[kEntry];
        return readFile(last, bytes, sizeof bytes) < 0 ? "" : std::string(bytes + 10, kEntry - 10);
    };
    bench::Row row("circ_open_and_write, 50 of 50", 1000);
    row.ours(
        [](size_t) {
            last = kLog;
            circ_open_and_write(kLog, kEntry, kEntries, text.c_str());
        },
        answer);
    auto append = [](size_t i) {
        last = kPlain;
        int fd = ::open(kPlain, O_WRONLY | O_APPEND | O_CREAT | O_CLOEXEC, 0666);
        if (i == 0 && ::ftruncate(fd, 0) != 0) { // or it would fill the memory
            std::perror(kPlain);
        }
        discard(static_cast<int>(::write(fd, record.data(), record.size())));
        ::close(fd);
    };
    row.peer("open + write + close", 5, append, answer);
}

} // namespace

void bench::declare_rows() {
    lab::enter_sandbox();
    for (const char *path : {"/proc/stat", "/proc/meminfo", "/proc/loadavg"}) {
        stand_in(path);
    }
    read_cpu();
    read_memory();
    read_load();
    write_entry();
}
