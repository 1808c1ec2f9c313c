#include <routerkit/stats.h>

#include <algorithm>
#include <cstddef>
#include <cstdlib>
#include <cstring>
#include <string_view>

#include <routerkit/clocks.h>
#include <routerkit/files.h>

#include "support/chars.h"
#include "support/lines.h"

using std::string_view;

static_assert(sizeof(cpu_stat) == 64 && offsetof(cpu_stat, steal) == 56 && sizeof(mem_info) == 24 &&
                  offsetof(mem_info, cached) == 20 && offsetof(sta_info, rssi) == 32 &&
                  sizeof(sta_info) == 36,
              "host programs read the fields");

namespace {

constexpr size_t kLoadLine = 80;
constexpr unsigned kCpuIntervalMs = 50;

// In the order of the columns of /proc/stat (proc(5)), which is not the record's.
constexpr int64_t cpu_stat::*kColumns[] = {
    &cpu_stat::user,   &cpu_stat::nice, &cpu_stat::system,  &cpu_stat::idle,
    &cpu_stat::iowait, &cpu_stat::irq,  &cpu_stat::softirq, &cpu_stat::steal,
};

// The low 32 bits of a - b, made positive.
uint32_t distance(int64_t a, int64_t b) {
    const uint32_t difference = static_cast<uint32_t>(a) - static_cast<uint32_t>(b);
    return static_cast<int32_t>(difference) < 0 ? 0 - difference : difference;
}

bool is_blank(char character) { // as isspace has it, in any locale
    return character == ' ' || (character >= '\t' && character <= '\r');
}

const char *skip_blanks(const char *text) {
    while (is_blank(*text)) {
        ++text;
    }
    return text;
}

// The next blank, or the end of the text.
const char *skip_word(const char *text) {
    while (*text != '\0' && !is_blank(*text)) {
        ++text;
    }
    return text;
}

// Reads the number that comes next and steps over it; without one changes nothing.
bool take_number(const char *&text, uint64_t &number) {
    const char *digit = skip_blanks(text);
    if (*digit < '0' || *digit > '9') {
        return false;
    }
    uint64_t value = 0;
    for (; *digit >= '0' && *digit <= '9'; ++digit) {
        value = value * 10 + static_cast<unsigned>(*digit - '0');
    }
    number = value;
    text = digit;
    return true;
}

// The first lines of /proc/meminfo (proc(5)). Keys in the rows themselves: pointers would have to be
// relocated at every program's start.
struct Amount {
    char key[10];
    uint32_t mem_info::*field;
};

constexpr Amount kAmounts[] = {
    {"MemTotal:", &mem_info::total},
    {"MemFree:", &mem_info::free},
    {"Buffers:", &mem_info::buffers},
    {"Cached:", &mem_info::cached},
};

// Reads "<key> <number> <unit>" and steps over it.
bool take_amount(const char *&text, const Amount &amount, mem_info &out) {
    if (!rk::begins_with(text, amount.key)) {
        return false;
    }
    text += std::strlen(amount.key);
    uint64_t number;
    if (!take_number(text, number)) {
        return false;
    }
    out.*amount.field = static_cast<uint32_t>(number);
    text = skip_blanks(skip_word(skip_blanks(text)));
    return true;
}

// What stands behind the first colon; null without one, or with nothing before it.
const char *behind_key(const char *text) {
    const char *colon = text + std::strcspn(text, ":");
    return colon != text && *colon == ':' ? colon + 1 : nullptr;
}

// The number in "...: <number>)", stepped over; a negative one where there is none.
int read_station_count(const char *&text) {
    const char *number = behind_key(text);
    if (number == nullptr) {
        return -1;
    }
    char *end = nullptr;
    const long count = std::strtol(number, &end, 10);
    if (end == number || *end != ')') {
        return -1;
    }
    text = skip_blanks(end + 1);
    return static_cast<int>(count);
}

// The value is a word of the table: a number ends with it, at a blank or the end of the text.
void note(sta_info &station, const char *key, string_view value) {
    if (rk::begins_with(key, "rssi:")) {
        station.rssi = static_cast<int32_t>(std::strtol(value.data(), nullptr, 10));
    } else if (rk::begins_with(key, "hwaddr:")) {
        const size_t room = sizeof station.hwaddr;
        std::memset(station.hwaddr, 0, room);
        std::memcpy(station.hwaddr, value.data(), value.size() < room ? value.size() : room);
    }
}

} // namespace

int read_cpuinfo(cpu_stat *out) {
    *out = {};
    rk::Chars<512> text;
    if (readStrFromFile("/proc/stat", text, sizeof text) < 0 || !rk::begins_with(text, "cpu")) {
        return 0;
    }
    const char *columns = text + 3;
    for (auto column : kColumns) {
        uint64_t ticks = 0;
        take_number(columns, ticks);
        out->*column = static_cast<int64_t>(ticks);
    }
    return 0;
}

int64_t calc_total_stat(const cpu_stat *stat) {
    uint64_t total = 0;
    for (auto column : kColumns) {
        total += static_cast<uint64_t>(stat->*column);
    }
    return static_cast<int64_t>(total);
}

int calc_value_percent(int64_t a, int64_t b, int total) {
    if (total == 0) {
        return 0;
    }
    // The product needs 38 bits. It is divided digit by digit: a 32-bit processor has no other
    // division of that size than a routine of more than a kilobyte.
    const uint32_t divisor =
        total < 0 ? 0U - static_cast<uint32_t>(total) : static_cast<uint32_t>(total);
    const uint32_t value = distance(a, b);
    uint32_t percent = value / divisor * 100;
    uint64_t rest = value % divisor;
    for (uint32_t part = 10; part != 0; part /= 10) {
        for (rest *= 10; rest >= divisor; rest -= divisor) {
            percent += part;
        }
    }
    return static_cast<int>(total < 0 ? 0U - percent : percent);
}

void calc_stat(const cpu_stat *a, const cpu_stat *b, cpu_stat *out) {
    const uint32_t between = distance(calc_total_stat(a), calc_total_stat(b));
    const int total = static_cast<int>(std::clamp<uint32_t>(between, 1, INT32_MAX));
    for (auto column : kColumns) {
        out->*column = calc_value_percent(a->*column, b->*column, total);
    }
}

void get_cpuinfo(cpu_stat *out) {
    cpu_stat before, after;
    read_cpuinfo(&before);
    safe_msleep(kCpuIntervalMs);
    read_cpuinfo(&after);
    calc_stat(&before, &after, out);
}

int get_meminfo(mem_info *out) {
    rk::Chars<512> text;
    if (readStrFromFile("/proc/meminfo", text, sizeof text) < 0) {
        return 0;
    }
    const char *line = text;
    for (const Amount &amount : kAmounts) {
        if (!take_amount(line, amount, *out)) {
            break;
        }
    }
    out->shared = 0;
    out->used = out->total - out->free;
    return static_cast<int>(out->used);
}

int get_loadavg(char *buffer) {
    return readStrFromFile("/proc/loadavg", buffer, kLoadLine);
}

int wlan_procStaInfo(const char *text, sta_info *stations) {
    const int count = read_station_count(text);
    if (count < 0) {
        return -1;
    }
    int current = -1;
    while (*text != '\0') { // a key, a colon, and the first word behind it
        const char *key = text;
        const char *behind = behind_key(key);
        if (behind == nullptr) {
            return -1;
        }
        const char *value = skip_blanks(behind);
        const string_view word(value, static_cast<size_t>(skip_word(value) - value));
        if (word.empty()) {
            return -1;
        }
        text = skip_blanks(value + word.size());
        if (word == "stat_info...") {
            ++current;
        } else if (current < 0) {
            return -1;
        } else if (current < count) {
            note(stations[current], key, word);
        }
    }
    return count;
}
