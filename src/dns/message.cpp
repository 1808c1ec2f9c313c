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
constexpr uint8_t kIdentifier = 0x01; // the first byte of every query's identifier; the second is 0
constexpr uint8_t kRecursionDesired = 0x01; // in the first byte of the flags

constexpr uint8_t kTypeA = 1;
constexpr uint8_t kClassIn = 1;
constexpr size_t kAddressSize = 4;
constexpr size_t kQuestionTail = 4; // type and class

// RFC 1035, 4.1.3: what stands between a record's name and its data, from the type on.
constexpr size_t kClassOffset = 2;
constexpr size_t kLengthOffset = 8;
constexpr size_t kFieldsSize = 10;

constexpr size_t kLongestLabel = 63;
// Around the name: the first label's length byte, the zero byte at the end, type and class.
constexpr size_t kLongestName = kMessageSize - kHeaderSize - 2 - kQuestionTail;

constexpr uint8_t kPointerBits = 0xc0;
constexpr size_t kLongestText = 512; // of a received name: labels, dots and a NUL
constexpr unsigned kMostPointers = 64;

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
    size_t behind = 0; // where the record goes on: behind its first pointer
    size_t text = 1;   // its NUL
    unsigned pointers = 0;
    for (;;) {
        size_t start = message.position();
        uint8_t length = message.u8();
        if ((length & kPointerBits) != 0) {
            size_t target = static_cast<size_t>(length & ~kPointerBits) << 8 | message.u8();
            if (pointers == 0) {
                behind = message.position();
            }
            if (target == start || ++pointers > kMostPointers) {
                return false;
            }
            message.seek(target);
            continue;
        }
        if (length == 0) {
            break;
        }
        message.take(length);
        text += length + size_t{1};
        if (text > kLongestText) {
            return false;
        }
    }
    if (pointers != 0) {
        message.seek(behind);
    }
    return message.ok();
}

bool skip_question(ByteReader &message) {
    return skip_name(message) && message.take(kQuestionTail) != nullptr;
}

// Steps over a record. Its address, or null for another kind of record; false for none.
bool read_record(ByteReader &message, const uint8_t *&address) {
    if (!skip_name(message)) {
        return false;
    }
    const uint8_t *fields = message.take(kFieldsSize);
    if (fields == nullptr) {
        return false;
    }
    size_t length = load_be16(fields + kLengthOffset);
    bool matches = load_be16(fields) == kTypeA && load_be16(fields + kClassOffset) == kClassIn &&
                   length == kAddressSize;
    const uint8_t *data = message.take(length);
    address = matches ? data : nullptr;
    return data != nullptr;
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
    std::memset(message, 0, sizeof message); // most bytes of the fields are 0, and the name's end
    message[0] = kIdentifier;
    message[kFlagsOffset] = kRecursionDesired;
    message[kQuestionsOffset + 1] = 1;
    uint8_t *labels = message + kHeaderSize + 1;
    std::memcpy(labels, name, length);
    if (!mark_labels(labels, length)) {
        return 0;
    }
    uint8_t *tail = labels + length + 1;
    tail[1] = kTypeA;
    tail[3] = kClassIn;
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
    for (; answers != 0; --answers) {
        const uint8_t *address;
        if (!read_record(reader, address)) {
            return stored != 0 ? static_cast<int>(stored) : fail(EPROTO);
        }
        if (stored < max && address != nullptr) {
            addrs[stored++] = load_be32(address);
        }
    }
    return static_cast<int>(stored);
}

} // namespace rk::dns
