#include <routerkit/conversions.h>

#include <cctype>
#include <cstdlib>
#include <cstring>
#include <random>

#include "support/lab.h"

namespace {

constexpr uint8_t kCanary = 0xa5;

struct Parsed {
    long end; // behind the address; -1: none
    uint8_t octets[4] = {kCanary, kCanary, kCanary, kCanary};
};

// What strtoul makes of a text, field by field, with the sign looked up by hand: it would turn a
// negative number into a huge or, for the right one, a small number.
Parsed model(const char *text) {
    Parsed result = {-1};
    const char *at = text;
    for (int field = 0; field < 4; ++field) {
        if (field != 0 && *at++ != '.') {
            return result;
        }
        const char *sign = at;
        while (std::isspace(static_cast<unsigned char>(*sign)) != 0) {
            ++sign;
        }
        char *end = nullptr;
        unsigned long value = std::strtoul(at, &end, 10);
        if (end == at || value > 255 || (*sign == '-' && value != 0)) {
            return result;
        }
        // "-18446744073709551615" is 1 to strtoul.
        if (*sign == '-' &&
            std::string_view(sign, end).find_first_not_of("-0") != std::string::npos) {
            return result;
        }
        result.octets[field] = static_cast<uint8_t>(value);
        at = end;
    }
    result.end = at - text;
    return result;
}

void expect_parsed(const char *text) {
    SCOPED_TRACE(text);
    Parsed wanted = model(text);
    uint8_t octets[5];
    std::memset(octets, kCanary, sizeof octets);
    const char *end = ipv4_aton(octets, text);
    ASSERT_EQ(end == nullptr ? -1 : end - text, wanted.end);
    ASSERT_EQ(std::memcmp(octets, wanted.octets, 4), 0) << "octets before a bad one stay stored";
    ASSERT_EQ(octets[4], kCanary);
    bool whole = wanted.end >= 0 && text[wanted.end] == '\0';
    ASSERT_EQ(ipv4_isip(text), whole ? 1 : 0);
    ASSERT_EQ(ipv4_atoi(text), wanted.end < 0 ? 0 : ipv4_ntoi(wanted.octets));
}

TEST(Ipv4, WhatIsAnAddress) {
    struct Case {
        const char *text;
        int isip;
        uint32_t atoi;
    };
    const Case cases[] = {
        {"1.2.3.4", 1, 0x01020304},
        {"255.255.255.255", 1, 0xffffffff},
        {" 1.2.3.4", 1, 0x01020304},
        {"+1.\t2. +3.\v\f\r\n4", 1, 0x01020304},
        {"010.0000000000000000000001.-0.00", 1, 0x0a010000},
        {"1.2.3.4 ", 0, 0x01020304},
        {"10.0.0.1/8", 0, 0x0a000001},
        {"1.2.3.4.5", 0, 0x01020304},
        {"1.2.3.4x", 0, 0x01020304},
        {"1.2.3.0x10", 0, 0x01020300},
        {"1.2.3.256", 0, 0},
        {"256.1.1.1", 0, 0},
        {"1.2.3.1000", 0, 0},
        {"1.2.3", 0, 0},
        {"1.2.3.", 0, 0},
        {"1..2.3", 0, 0},
        {"1.2.3 .4", 0, 0},
        {"-1.2.3.4", 0, 0},
        {"1.2.3.-4294967295", 0, 0},
        {"1.2.3.-18446744073709551615", 0, 0},
        {"1.2.3.4294967297", 0, 0},
        {"1.2.3.18446744073709551617", 0, 0},
        {"1.2.3.+-4", 0, 0},
        {"1.2.3.- 4", 0, 0},
        {"0x10.2.3.4", 0, 0},
        {"", 0, 0},
        {" ", 0, 0},
    };
    for (const Case &one : cases) {
        EXPECT_EQ(ipv4_isip(one.text), one.isip) << one.text;
        EXPECT_EQ(ipv4_atoi(one.text), one.atoi) << one.text;
        expect_parsed(one.text);
    }
}

class Texts {
  public:
    // Mostly addresses, with something odd every now and then.
    std::string next() {
        std::string text = pick({"", "", "", "", " ", "x"});
        for (int field = 0; field < 4; ++field) {
            text +=
                field == 0 ? "" : pick({".", ".", ".", ".", ".", ".", ".", "..", "", ",", " ."});
            text += pick({"", "", "", "", "", "", "", " ", "\t\n", "+", "-", "--", "\xa0"});
            text += pick({"", "", "", "", "", "0", "00", "0000000000000000000000000"});
            text += number();
        }
        return text + pick({"", "", "", " ", "/24", ".", "9", "\x80"});
    }

    // Any nonsense of the characters that matter.
    std::string nonsense() {
        std::string text;
        for (uint32_t left = below(14); left != 0; --left) {
            text += pick({"0", "1", "2", "5", "9", ".", ".", ".", " ", "-", "+", "x", "\n"});
        }
        return text;
    }

  private:
    uint32_t below(uint32_t end) { return static_cast<uint32_t>(random_()) % end; }

    std::string pick(std::initializer_list<const char *> choices) {
        return choices.begin()[below(static_cast<uint32_t>(choices.size()))];
    }

    std::string number() {
        switch (below(12)) {
        case 0:
            return "";
        case 1:
            return std::to_string(below(2000));
        case 2:
            return std::to_string(random_()) + std::to_string(random_());
        default:
            return std::to_string(below(260));
        }
    }

    std::mt19937 random_{20220804};
};

TEST(Ipv4, ReadsAsStrtoulDoes) {
    Texts texts;
    lab::Fenced room(std::string(256, 'x'));
    for (int i = 0; i < 200000 && !HasFatalFailure(); ++i) {
        std::string text = i % 2 == 0 ? texts.next() : texts.nonsense();
        size_t size = std::min(text.size() + 1, room.size());
        char *start = room.data() + room.size() - size;
        std::memcpy(start, text.c_str(), size);
        room.data()[room.size() - 1] = '\0'; // the last readable byte
        expect_parsed(start);
    }
}

TEST(Ipv4, WritesWithoutLeadingZeros) {
    for (uint32_t octet = 0; octet < 256; ++octet) {
        for (uint32_t address : {octet << 24, octet << 16 | 0x0a0000ff, octet << 8 | 99U, octet}) {
            char wanted[16];
            int length = std::snprintf(wanted, sizeof wanted, "%u.%u.%u.%u", address >> 24,
                                       address >> 16 & 255, address >> 8 & 255, address & 255);
            char text[17];
            std::memset(text, '#', sizeof text);
            ASSERT_EQ(ipv4_itostr(text, address), length);
            ASSERT_STREQ(text, wanted);
            ASSERT_EQ(text[length + 1], '#');

            uint8_t bytes[6] = {kCanary, 0, 0, 0, 0, kCanary};
            ASSERT_EQ(ipv4_iton(bytes + 1, address), address); // an odd place on purpose
            ASSERT_EQ(bytes[0] << 8 | bytes[5], kCanary << 8 | kCanary);
            ASSERT_EQ(ipv4_ntoi(bytes + 1), address);
            ASSERT_EQ(ipv4_ntostr(text, bytes + 1), length);
            ASSERT_STREQ(text, wanted);
            ASSERT_STREQ(ipv4_itoa(address), wanted);
            ASSERT_STREQ(ipv4_ntoa(bytes + 1), wanted);
        }
    }
    const uint8_t network[] = {192, 168, 0, 1};
    EXPECT_EQ(ipv4_ntoi(network), 0xc0a80001);
}

TEST(Ipv4, SharesEightSlotsWithTheHexTexts) {
    const uint8_t mac[6] = {1, 2, 3, 4, 5, 6};
    char *first = ipv4_itoa(0xc0a80001);
    EXPECT_EQ(ipv4_ntoa(mac), first + 40);
    EXPECT_EQ(hex_ntoa(mac, 6), first + 2 * 40);
    EXPECT_EQ(mac_ntoa(mac), first + 3 * 40);
    for (int i = 4; i < 8; ++i) {
        EXPECT_EQ(ipv4_itoa(0), first + i * 40);
    }
    EXPECT_STREQ(first, "192.168.0.1");
    EXPECT_EQ(mac_ntoa(mac), first);
    EXPECT_STREQ(first, "01:02:03:04:05:06");
}

TEST(Ipv4Masks, WidthsAndBits) {
    uint32_t mask = 0;
    for (unsigned width = 0; width <= 32; ++width) {
        EXPECT_EQ(ipv4_wtoi(width), mask) << width;
        EXPECT_EQ(ipv4_itow(mask), width);
        EXPECT_EQ(ipv4_isimask(~mask), 1) << "an inverted mask";
        EXPECT_EQ(ipv4_isimask(mask), width == 0 || width == 32 ? 1 : 0);
        mask = mask >> 1 | 0x80000000;
    }
    EXPECT_EQ(ipv4_wtoi(33), 0x80000000);
    EXPECT_EQ(ipv4_wtoi(64), 0xffffffff);
    EXPECT_EQ(ipv4_itow(0xff00ff00), 16U) << "holes are not looked for";
    std::mt19937 random(1);
    for (int i = 0; i < 1000; ++i) {
        auto bits = static_cast<uint32_t>(random());
        unsigned ones = 0;
        for (int bit = 0; bit < 32; ++bit) {
            ones += bits >> bit & 1;
        }
        ASSERT_EQ(ipv4_itow(bits), ones) << bits;
    }
    EXPECT_EQ(ipv4_isimask(0x00ff00ff), 0);

    EXPECT_EQ(ipv4_ismask("0.0.0.255"), 1);
    EXPECT_EQ(ipv4_ismask("255.255.255.255"), 1);
    EXPECT_EQ(ipv4_ismask("0.0.0.0"), 1);
    EXPECT_EQ(ipv4_ismask("255.255.255.0"), 0);
    EXPECT_EQ(ipv4_ismask("0.0.0.255/24"), 0);
    EXPECT_EQ(ipv4_ismask(""), 0);
}

} // namespace
