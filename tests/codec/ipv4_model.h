// A second reader of IPv4 addresses, to compare the first one's answers with.
#pragma once

#include <cstdlib>
#include <string>

namespace lab {

struct Ipv4Text {
    long end = -1; // behind the address; -1: none
    std::string octets = "####";
};

// What strtoul makes of a text, field by field; a negative number, which it turns round, is none.
inline Ipv4Text parse_ipv4(const char *text) {
    Ipv4Text result;
    const char *at = text;
    for (size_t field = 0; field < 4; ++field) {
        if (field != 0 && *at++ != '.') {
            return result;
        }
        char *end = nullptr;
        unsigned long value = std::strtoul(at, &end, 10);
        std::string number(at, static_cast<size_t>(end - at));
        bool negative = number.find('-') != std::string::npos &&
                        number.find_first_of("123456789") != std::string::npos;
        if (end == at || value > 255 || negative) {
            return result;
        }
        result.octets[field] = static_cast<char>(value);
        at = end;
    }
    result.end = at - text;
    return result;
}

} // namespace lab
