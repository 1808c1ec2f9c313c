// The one-value files against the same through stdio.
#include <routerkit/files.h>
#include <routerkit/wan.h>

#include <array>
#include <cstdio>

#include "support/pairs.h"
#include "support/sandbox.h"

namespace {

constexpr std::array kNumberFiles = {"/var/small", "/var/large"};
constexpr std::array<long, 2> kNumbers = {7, 1234567};

// Opens a file through stdio, does something with it and closes it.
template <typename Use>
void with_file(const char *path, const char *mode, Use use) {
    std::FILE *file = std::fopen(path, mode);
    if (file != nullptr) {
        use(file);
        std::fclose(file);
    }
}

// A conversion that fails shows as a wrong answer.
void discard(int /*conversions*/) {}

void read_numbers() {
    static long number;
    auto answer = [] { return std::to_string(number); };
    bench::Row row("readNumFromFile", kNumberFiles.size());
    for (size_t i = 0; i < kNumberFiles.size(); ++i) {
        writeNumToFile(kNumberFiles[i], kNumbers[i]);
    }
    row.ours([](size_t i) { number = readNumFromFile(kNumberFiles[i]); }, answer);
    auto peer = [](size_t i) {
        with_file(kNumberFiles[i], "r",
                  [](std::FILE *file) { discard(std::fscanf(file, "%ld", &number)); });
    };
    row.peer("fopen + fscanf", 0.73, peer, answer);
}

void read_status() {
    static int status;
    auto answer = [] { return std::to_string(status); };
    bench::Row row("wan_getStatus", 2);
    writeLineToFile("/var/wan/1/status", "11 connecting");
    writeLineToFile("/var/wan/2/status", "20 connected");
    row.ours([](size_t i) { status = wan_getStatus(static_cast<unsigned>(i) + 1); }, answer);
    auto peer = [](size_t i) {
        with_file(i == 0 ? "/var/wan/1/status" : "/var/wan/2/status", "r",
                  [](std::FILE *file) { discard(std::fscanf(file, "%d", &status)); });
    };
    row.peer("fopen + fscanf", 0.73, peer, answer);
}

void read_address() {
    static uint32_t address;
    static int prefix;
    auto answer = [] { return std::to_string(address) + "/" + std::to_string(prefix); };
    bench::Row row("wan_getIP", 2);
    writeLineToFile("/var/wan/1/ip", "10.0.0.2/8");
    writeLineToFile("/var/wan/2/ip", "192.168.100.17/24");
    row.ours([](size_t i) { address = wan_getIP(static_cast<unsigned>(i) + 1, &prefix); }, answer);
    auto peer = [](size_t i) {
        unsigned a = 0;
        unsigned b = 0;
        unsigned c = 0;
        unsigned d = 0;
        with_file(i == 0 ? "/var/wan/1/ip" : "/var/wan/2/ip", "r", [&](std::FILE *file) {
            discard(std::fscanf(file, "%u.%u.%u.%u/%d", &a, &b, &c, &d, &prefix));
        });
        address = a << 24 | b << 16 | c << 8 | d;
    };
    row.peer("fopen + fscanf", 0.73, peer, answer);
}

void write_numbers() {
    static size_t last;
    auto answer = [] {
        long number = readNumFromFile(kNumberFiles[last]);
        createFile(kNumberFiles[last]); // so that the other side has to write, too
        return std::to_string(number);
    };
    bench::Row row("writeNumToFile", kNumberFiles.size());
    auto ours = [](size_t i) {
        last = i;
        writeNumToFile(kNumberFiles[i], kNumbers[i]);
    };
    auto peer = [](size_t i) {
        last = i;
        with_file(kNumberFiles[i], "w",
                  [i](std::FILE *file) { std::fprintf(file, "%li\n", kNumbers[i]); });
    };
    row.ours(ours, answer);
    row.peer("fopen + fprintf", 0.88, peer, answer);
}

} // namespace

void bench::declare_rows() {
    lab::enter_sandbox();
    for (const char *folder : {"/var/wan", "/var/wan/1", "/var/wan/2"}) {
        mkdirf("%s", folder);
    }
    read_numbers();
    read_status();
    read_address();
    write_numbers();
}
