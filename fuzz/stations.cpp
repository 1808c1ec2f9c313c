// The wireless driver's station table, against sscanf, in a locale where it reads as ours does.
#include <routerkit/stats.h>

#include <cctype>
#include <vector>

#include "support/fuzz.h"

namespace {

// The header's number, or -1; the stations as far as the text was read.
int read(const std::string &text, std::vector<sta_info> &stations) {
    int count = -1;
    int behind = 0;
    if (std::sscanf(text.c_str(), "%*[^:]:%d) %n", &count, &behind) != 1 || behind == 0 ||
        count < 0) {
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
            std::strncpy(stations.back().hwaddr, value.data(), sizeof stations.back().hwaddr);
        }
    }
    return count;
}

} // namespace

void fuzz::run(std::string_view input) {
    const std::string text = text_of(input);
    lab::Fenced fenced = lab::Fenced::terminated(text);
    std::vector<sta_info> wanted;
    int count = read(text, wanted);
    wanted.resize(std::min(wanted.size(), static_cast<size_t>(std::max(count, 0))));
    lab::Fenced room(std::string(wanted.size() * sizeof(sta_info), '\0'));
    if (count < 0) { // a bad line may stand behind stations that are stored by then
        std::vector<sta_info> stored(text.size() / 12 + 1);
        require(wlan_procStaInfo(fenced.data(), stored.data()) == -1);
        return;
    }
    auto *stations = reinterpret_cast<sta_info *>(room.data());
    require(wlan_procStaInfo(fenced.data(), stations) == count);
    for (size_t i = 0; i < wanted.size(); ++i) {
        require(stations[i].rssi == wanted[i].rssi);
        require(std::memcmp(stations[i].hwaddr, wanted[i].hwaddr, sizeof wanted[i].hwaddr) == 0);
    }
}
