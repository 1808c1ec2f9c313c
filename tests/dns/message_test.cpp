#include "dns/message.h"

#include <algorithm>
#include <cstring>
#include <optional>

#include "support/lab.h"

using rk::dns::build_query;
using rk::dns::kMessageSize;
using rk::dns::parse_reply;

namespace {

constexpr size_t kQuestionName = 12;
constexpr unsigned kRoom = 80; // more addresses than a message holds

// --- Messages, piece by piece ---

std::string be16(unsigned value) {
    return {static_cast<char>(value >> 8), static_cast<char>(value)};
}

std::string be32(uint32_t value) {
    return be16(value >> 16) + be16(value & 0xffff);
}

std::string repeated(size_t times, const std::string &bytes) {
    std::string all;
    while (times-- != 0) {
        all += bytes;
    }
    return all;
}

std::string label(size_t length) {
    return static_cast<char>(length) + std::string(length, 'x');
}

std::string pointer(size_t offset, unsigned bits = 0xc0) {
    return be16(bits << 8 | static_cast<unsigned>(offset));
}

const std::string kEnd(1, '\0');
const std::string kWww = "\3www\7example\3org" + kEnd;
constexpr size_t kRecords = kQuestionName + 21; // behind the question for kWww

std::string record(const std::string &name, unsigned type, unsigned network_class,
                   const std::string &data) {
    return name + be16(type) + be16(network_class) + be32(300) +
           be16(static_cast<unsigned>(data.size())) + data;
}

std::string address(uint32_t address, const std::string &name = pointer(kQuestionName)) {
    return record(name, 1, 1, be32(address));
}

const std::string kCname = record(pointer(kQuestionName), 5, 1, "\3cdn" + pointer(16));

std::string reply(unsigned answers, const std::string &records, const std::string &name = kWww,
                  unsigned questions = 1) {
    return be16(0x0100) + be16(0x8180) + be16(questions) + be16(answers) + be32(0) + name +
           be16(1) + be16(1) + records;
}

using Found = std::optional<std::vector<uint32_t>>; // nothing for an unreadable reply
const Found kUnreadable;
const Found kNone = std::vector<uint32_t>{};
const Found kSeven = std::vector<uint32_t>{7};

// Parses a reply that lies right before an unreadable page.
Found parse(const std::string &message, unsigned max = kRoom) {
    constexpr uint32_t kUntouched = 0xdeadbeef;
    lab::Fenced fenced(message);
    std::vector<uint32_t> room(kRoom, kUntouched);
    errno = 0;
    int result =
        parse_reply(reinterpret_cast<uint8_t *>(fenced.data()), fenced.size(), room.data(), max);
    EXPECT_EQ(errno, result < 0 ? EPROTO : 0);
    while (!room.empty() && room.back() == kUntouched) {
        room.pop_back();
    }
    EXPECT_EQ(room.size(), static_cast<size_t>(std::max(result, 0)));
    return result < 0 ? kUnreadable : room;
}

// --- Queries ---

std::string query(const std::string &name) {
    uint8_t message[kMessageSize];
    std::memset(message, 0xee, sizeof message);
    size_t length = build_query(message, name.c_str());
    return {reinterpret_cast<char *>(message), length};
}

TEST(Query, BytesOnTheWire) {
    const std::string head("\1\0\1\0\0\1\0\0\0\0\0\0", 12);
    const std::string tail("\0\0\1\0\1", 5);
    EXPECT_EQ(query("www.example.org"), head + "\3www\7example\3org" + tail);
    EXPECT_EQ(query("\xd1\x8f.\xff."), head + "\2\xd1\x8f\1\xff" + tail) << "one dot is dropped";
    const std::string longest = repeated(15, std::string(63, 'x') + ".") + std::string(46, 'x');
    ASSERT_EQ(longest.size(), 1006U);
    EXPECT_EQ(query(longest), head + repeated(15, label(63)) + label(46) + tail);
    EXPECT_EQ(query(longest + "."), query(longest));
    EXPECT_EQ(query(longest).size(), kMessageSize);
    for (const std::string &refused :
         {longest + "b", longest + "b.", longest + "..", "a." + std::string(64, 'a') + ".b",
          std::string(), std::string("."), std::string(".a"), std::string("a..b"),
          std::string("a..")}) {
        EXPECT_EQ(query(refused), "") << refused;
    }
}

// --- Replies ---

TEST(Reply, AddressesInTheRecordsOrder) {
    const std::string good =
        reply(7, kCname + address(0x01020304) + address(0xfffefdfc, kWww) +
                     record(pointer(12), 28, 1, std::string(16, '6')) + // AAAA
                     record(pointer(12), 1, 3, be32(0x09090909)) +      // class CHAOS
                     address(5, "\5other" + kEnd) + address(6, kEnd) + "padding");
    EXPECT_EQ(parse(good), Found({0x01020304, 0xfffefdfc, 5, 6}));
    EXPECT_EQ(parse(good, 2), Found({0x01020304, 0xfffefdfc})) << "later ones are dropped";
    EXPECT_EQ(parse(good, 0), kNone);
}

TEST(Reply, CountsAndLengths) {
    const std::string two = address(7) + address(8);
    const Found both({7, 8});
    EXPECT_EQ(parse(reply(1, kCname)), kNone) << "a success";
    EXPECT_EQ(parse(reply(0, two)), kUnreadable);
    EXPECT_EQ(parse(reply(1, two)), kSeven);
    EXPECT_EQ(parse(reply(3, two)), both);
    EXPECT_EQ(parse(reply(0xffff, two)), both);
    EXPECT_EQ(parse(reply(3, two), 0), kUnreadable) << "nothing was stored before the end";
    for (unsigned questions : {0U, 0xffffU}) {
        EXPECT_EQ(parse(reply(2, two, kWww, questions)), both) << "that count is ignored";
    }
    for (size_t length : {0, 3, 5, 508, 509, 600}) {
        const std::string odd = record(pointer(12), 1, 1, std::string(length, 'd'));
        EXPECT_EQ(parse(reply(2, odd + address(7))), kSeven) << length << ": stepped over whole";
    }
    std::string past_end = address(8);
    past_end[past_end.size() - 5] = 5;
    EXPECT_EQ(parse(reply(1, past_end)), kUnreadable);
    EXPECT_EQ(parse(reply(2, address(7) + past_end)), kSeven) << "what came before it counts";
}

TEST(Reply, CutAnywhere) {
    const std::string before = reply(2, address(7));
    const std::string whole = before + address(8, kWww);
    for (size_t length = 0; length < whole.size(); ++length) {
        EXPECT_EQ(parse(whole.substr(0, length)), length < before.size() ? kUnreadable : kSeven)
            << length;
    }
}

TEST(Reply, NamesOfRecordsAndQuestions) {
    const std::string most = repeated(7, label(63)); // 448 characters with the dots
    struct Case {
        const char *what;
        std::string name;
        bool readable;
    };
    const Case cases[] = {
        {"pointer outside", pointer(0x3fff), false},
        {"pointer to 0x81 in the header, a pointer to 0x0180", pointer(2), false},
        {"pointer to a zero byte in the header", pointer(4), true},
        {"loop of two", pointer(kRecords + 2) + pointer(kRecords), false},
        {"growing name", "\1a" + pointer(kRecords), false},
        {"growing fast", label(63) + pointer(kRecords), false},
        {"512 bytes of text with the NUL", most + label(62) + kEnd, true},
        {"513", most + label(63) + kEnd, false},
        {"511 of short labels", repeated(255, "\1a") + kEnd, true},
        {"513 of short labels", repeated(256, "\1a") + kEnd, false},
        {"512, 16 of them behind a pointer", most + label(46) + pointer(kQuestionName), true},
        {"513, 16 of them behind a pointer", most + label(47) + pointer(kQuestionName), false},
    };
    for (const Case &one : cases) {
        EXPECT_EQ(parse(reply(1, address(7, one.name))), one.readable ? kSeven : kUnreadable)
            << one.what;
    }
    for (unsigned bits : {0x40, 0x80, 0xc0}) {
        EXPECT_EQ(parse(reply(1, address(7, "\4mail" + pointer(16, bits)))), kSeven);
        EXPECT_EQ(parse(reply(1, address(7, pointer(kRecords, bits)))), kUnreadable)
            << "its own length byte";
    }
    EXPECT_EQ(parse(reply(1, address(7, kEnd), pointer(kQuestionName))), kUnreadable);
    EXPECT_EQ(parse(reply(1, address(7, kEnd), most + label(62) + kEnd)), kSeven);
    EXPECT_EQ(parse(reply(1, address(7, kEnd), most + label(63) + kEnd)), kUnreadable);
}

TEST(Reply, PointersMayLeadForwardAtMost64Times) {
    constexpr size_t behind = kRecords + 16; // the record, which points there
    const std::string head = reply(1, address(7, pointer(behind)));
    EXPECT_EQ(parse(head), kUnreadable) << "right behind the message";
    EXPECT_EQ(parse(head + "\1a" + kEnd), kSeven);
    EXPECT_EQ(parse(head + "\1a"), kUnreadable);
    EXPECT_EQ(parse(head + "\xc0"), kUnreadable) << "half a pointer";
    std::string chain;
    for (size_t pointers = 1; pointers <= 66; ++pointers) {
        EXPECT_EQ(parse(head + chain + kEnd), pointers <= 64 ? kSeven : kUnreadable) << pointers;
        chain += pointer(behind + chain.size() + 2);
    }
}

} // namespace
