// IPv4, IPv6 and MAC addresses, against strtoul, inet_pton and a slow reader.
#include <routerkit/conversions.h>

#include <cctype>

#include <arpa/inet.h>

#include "codec/ipv4_model.h"
#include "support/fuzz.h"

namespace {

void read_ipv4(const std::string &text, char *fenced) {
    lab::Ipv4Text wanted = lab::parse_ipv4(text.c_str());
    std::string octets = "####";
    const char *end = ipv4_aton(octets.data(), fenced);
    fuzz::require((end == nullptr ? -1 : end - fenced) == wanted.end && octets == wanted.octets);
    fuzz::require(ipv4_isip(fenced) == (wanted.end == static_cast<long>(text.size()) ? 1 : 0));
    fuzz::require(ipv4_atoi(fenced) == (end == nullptr ? 0 : ipv4_ntoi(octets.data())));
    in_addr strict;
    fuzz::require(::inet_pton(AF_INET, text.c_str(), &strict) != 1 ||
                  (ipv4_isip(fenced) == 1 && ipv4_ntoi(&strict) == ipv4_atoi(fenced)));
    char again[16];
    fuzz::require(end == nullptr || (ipv4_ntostr(again, octets.data()) > 0 &&
                                     ::inet_pton(AF_INET, again, &strict) == 1 &&
                                     std::memcmp(&strict, octets.data(), sizeof strict) == 0));
}

void read_ipv6(const std::string &text, char *fenced) {
    in6_addr wanted, seen;
    bool is_address = ::inet_pton(AF_INET6, text.c_str(), &wanted) == 1;
    fuzz::require(ipv6_isip(fenced) == (is_address ? 1 : 0));
    fuzz::require(ipv6_aton(&seen, fenced) == (is_address ? static_cast<int>(text.size()) : 0));
    fuzz::require(!is_address || std::memcmp(&wanted, &seen, sizeof seen) == 0);

    const std::string address = text.substr(0, text.find('/'));
    is_address = address.size() <= 40 && ::inet_pton(AF_INET6, address.c_str(), &wanted) == 1;
    char *end = nullptr;
    std::string number = text.substr(std::min(text.size(), address.size() + 1));
    long width = std::strtol(number.c_str(), &end, 10);
    int prefix = 0;
    uint16_t host[8];
    int result = ipv6_atonp(&seen, &prefix, fenced);
    fuzz::require(result == (is_address && end != number.c_str() ? 0 : -1));
    fuzz::require(result != 0 || width != prefix ? result != 0 || width != static_cast<int>(width)
                                                 : std::memcmp(&wanted, &seen, sizeof seen) == 0);
    int length = ipv6_atohp(host, &prefix, fenced);
    fuzz::require(result != 0 || length == static_cast<int>(address.size()));
}

void read_mac(const std::string &text, const char *fenced) {
    std::string bytes, seen(6, '\0');
    size_t at = 0;
    for (; bytes.size() < 6; at += 2) {
        at += !bytes.empty() && at < text.size() && (text[at] == ':' || text[at] == '-') ? 1 : 0;
        std::string pair = at < text.size() ? text.substr(at, 2) : "";
        if (pair.size() != 2 || std::isxdigit(static_cast<unsigned char>(pair[0])) == 0 ||
            std::isxdigit(static_cast<unsigned char>(pair[1])) == 0) {
            break;
        }
        bytes += static_cast<char>(std::stoi(pair, nullptr, 16));
    }
    int length = mac_aton(seen.data(), fenced);
    fuzz::require(length == (bytes.size() == 6 ? static_cast<int>(at) : 0));
    fuzz::require(length == 0 || seen == bytes);
}

} // namespace

void fuzz::run(std::string_view input) {
    const std::string text = text_of(input);
    lab::Fenced fenced = lab::Fenced::terminated(text);
    read_ipv4(text, fenced.data());
    read_ipv6(text, fenced.data());
    read_mac(text, fenced.data());
}
