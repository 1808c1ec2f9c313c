// IPv4, IPv6 and MAC addresses, against strtoul, inet_pton and a slow reader.
#include <routerkit/conversions.h>

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
    in_addr strict;
    fuzz::require(::inet_pton(AF_INET, fenced, &strict) != 1 ||
                  (end != nullptr && ipv4_ntoi(&strict) == ipv4_atoi(fenced)));
}

void read_ipv6(const std::string &text, char *fenced) {
    const std::string address = text.substr(0, text.find('/'));
    in6_addr wanted, seen;
    bool known = ::inet_pton(AF_INET6, address.c_str(), &wanted) == 1;
    int length = known ? static_cast<int>(address.size()) : 0;
    fuzz::require(ipv6_aton(&seen, fenced) == (address == text ? length : 0));
    int prefix = 0;
    uint16_t host[8];
    if (ipv6_atonp(&seen, &prefix, fenced) == 0) {
        fuzz::require(known && std::memcmp(&wanted, &seen, sizeof seen) == 0);
        fuzz::require(ipv6_atohp(host, &prefix, fenced) == length);
    }
}

void read_mac(const std::string &text, const char *fenced) {
    uint8_t wanted[7], seen[6];
    int at = 0, count = 0;
    for (int width = 0; count < 6; ++count, at += width) {
        const char *rest = text.c_str() + at;
        rest += count != 0 && (*rest == ':' || *rest == '-') ? 1 : 0;
        bool digits = std::strspn(rest, "0123456789abcdefABCDEF") >= 2;
        if (!digits || std::sscanf(rest, "%2hhx%n", &wanted[count], &width) != 1) {
            break;
        }
        width += static_cast<int>(rest - text.c_str()) - at;
    }
    fuzz::require(mac_aton(seen, fenced) == (count == 6 ? at : 0));
    fuzz::require(count < 6 || mac_is_equal(seen, wanted) == 1);
}

} // namespace

void fuzz::run(std::string_view input) {
    const std::string text = text_of(input);
    lab::Fenced fenced = lab::Fenced::terminated(text);
    read_ipv4(text, fenced.data());
    read_ipv6(text, fenced.data());
    read_mac(text, fenced.data());
}
