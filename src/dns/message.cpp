#include "dns/message.h"

#include <cstring>

#include "support/bytes.h"
#include "support/errno.h"

namespace rk::dns {
namespace {

// RFC 1035, 4.1.1: the header, and where its fields are that we use.
constexpr size_t kHeaderSize = 12;
constexpr size_t kFlagsOffset = 2;
constexpr size_t kQuestionsOffset = 4;
constexpr size_t kAnswersOffset = 6;
constexpr uint16_t kIdentifier = 0x0100; // of every query
constexpr uint16_t kRecursionDesired = 0x0100;

constexpr uint16_t kTypeA = 1;
constexpr uint16_t kClassIn = 1;
constexpr size_t kAddressSize = 4;
constexpr size_t kTtlSize = 4;
constexpr size_t kQuestionTail = 4; // type and class

constexpr size_t kLongestLabel = 63;
// Around the name: the first label's length byte, the zero byte at the end, type and class.
constexpr size_t kLongestName = kMessageSize - kHeaderSize - 2 - kQuestionTail;

constexpr uint8_t kPointerBits = 0xc0;
constexpr size_t kLongestText = 512; // of a received name: labels, dots and a NUL
constexpr unsigned kMostPointers = 64;

struct Record {
    uint16_t type;
    uint16_t network_class;
    uint16_t length;
    const uint8_t *data;
};

// Writes each label's length into the byte before it: where its dot was, and for the first one the
// byte before the name.
bool mark_labels(uint8_t *name, size_t length) {
    size_t start = 0;
    for (size_t at = 0; at <= length; ++at) {
        if (at < length && name[at] != '.') {
            continue;
        }
        size_t label = at - start;
        if (label == 0 || label > kLongestLabel) {
            return false;
        }
        name[static_cast<ptrdiff_t>(start) - 1] = static_cast<uint8_t>(label);
        start = at + 1;
    }
    return true;
}

// Steps over a name: labels up to a zero byte, or up to a pointer to where the rest of the name
// is (RFC 1035, 4.1.4). Pointers may form loops: with their number and the text both limited, every
// name comes to an end.
bool skip_name(ByteReader &message) {
    ByteReader name = message; // goes where the pointers lead
    size_t text = 1;           // its NUL
    unsigned pointers = 0;
    for (;;) {
        size_t start = name.position();
        uint8_t length = name.u8();
        if ((length & kPointerBits) != 0) {
            size_t target = static_cast<size_t>(length & ~kPointerBits) << 8 | name.u8();
            if (pointers == 0) {
                message = name; // the record goes on behind its first pointer
            }
            if (target == start || ++pointers > kMostPointers) {
                return false;
            }
            name.seek(target);
            continue;
        }
        if (length == 0) {
            break;
        }
        name.take(length);
        text += length + size_t{1};
        if (text > kLongestText) {
            return false;
        }
    }
    if (pointers == 0) {
        message = name;
    }
    return name.ok();
}

bool skip_question(ByteReader &message) {
    return skip_name(message) && message.take(kQuestionTail) != nullptr;
}

bool read_record(ByteReader &message, Record &record) {
    if (!skip_name(message)) {
        return false;
    }
    record.type = message.be16();
    record.network_class = message.be16();
    message.take(kTtlSize);
    record.length = message.be16();
    record.data = message.take(record.length);
    return message.ok();
}

bool is_address(const Record &record) {
    return record.type == kTypeA && record.network_class == kClassIn &&
           record.length == kAddressSize;
}

} // namespace

size_t build_query(uint8_t (&message)[kMessageSize], const char *name) {
    size_t length = strnlen(name, kLongestName + 2);
    if (length != 0 && name[length - 1] == '.') {
        --length;
    }
    if (length > kLongestName) {
        return 0;
    }
    std::memset(message, 0, sizeof message);
    store_be16(message, kIdentifier);
    store_be16(message + kFlagsOffset, kRecursionDesired);
    store_be16(message + kQuestionsOffset, 1);
    uint8_t *labels = message + kHeaderSize + 1;
    std::memcpy(labels, name, length);
    if (!mark_labels(labels, length)) {
        return 0;
    }
    uint8_t *tail = labels + length + 1;
    store_be16(tail, kTypeA);
    store_be16(tail + 2, kClassIn);
    return static_cast<size_t>(tail - message) + kQuestionTail;
}

int parse_reply(const uint8_t *message, size_t size, uint32_t *addrs, unsigned max) {
    ByteReader reader(message, size);
    const uint8_t *header = reader.take(kHeaderSize);
    if (header == nullptr) {
        return fail(EPROTO);
    }
    unsigned answers = load_be16(header + kAnswersOffset);
    if (answers == 0 || !skip_question(reader)) {
        return fail(EPROTO);
    }
    unsigned stored = 0;
    for (Record record; answers != 0; --answers) {
        if (!read_record(reader, record)) {
            return stored != 0 ? static_cast<int>(stored) : fail(EPROTO);
        }
        if (stored < max && is_address(record)) {
            addrs[stored++] = load_be32(record.data);
        }
    }
    return static_cast<int>(stored);
}

} // namespace rk::dns
