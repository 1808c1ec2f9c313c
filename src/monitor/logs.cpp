#include <routerkit/logs.h>

#include <cstdlib>
#include <cstring>
#include <ctime>

#include <routerkit/conversions.h>
#include <routerkit/files.h>
#include <routerkit/link-layer.h>

#include "support/chars.h"
#include "support/errno.h"
#include "support/text_buffer.h"

using rk::fail;
using rk::TextBuffer;

namespace {

constexpr size_t kLargestEntry = 5120;
constexpr size_t kLogEntry = 300;
constexpr size_t kFrameEntries = 50;
constexpr size_t kDhcpEntries = 20;
constexpr size_t kCountDigits = 7;

// Of the last circ_open_and_write; 0 before it.
constinit size_t entry_size = 0;

long seconds() {
    return static_cast<long>(std::time(nullptr));
}

// The time that a record begins with, or the fallback. No number goes on in the next record: for the
// look a NUL stands there.
long record_time(char *record, char *end, long fallback) {
    const char kept = *end;
    *end = '\0';
    char *behind = record;
    long time = std::strtol(record, &behind, 10);
    *end = kept;
    return behind != record ? time : fallback;
}

FILE *open_stream(const char *path, const char *mode) {
    FILE *stream;
    do {
        stream = std::fopen(path, mode);
    } while (stream == nullptr && errno == EINTR);
    return stream;
}

} // namespace

int circ_write_entry(FILE *stream, const char *text) {
    if (stream == nullptr || entry_size == 0) {
        return fail(EINVAL);
    }
    const size_t size = entry_size;
    rk::Chars<kLargestEntry> record;
    std::memset(record, 0, size);
    rk::TextWriter(record, size).format("%ld, %s", seconds(), text);
    record[size - 1] = '\n';
    std::fwrite(record, size, 1, stream);
    return 0;
}

long circ_find_last_entry_offset(FILE *stream) {
    if (stream == nullptr || entry_size == 0) {
        errno = EINVAL;
        return 0;
    }
    rk::Chars<kLargestEntry + 1> block;
    const size_t size = entry_size;
    const size_t room = kLargestEntry / size;
    const auto step = static_cast<long>(size);
    long position = 0, newest_end = 0;
    long time = 0, newest = 0;
    size_t count;
    do {
        count = std::fread(block, size, room, stream);
        char *block_end = block + count * size;
        for (char *record = block; record != block_end; record += step) {
            time = record_time(record, record + step, time);
            position += step;
            if (time >= newest) {
                newest = time;
                newest_end = position;
            }
        }
    } while (count == room);
    return newest_end;
}

int circ_open_and_write(const char *path, size_t size, size_t count, const char *text) {
    if (size == 0 || size > kLargestEntry) {
        return fail(EINVAL);
    }
    entry_size = size;
    FILE *stream = open_stream(path, "r+e");
    if (stream == nullptr && upFlagFile(path) == 1) { // there was no file, and now there is
        stream = open_stream(path, "r+e");
    }
    if (stream == nullptr) {
        return -1;
    }
    std::setvbuf(stream, nullptr, _IONBF, 0); // whole blocks are read and written anyway
    long offset = circ_find_last_entry_offset(stream);
    if (static_cast<size_t>(offset) / size >= count) {
        offset = 0;
    }
    if (std::fseek(stream, offset, SEEK_SET) == 0) { // at the end the file would outgrow its room
        circ_write_entry(stream, text);
    }
    std::fclose(stream);
    return 0;
}

int IncreaseCountInFile(const char *path) {
    rk::Chars<kCountDigits + 1> text;
    upFlagFile(path);
    if (readStrFromFile(path, text, sizeof text) < 0) {
        return 0;
    }
    text[std::strcspn(text, "\n")] = '\0'; // white space before a number may be another line
    TextBuffer<sizeof text> count;
    count.append_decimal(std::strtol(text, nullptr, 10) + 1);
    FILE *stream = open_stream(path, "we");
    if (stream == nullptr) {
        return 0;
    }
    const bool written = std::fputs(count.c_str(), stream) >= 0;
    const int closed = std::fclose(stream);
    return written ? closed : -1;
}

int time_t2humanview(char *buffer) {
    const time_t now = std::time(nullptr);
    struct tm local;
    ::tzset(); // the time zone may have changed
    size_t length =
        ::localtime_r(&now, &local) != nullptr
            ? std::strftime(buffer, sizeof "16-11-2026 18:28:43", "%d-%m-%Y %H:%M:%S", &local)
            : 0;
    buffer[length] = '\0'; // a text that did not fit has no end
    return static_cast<int>(length);
}

void pppoed_frame_log(const char *text, int instance) {
    if (text == nullptr) {
        return;
    }
    TextBuffer<256> entry;
    entry.format("%ld;%s", seconds(), text);
    TextBuffer<48> path;
    path.format("/tmp/pppoed_frame_log_%d", instance);
    circ_open_and_write(path.c_str(), kLogEntry, kFrameEntries, entry.c_str());
    TextBuffer<48> count_path;
    count_path.format("/tmp/pppoed_frame_count_%d", instance);
    IncreaseCountInFile(count_path.c_str());
}

int dhcp_log(const char *text1, const void *mac, uint32_t ip, const char *text2) {
    rk::Chars<20> when;
    time_t2humanview(when);
    const char *label = br_mac2laname("br0", mac);
    rk::Chars<18> mac_text;
    mac_ntostr(mac_text, mac);
    rk::Chars<16> ip_text;
    ipv4_ntostr(ip_text, &ip);
    TextBuffer<512> entry;
    entry.format("%s;%s;%s;%s;%s;%s;", when.data(), label != nullptr ? label : "LAN",
                 mac_text.data(), ip_text.data(), text1, text2);
    circ_open_and_write("/tmp/dhcp_log", kLogEntry, kDhcpEntries, entry.c_str());
    return IncreaseCountInFile("/tmp/dhcp_events_count");
}
