#include "dns/message.h"

#include <cstring>
#include <optional>
#include <random>
#include <string>
#include <vector>

#include "support/lab.h"

using lab::FailsWith;
using rk::dns::build_query;
using rk::dns::kMessageSize;
using rk::dns::parse_reply;

namespace {

constexpr uint16_t kA = 1;
constexpr uint16_t kCname = 5;
constexpr uint16_t kAaaa = 28;
constexpr uint16_t kIn = 1;
constexpr uint16_t kChaos = 3;
constexpr size_t kQuestionName = 12;
constexpr unsigned kRoom = 80; // more addresses than a message holds

// --- Replies, piece by piece ---

std::string be16(unsigned value) {
    return {static_cast<char>(value >> 8), static_cast<char>(value)};
}

std::string be32(uint32_t value) {
    return be16(value >> 16) + be16(value & 0xffff);
}

std::string label(size_t length, char character = 'x') {
    return static_cast<char>(length) + std::string(length, character);
}

std::string pointer(size_t offset, unsigned bits = 0xc0) {
    return be16(bits << 8 | static_cast<unsigned>(offset));
}

const std::string kEnd(1, '\0');
const std::string kWww = "\3www\7example\3org" + kEnd;

std::string header(unsigned answers, unsigned questions = 1) {
    return be16(0x0100) + be16(0x8180) + be16(questions) + be16(answers) + be32(0);
}

std::string question(const std::string &name = kWww) {
    return name + be16(kA) + be16(kIn);
}

std::string record(const std::string &name, unsigned type, unsigned network_class,
                   const std::string &data) {
    return name + be16(type) + be16(network_class) + be32(300) +
           be16(static_cast<unsigned>(data.size())) + data;
}

std::string address_record(uint32_t address, const std::string &name = pointer(kQuestionName)) {
    return record(name, kA, kIn, be32(address));
}

// A name that takes this many pointers to read when it stands at `at`.
std::string chain(size_t pointers, size_t at) {
    std::string bytes;
    for (size_t i = 1; i <= pointers; ++i) {
        bytes += pointer(at + 2 * i);
    }
    return bytes + kEnd;
}

std::string repeated(size_t times, const std::string &bytes) {
    std::string all;
    while (times-- != 0) {
        all += bytes;
    }
    return all;
}

// What parsing came to.
struct Outcome {
    int result;
    std::vector<uint32_t> addresses;
    bool operator==(const Outcome &) const = default;
};

const Outcome kUnreadable = {-1, {}};

std::ostream &operator<<(std::ostream &out, const Outcome &outcome) {
    out << outcome.result << ":" << std::hex;
    for (uint32_t address : outcome.addresses) {
        out << " " << address;
    }
    return out << std::dec;
}

// Parses a reply that lies right before an unreadable page; whatever the parser stores beyond its
// count shows up as further addresses.
Outcome parse(const std::string &reply, unsigned max = kRoom) {
    lab::Fenced fenced(reply);
    constexpr uint32_t kUntouched = 0xdeadbeef;
    std::vector<uint32_t> room(kRoom + 1, kUntouched);
    errno = 0;
    int result =
        parse_reply(reinterpret_cast<uint8_t *>(fenced.data()), fenced.size(), room.data(), max);
    EXPECT_EQ(errno, result < 0 ? EPROTO : 0);
    while (!room.empty() && room.back() == kUntouched) {
        room.pop_back();
    }
    return {result, room};
}

Outcome found(const std::vector<uint32_t> &addresses) {
    return {static_cast<int>(addresses.size()), addresses};
}

// --- The rules once more, slow and plain ---

class Model {
  public:
    Model(const std::string &bytes, unsigned max) : bytes_(bytes), max_(max) {}

    Outcome parse() {
        std::optional<unsigned> answers = number(6, 2);
        std::optional<size_t> at = name_end(kQuestionName);
        if (bytes_.size() < kQuestionName || !answers || *answers == 0 || !at ||
            *at + 4 > bytes_.size()) {
            return kUnreadable;
        }
        at = *at + 4;
        for (unsigned i = 0; i < *answers; ++i) {
            at = record_end(*at);
            if (!at) {
                return addresses_.empty() ? kUnreadable : found(addresses_);
            }
        }
        return found(addresses_);
    }

  private:
    [[nodiscard]] std::optional<unsigned> number(size_t at, size_t size) const {
        if (at + size > bytes_.size()) {
            return {};
        }
        unsigned value = 0;
        for (size_t i = 0; i < size; ++i) {
            value = value * 256 + static_cast<unsigned char>(bytes_[at + i]);
        }
        return value;
    }

    // The text of the name there, if it can be read through at most `pointers` pointers.
    [[nodiscard]] std::optional<std::string> text(size_t at, unsigned pointers) const {
        std::optional<unsigned> length = number(at, 1);
        if (!length || *length == 0) {
            return length ? std::optional("") : std::nullopt;
        }
        if (*length >= 64) {
            std::optional<unsigned> offset = number(at, 2);
            bool followed = offset && *offset % 16384 != at && pointers != 0;
            return followed ? text(*offset % 16384, pointers - 1) : std::nullopt;
        }
        std::optional<std::string> rest = text(at + 1 + *length, pointers);
        if (at + 1 + *length > bytes_.size() || !rest) {
            return {};
        }
        return bytes_.substr(at + 1, *length) + "." + *rest;
    }

    [[nodiscard]] std::optional<size_t> name_end(size_t at) const {
        std::optional<std::string> name = text(at, 64);
        if (!name || name->size() + 1 > 512) {
            return {};
        }
        while (*number(at, 1) != 0 && *number(at, 1) < 64) {
            at += 1 + *number(at, 1);
        }
        return *number(at, 1) == 0 ? at + 1 : at + 2;
    }

    std::optional<size_t> record_end(size_t start) {
        std::optional<size_t> at = name_end(start);
        std::optional<unsigned> length = at ? number(*at + 8, 2) : std::nullopt;
        if (!length || *at + 10 + *length > bytes_.size()) {
            return {};
        }
        if (*number(*at, 2) == 1 && *number(*at + 2, 2) == 1 && *length == 4 &&
            addresses_.size() < max_) {
            addresses_.push_back(*number(*at + 10, 4));
        }
        return *at + 10 + *length;
    }

    const std::string &bytes_;
    size_t max_;
    std::vector<uint32_t> addresses_;
};

// --- Queries ---

std::string query(const std::string &name) {
    uint8_t message[kMessageSize];
    std::memset(message, 0xee, sizeof message);
    size_t length = build_query(message, name.c_str());
    EXPECT_LE(length, kMessageSize);
    return {reinterpret_cast<char *>(message), length};
}

TEST(Query, BytesOnTheWire) {
    const std::string head("\1\0\1\0\0\1\0\0\0\0\0\0", 12);
    const std::string tail("\0\0\1\0\1", 5);
    EXPECT_EQ(query("www.example.org"), head + "\3www\7example\3org" + tail);
    EXPECT_EQ(query("www.example.org."), query("www.example.org"));
    EXPECT_EQ(query("a"), head + "\1a" + tail);
    std::string utf8 = "\xd1\x8f.\xff";
    EXPECT_EQ(query(utf8), head + "\2\xd1\x8f\1\xff" + tail);
}

TEST(Query, NamesUpToTheBuffersEnd) {
    std::string longest = repeated(15, std::string(63, 'a') + ".") + std::string(46, 'b');
    ASSERT_EQ(longest.size(), 1006U);
    std::string message = query(longest);
    EXPECT_EQ(message.size(), kMessageSize);
    EXPECT_EQ(message.substr(kQuestionName),
              repeated(15, label(63, 'a')) + label(46, 'b') + kEnd + be16(kA) + be16(kIn));
    EXPECT_EQ(query(longest + "."), message);
    for (const std::string &refused :
         {longest + "b", longest + "b.", longest + "..", longest + longest, std::string(64, 'a'),
          "a." + std::string(64, 'a') + ".b", std::string(), std::string("."), std::string(".."),
          std::string(".a"), std::string("a..b"), std::string("a..")}) {
        EXPECT_EQ(query(refused), "") << refused;
    }
    EXPECT_EQ(query("a." + std::string(63, 'a') + ".b").size(), 67U + 18);
}

// --- Replies ---

TEST(Reply, AddressesInTheRecordsOrder) {
    std::string reply = header(7) + question() +
                        record(pointer(kQuestionName), kCname, kIn, "\3cdn" + pointer(16)) +
                        address_record(0x01020304) + address_record(0xfffefdfc, kWww) +
                        record(pointer(12), kAaaa, kIn, std::string(16, '6')) +
                        record(pointer(12), kA, kChaos, be32(0x09090909)) +
                        address_record(0x05060708, "\5other" + kEnd) +
                        address_record(0x0a000001, kEnd) + "padding";
    EXPECT_EQ(parse(reply), found({0x01020304, 0xfffefdfc, 0x05060708, 0x0a000001}));
    EXPECT_EQ(parse(reply, 2), found({0x01020304, 0xfffefdfc})) << "later ones are dropped";
    EXPECT_EQ(parse(reply, 0), found({}));
}

TEST(Reply, WithoutAddresses) {
    std::string cname = record(pointer(12), kCname, kIn, pointer(16));
    EXPECT_EQ(parse(header(1) + question() + cname), found({})) << "a success";
    EXPECT_EQ(parse(header(0) + question() + address_record(1)), kUnreadable);
    EXPECT_EQ(parse(""), kUnreadable);
    EXPECT_EQ(parse(header(1)), kUnreadable) << "no question";
    EXPECT_EQ(parse(header(1) + question()), kUnreadable) << "no record";
    EXPECT_EQ(parse(header(2) + question() + cname), kUnreadable);
}

TEST(Reply, WrongCounts) {
    std::string body = question() + address_record(1) + address_record(2);
    EXPECT_EQ(parse(header(2) + body), found({1, 2}));
    EXPECT_EQ(parse(header(1) + body), found({1}));
    EXPECT_EQ(parse(header(3) + body), found({1, 2}));
    EXPECT_EQ(parse(header(0xffff) + body), found({1, 2}));
    EXPECT_EQ(parse(header(3) + body, 0), kUnreadable) << "nothing was stored before the end";
    EXPECT_EQ(parse(header(2, 0) + body), found({1, 2})) << "the question count is ignored";
    EXPECT_EQ(parse(header(2, 0xffff) + body), found({1, 2}));
}

TEST(Reply, DataLengths) {
    std::string head = header(2) + question();
    std::string good = address_record(7);
    for (size_t length : {0, 3, 5, 508, 509, 600}) {
        std::string odd = record(pointer(12), kA, kIn, std::string(length, 'd'));
        EXPECT_EQ(parse(head + odd + good), found({7})) << length << ": stepped over whole";
    }
    std::string past_end = record(pointer(12), kA, kIn, be32(8));
    past_end[past_end.size() - 5] = 5;
    EXPECT_EQ(parse(head + past_end), kUnreadable);
    EXPECT_EQ(parse(head + good + past_end), found({7})) << "the addresses before it count";
    past_end[past_end.size() - 6] = static_cast<char>(0xff);
    EXPECT_EQ(parse(head + past_end), kUnreadable);
}

TEST(Reply, CutAnywhere) {
    std::string before = header(2) + question() + address_record(7);
    std::string reply = before + address_record(8, kWww);
    for (size_t length = 0; length < reply.size(); ++length) {
        EXPECT_EQ(parse(reply.substr(0, length)), length < before.size() ? kUnreadable : found({7}))
            << length;
    }
}

// --- Names ---

// The outcome of a reply whose only record has this name.
Outcome with_name(const std::string &name, const std::string &question_name = kWww) {
    return parse(header(1) + question(question_name) + address_record(7, name));
}

constexpr size_t kRecordName = kQuestionName + 21; // behind the question for kWww

TEST(ReplyNames, AnyOfTheTwoTopBitsMakesAPointer) {
    for (unsigned bits : {0x40, 0x80, 0xc0}) {
        EXPECT_EQ(with_name(pointer(kQuestionName, bits)), found({7}));
        EXPECT_EQ(with_name("\4mail" + pointer(kQuestionName + 4, bits)), found({7}));
        EXPECT_EQ(with_name(pointer(kRecordName, bits)), kUnreadable) << "its own length byte";
        EXPECT_EQ(with_name(pointer(0x3fff, bits)), kUnreadable) << "outside";
    }
    EXPECT_EQ(with_name(pointer(2)), kUnreadable) << "0x81 in the header is a pointer to 0x0180";
    EXPECT_EQ(with_name(pointer(4)), found({7})) << "a zero byte of the header is a name's end";
}

TEST(ReplyNames, PointersMayLeadForward) {
    std::string reply = header(1) + question() + address_record(7, pointer(kRecordName + 16));
    EXPECT_EQ(parse(reply), kUnreadable) << "right behind the message";
    EXPECT_EQ(parse(reply + kEnd), found({7}));
    EXPECT_EQ(parse(reply + "\1a" + kEnd), found({7}));
    EXPECT_EQ(parse(reply + "\1a"), kUnreadable);
    EXPECT_EQ(parse(reply + "\xc0"), kUnreadable) << "half a pointer";
}

TEST(ReplyNames, LoopsEnd) {
    EXPECT_EQ(with_name(pointer(kRecordName + 2) + pointer(kRecordName)), kUnreadable);
    EXPECT_EQ(with_name("\1a" + pointer(kRecordName)), kUnreadable) << "a growing name";
    EXPECT_EQ(with_name(kEnd, pointer(kQuestionName)), kUnreadable);
    EXPECT_EQ(with_name(kEnd, pointer(kQuestionName + 2) + pointer(kQuestionName)), kUnreadable);
    EXPECT_EQ(with_name(label(63) + pointer(kRecordName)), kUnreadable);
}

TEST(ReplyNames, AtMost64Pointers) {
    std::string head = header(1) + question();
    size_t behind = head.size() + 16; // where the record ends
    for (size_t pointers : {1, 63, 64, 65, 66}) {
        // The record's own pointer is the first, the chain behind it has the others.
        std::string reply = head + address_record(7, pointer(behind)) + chain(pointers - 1, behind);
        EXPECT_EQ(parse(reply), pointers <= 64 ? found({7}) : kUnreadable) << pointers;
    }
}

TEST(ReplyNames, TextUpTo512Bytes) {
    std::string most = repeated(7, label(63)); // 448 characters with the dots
    EXPECT_EQ(with_name(most + label(62) + kEnd), found({7})) << "512 with the NUL";
    EXPECT_EQ(with_name(most + label(63) + kEnd), kUnreadable) << "513";
    EXPECT_EQ(with_name(kEnd, most + label(62) + kEnd), found({7}));
    EXPECT_EQ(with_name(kEnd, most + label(63) + kEnd), kUnreadable);
    EXPECT_EQ(with_name(repeated(255, "\1a") + kEnd), found({7})) << "511";
    EXPECT_EQ(with_name(repeated(256, "\1a") + kEnd), kUnreadable);
    // Of which a pointer brings 16: www.example.org.
    EXPECT_EQ(with_name(most + label(46) + pointer(kQuestionName)), found({7}));
    EXPECT_EQ(with_name(most + label(47) + pointer(kQuestionName)), kUnreadable);
}

// --- Hostile replies ---

TEST(Reply, MutationsAgreeWithTheModel) {
    std::string head = header(4) + question();
    const std::string good[] = {
        header(2) + question() + address_record(0x01020304) + address_record(0x05060708),
        head + record(pointer(12), kCname, kIn, "\3cdn" + pointer(16)) +
            address_record(0x01020304, pointer(head.size() + 12)) + address_record(2) +
            record(pointer(12), kAaaa, kIn, std::string(16, '6')),
        header(3) + question() + address_record(1, "\1a" + pointer(12)) +
            address_record(2, label(63) + label(63) + pointer(16)) + address_record(3, kWww),
        header(1) + question(repeated(7, label(63)) + label(62) + kEnd) + address_record(1),
        header(30) + question() + repeated(30, address_record(0x0a0b0c0d)),
    };
    std::mt19937 random(20240229);
    int usable = 0;
    for (int round = 0; round < 20000; ++round) {
        std::string reply = good[random() % std::size(good)];
        for (unsigned changes = random() % 4 + 1; changes != 0; --changes) {
            size_t at = random() % reply.size();
            switch (random() % 5) {
            case 0:
                reply[at] = static_cast<char>(random());
                break;
            case 1:
                reply[at] = static_cast<char>(reply[at] ^ (1 << random() % 8));
                break;
            case 2:
                reply[at] = static_cast<char>(0xc0);
                break;
            case 3:
                reply.erase(at, random() % 8);
                break;
            default:
                reply.insert(at, reply.substr(random() % reply.size(), random() % 24));
            }
            if (reply.empty()) {
                break;
            }
        }
        unsigned max = random() % 8 == 0 ? random() % 3 : kRoom;
        Outcome seen = parse(reply, max);
        ASSERT_EQ(seen, Model(reply, max).parse())
            << "round " << round << ": " << testing::PrintToString(reply);
        usable += seen.result > 0;
    }
    EXPECT_GT(usable, 5000) << "most of the changes broke too much to be worth it";
    EXPECT_LT(usable, 18000) << "most of the changes broke nothing";
}

} // namespace
