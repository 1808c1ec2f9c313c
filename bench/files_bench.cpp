// The one-value files against the same through stdio.
#include <routerkit/conversions.h>
#include <routerkit/files.h>
#include <routerkit/wan.h>

#include <cstdio>

#include "support/pairs.h"
#include "support/sandbox.h"

namespace {

// The file's first conversion through stdio; the value stays as it was when there is none.
template <typename Value>
void scan_file(const char *path, const char *format, Value value) {
    FILE *file = std::fopen(path, "r");
    if (file != nullptr) {
        if (std::fscanf(file, format, value) != 1) {
            std::perror(path);
        }
        std::fclose(file);
    }
}

void read_numbers() {
    static long number;
    static int status;
    auto number_answer = [] { return std::to_string(number); };
    bench::Row file("readNumFromFile");
    writeNumToFile("/var/number", 1234567);
    file.ours([](size_t) { number = readNumFromFile("/var/number"); }, number_answer);
    file.peer(
        "fopen + fscanf", 0.73, [](size_t) { scan_file("/var/number", "%ld", &number); },
        number_answer);

    auto status_answer = [] { return std::to_string(status); };
    bench::Row state("wan_getStatus");
    writeLineToFile("/var/wan/2/status", "20 connected");
    state.ours([](size_t) { status = wan_getStatus(2); }, status_answer);
    state.peer(
        "fopen + fscanf", 0.73, [](size_t) { scan_file("/var/wan/2/status", "%d", &status); },
        status_answer);
}

void read_address() {
    static char text[20];
    static uint32_t address;
    static int prefix;
    auto answer = [] { return std::to_string(address) + "/" + std::to_string(prefix); };
    bench::Row row("wan_getIP");
    writeLineToFile("/var/wan/2/ip", "192.168.100.17/24");
    row.ours([](size_t) { address = wan_getIP(2, &prefix); }, answer);
    row.peer(
        "fopen + fscanf", 0.73,
        [](size_t) {
            unsigned octets[4];
            FILE *file = std::fopen("/var/wan/2/ip", "r");
            if (file != nullptr && std::fscanf(file, "%u.%u.%u.%u/%d", &octets[0], &octets[1],
                                               &octets[2], &octets[3], &prefix) == 5) {
                address = octets[0] << 24 | octets[1] << 16 | octets[2] << 8 | octets[3];
            }
            std::fclose(file);
        },
        answer);
}

void write_numbers() {
    bench::Row row("writeNumToFile");
    auto answer = [] { return std::to_string(readNumFromFile("/var/number")); };
    row.ours([](size_t) { writeNumToFile("/var/number", 86400); }, answer);
    row.peer(
        "fopen + fprintf", 0.88,
        [](size_t) {
            FILE *file = std::fopen("/var/number", "w");
            std::fprintf(file, "%li\n", 86400L);
            std::fclose(file);
        },
        answer);
}

} // namespace

void bench::declare_rows() {
    lab::enter_sandbox();
    char folder[] = "/var/wan/2";
    mkpath(folder, 0);
    read_numbers();
    read_address();
    write_numbers();
}
