// Circular logs and counters that some other program may have spoilt.
#include <routerkit/logs.h>

#include <algorithm>
#include <ctime>

#include "support/file.h"

extern "C" time_t time(time_t *out) noexcept {
    constexpr time_t kNow = 1700000000;
    return out != nullptr ? *out = kNow : kNow;
}

namespace {

// Behind the newest record: of those with the greatest time the last.
size_t newest_end(const std::string &log, size_t size) {
    long newest = 0, time = 0;
    size_t end = 0;
    for (size_t at = 0; at + size <= log.size(); at += size) {
        const std::string record = log.substr(at, size);
        char *behind = nullptr;
        long number = std::strtol(record.c_str(), &behind, 10);
        time = behind != record.c_str() ? number : time;
        if (time >= newest) {
            newest = time;
            end = at + size;
        }
    }
    return end;
}

void count_up(fuzz::File &file, std::string_view text) {
    file.put(text);
    fuzz::require(IncreaseCountInFile(file.path()) == 0);
    std::string digits = fuzz::text_of(text.substr(0, 7));
    long count = std::strtol(digits.substr(0, digits.find('\n')).c_str(), nullptr, 10);
    fuzz::require(file.get() == std::to_string(count + 1).substr(0, 7));
}

} // namespace

void fuzz::run(std::string_view input) {
    static File file;
    size_t size = 1 + take(input) * 5119U / 255, count = take(input);
    std::string log(input);
    file.put(log);
    require(circ_open_and_write(file.path(), size, count, "text") == 0);
    size_t end = newest_end(log, size);
    size_t place = end / size >= count ? 0 : end;
    log.resize(std::max(log.size(), place + size));
    std::string record = "1700000000, text";
    record.resize(size - 1);
    require(file.get() == log.replace(place, size, record + '\n'));
    count_up(file, input);
}
