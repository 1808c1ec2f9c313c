// The two DNS messages that the resolver knows: a query for a name's IPv4 addresses and the reply
// to it (RFC 1035, section 4).
#pragma once

#include <cstddef>
#include <cstdint>

namespace rk::dns {

constexpr size_t kMessageSize = 1024;

// Builds the query; one dot at the end of the name is dropped. Returns the message's length, or 0
// for a name that cannot be asked for: empty, with an empty label, over 1006 characters, or with a
// label over 63.
size_t build_query(uint8_t (&message)[kMessageSize], const char *name);

// Takes the addresses, in integer form, out of a reply of `size` bytes: the first `max` of them.
// Returns how many were stored, 0 for a name without addresses; -1 with errno EPROTO for a reply
// without answers, or one that becomes unreadable before an address was stored.
int parse_reply(const uint8_t *message, size_t size, uint32_t *addrs, unsigned max);

} // namespace rk::dns
