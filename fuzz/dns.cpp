// DNS replies (RFC 1035), against a reader that expands each name as a text.
#include "dns/message.h"

#include <algorithm>
#include <optional>
#include <vector>

#include "support/bytes.h"
#include "support/fuzz.h"

namespace {

// Where a record goes on behind its name; nothing for one that cannot be read.
std::optional<size_t> name_end(const uint8_t *message, size_t size, size_t at) {
    std::string text;
    std::optional<size_t> end;
    for (int pointers = 0; at < size && text.size() < 512;) {
        size_t length = message[at], next = at + 1 + length;
        if (length == 0) {
            return end ? end : next;
        }
        if (length >= 64) {
            next = at + 1 < size ? rk::load_be16(message + at) & 0x3fff : at;
            end = end ? end : at + 2;
        }
        if (next == at || next > size || (length >= 64 && ++pointers > 64)) {
            return {};
        }
        text.append(length < 64 ? length + 1 : 0, 'x'); // with a dot
        at = next;
    }
    return {};
}

std::optional<std::vector<uint32_t>> addresses(const uint8_t *message, size_t size, size_t max) {
    std::vector<uint32_t> found;
    std::optional<size_t> at = name_end(message, size, 12);
    unsigned answers = size >= 12 ? rk::load_be16(message + 6) : 0;
    if (answers == 0 || !at || *at + 4 > size) {
        return {};
    }
    for (*at += 4; answers != 0; --answers) {
        at = name_end(message, size, *at);
        const uint8_t *record = message + at.value_or(0);
        size_t length = at && *at + 10 <= size ? rk::load_be16(record + 8) : size;
        if (!at || *at + 10 + length > size) {
            return found.empty() ? std::nullopt : std::optional(found);
        }
        if (rk::load_be32(record) == 0x10001 && length == 4 && found.size() < max) { // A, IN
            found.push_back(rk::load_be32(record + 10));
        }
        *at += 10 + length;
    }
    return found;
}

} // namespace

void fuzz::run(std::string_view input) {
    unsigned max = take(input) % 8;
    lab::Fenced fenced(input), room(std::string(max * sizeof(uint32_t), '#'));
    auto *message = reinterpret_cast<uint8_t *>(fenced.data());
    auto *addrs = reinterpret_cast<uint32_t *>(room.data());
    int count = rk::dns::parse_reply(message, input.size(), addrs, max);
    auto wanted = addresses(message, input.size(), max);
    require(count == (wanted ? static_cast<int>(wanted->size()) : -1));
    require(!wanted || std::equal(wanted->begin(), wanted->end(), addrs));
}
