// The texts of a connection's name servers and routes, each line by itself.
#include <routerkit/dns.h>
#include <routerkit/wan.h>

#include <sstream>
#include <vector>

#include <routerkit/conversions.h>

#include "codec/ipv4_model.h"
#include "support/file.h"

namespace {

uint32_t address(const std::string &text) {
    lab::Ipv4Text parsed = lab::parse_ipv4(text.c_str());
    return parsed.end < 0 ? 0 : ipv4_ntoi(parsed.octets.data());
}

std::string behind(const std::string &line, char sign) {
    size_t place = line.find(sign);
    return place != std::string::npos ? line.substr(place + 1) : "";
}

} // namespace

void fuzz::run(std::string_view input) {
    static File file;
    unsigned max = take(input) % 8;
    const std::string text = text_of(input);
    lab::Fenced servers_room(std::string(max * sizeof(uint32_t), '#'));
    lab::Fenced routes_room(std::string(max * sizeof(wan_route_t), '#'));
    auto *servers = reinterpret_cast<uint32_t *>(servers_room.data());
    auto *routes = reinterpret_cast<wan_route_t *>(routes_room.data());
    file.put(text);
    int server_count = dns_readResolvConf(file.path(), servers, max);
    int route_count = wan_parseRoutes(routes, max, lab::Fenced::terminated(text).data());

    int server = 0, route = 0;
    std::istringstream lines(text);
    for (std::string line; std::getline(lines, line);) {
        if (line.starts_with("nameserver ") && server < static_cast<int>(max)) {
            require(server < server_count && servers[server++] == address(line.substr(11)));
        }
        if (!line.empty() && route < static_cast<int>(max)) {
            const wan_route_t &seen = routes[route++];
            long width = std::strtol(behind(line, '/').c_str(), nullptr, 10);
            require(route <= route_count && seen.destination == address(line));
            require(seen.mask == ipv4_wtoi(static_cast<unsigned>(width)));
            require(seen.gateway == address(behind(line, '-')));
        }
    }
    require(server == server_count && route == route_count);
}
