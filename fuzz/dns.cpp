// DNS replies (RFC 1035), against a reader that expands each name as a text.
#include "dns/message.h"

#include <algorithm>
#include <optional>
#include <vector>

#include "support/fuzz.h"

namespace {

unsigned byte(std::string_view message, size_t at) {
    return static_cast<unsigned char>(message[at]);
}

unsigned be16(std::string_view message, size_t at) {
    return byte(message, at) << 8 | byte(message, at + 1);
}

// Where a record goes on behind its name; nothing for one that cannot be read.
std::optional<size_t> name_end(std::string_view message, size_t at) {
    std::string text;
    std::optional<size_t> end;
    for (int pointers = 0; at < message.size();) {
        unsigned length = byte(message, at);
        if (length == 0) {
            return end ? end : at + 1;
        }
        if (length >= 64) {
            if (at + 1 >= message.size() || ++pointers > 64) {
                return {};
            }
            end = end ? end : at + 2;
            size_t target = be16(message, at) & 0x3fff;
            if (target == at) {
                return {};
            }
            at = target;
            continue;
        }
        text += message.substr(at + 1, length);
        text += '.';
        at += 1 + length;
        if (text.size() + 1 > 512) {
            return {};
        }
    }
    return {};
}

std::optional<std::vector<uint32_t>> addresses(std::string_view message, size_t max) {
    std::vector<uint32_t> found;
    std::optional<size_t> at = message.size() < 12 ? std::nullopt : name_end(message, 12);
    if (!at || *at + 4 > message.size() || be16(message, 6) == 0) {
        return {};
    }
    *at += 4;
    for (unsigned answers = be16(message, 6); answers != 0; --answers) {
        at = name_end(message, *at);
        size_t data = at ? *at + 10 : 0;
        size_t length = at && data <= message.size() ? be16(message, data - 2) : 0;
        if (!at || data + length > message.size()) {
            return found.empty() ? std::nullopt : std::optional(found);
        }
        if (be16(message, *at) == 1 && be16(message, *at + 2) == 1 && length == 4 &&
            found.size() < max) {
            found.push_back(be16(message, data) << 16 | be16(message, data + 2));
        }
        at = data + length;
    }
    return found;
}

} // namespace

void fuzz::run(std::string_view input) {
    unsigned max = take(input) % 8;
    lab::Fenced message(input), room(std::string(max * sizeof(uint32_t), '#'));
    auto *addrs = reinterpret_cast<uint32_t *>(room.data());
    int count = rk::dns::parse_reply(reinterpret_cast<uint8_t *>(message.data()), message.size(),
                                     addrs, max);
    auto wanted = addresses(input, max);
    require(count == (wanted ? static_cast<int>(wanted->size()) : -1));
    require(!wanted || std::equal(wanted->begin(), wanted->end(), addrs));
    std::string name(input);
    uint8_t query[rk::dns::kMessageSize];
    size_t length = rk::dns::build_query(query, name.c_str());
    std::string_view sent(reinterpret_cast<char *>(query), length);
    auto end = name_end(sent, 12);
    require(length == 0 || (end && *end + 4 == length) || length > 12 + 512 + 4);
}
