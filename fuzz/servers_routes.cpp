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

void read_servers(const std::string &text, unsigned max) {
    static fuzz::File file;
    file.put(text);
    lab::Fenced room(std::string(max * sizeof(uint32_t), '#'));
    auto *servers = reinterpret_cast<uint32_t *>(room.data());
    int count = dns_readResolvConf(file.path(), servers, max);
    int seen = 0;
    std::istringstream lines(text);
    for (std::string line; seen < static_cast<int>(max) && std::getline(lines, line);) {
        if (line.starts_with("nameserver ")) {
            fuzz::require(seen < count && servers[seen] == address(line.substr(11)));
            ++seen;
        }
    }
    fuzz::require(count == seen);
}

void read_routes(const std::string &text, unsigned max) {
    lab::Fenced fenced = lab::Fenced::terminated(text);
    lab::Fenced room(std::string(max * sizeof(wan_route_t), '#'));
    auto *routes = reinterpret_cast<wan_route_t *>(room.data());
    int count = wan_parseRoutes(routes, max, fenced.data());
    int seen = 0;
    std::istringstream lines(text.c_str());
    for (std::string line; seen < static_cast<int>(max) && std::getline(lines, line);) {
        if (!line.empty()) {
            long width = std::strtol(behind(line, '/').c_str(), nullptr, 10);
            fuzz::require(seen < count && routes[seen].destination == address(line));
            fuzz::require(routes[seen].mask == ipv4_wtoi(static_cast<unsigned>(width)));
            fuzz::require(routes[seen].gateway == address(behind(line, '-')));
            ++seen;
        }
    }
    fuzz::require(count == seen);
}

} // namespace

void fuzz::run(std::string_view input) {
    unsigned max = take(input) % 8;
    read_servers(std::string(input), max);
    read_routes(std::string(input), max);
}
