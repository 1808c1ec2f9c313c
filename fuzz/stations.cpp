// The wireless driver's station table, against sscanf.
#include <routerkit/stats.h>

#include <cctype>
#include <vector>

#include "support/fuzz.h"

namespace {

// The header's number, or -1, and where the stations begin.
int promised(const std::string &text, int *behind) {
    int count = -1;
    *behind = 0;
    std::sscanf(text.c_str(), "%*[^:]:%d) %n", &count, behind);
    return *behind != 0 ? count : -1;
}

// What the reader returns; the stations as far as the text was read.
int read(const std::string &text, std::vector<sta_info> &stations) {
    int behind;
    int count = promised(text, &behind);
    if (count < 0) {
        return -1;
    }
    std::vector<char> key(text.size() + 1), value(text.size() + 1);
    for (const char *at = text.c_str() + behind; *at != '\0'; at += behind) {
        if (std::sscanf(at, "%[^:]: %s %n", key.data(), value.data(), &behind) != 2) {
            return -1;
        }
        if (std::strcmp(value.data(), "stat_info...") == 0) {
            stations.emplace_back();
        } else if (stations.empty()) {
            return -1;
        } else if (std::strcmp(key.data(), "rssi") == 0) {
            stations.back().rssi = std::atoi(value.data());
        } else if (std::strcmp(key.data(), "hwaddr") == 0) {
            std::memset(stations.back().hwaddr, 0, sizeof stations.back().hwaddr);
            std::string(value.data()).copy(stations.back().hwaddr, sizeof stations.back().hwaddr);
        }
    }
    return count;
}

} // namespace

void fuzz::run(std::string_view input) {
    const std::string text = text_of(input);
    lab::Fenced fenced = lab::Fenced::terminated(text);
    std::vector<sta_info> wanted;
    int behind, count = read(text, wanted);
    // Room for the stations that the text names, and for no more than its header promises.
    size_t named =
        std::min(wanted.size(), static_cast<size_t>(std::max(promised(text, &behind), 0)));
    lab::Fenced room(std::string(named * sizeof(sta_info), '\0'));
    auto *stations = reinterpret_cast<sta_info *>(room.data());
    require(wlan_procStaInfo(fenced.data(), stations) == count);
    for (size_t i = 0; i < named; ++i) {
        require(stations[i].rssi == wanted[i].rssi);
        require(std::memcmp(stations[i].hwaddr, wanted[i].hwaddr, sizeof wanted[i].hwaddr) == 0);
    }
}
