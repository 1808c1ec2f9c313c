#include <routerkit/conversions.h>

#include <bit>
#include <cstring>
#include <random>

#include "codec/ipv4_model.h"
#include "support/lab.h"

namespace {

void expect_as_the_model(const std::string &text) {
    SCOPED_TRACE(testing::PrintToString(text));
    lab::Fenced fenced(std::string_view(text.c_str(), text.size() + 1));
    lab::Ipv4Text wanted = lab::parse_ipv4(fenced.data());
    std::string octets = "#####";
    const char *end = ipv4_aton(octets.data(), fenced.data());
    ASSERT_EQ(end == nullptr ? -1 : end - fenced.data(), wanted.end);
    ASSERT_EQ(octets, wanted.octets + "#") << "octets before a bad one stay stored";
    ASSERT_EQ(ipv4_isip(fenced.data()), wanted.end == static_cast<long>(text.size()) ? 1 : 0);
    ASSERT_EQ(ipv4_atoi(fenced.data()), wanted.end < 0 ? 0 : ipv4_ntoi(octets.data()));
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
        {"+1.\t2. +3.\v\f\r\n4", 1, 0x01020304},
        {"010.0000000000000000000001.-0.00", 1, 0x0a010000},
        {"1.2.3.4 ", 0, 0x01020304},
        {"10.0.0.1/8", 0, 0x0a000001},
        {"1.2.3.0x10", 0, 0x01020300},
        {"1.2.3.256", 0, 0},
        {"1.2.3.-4294967295", 0, 0},
        {"1.2.3.-18446744073709551615", 0, 0},
        {"1.2.3.4294967297", 0, 0},
        {"1.2.3.18446744073709551617", 0, 0},
        {"1.2.3.+-4", 0, 0},
    };
    for (const Case &one : cases) {
        EXPECT_EQ(ipv4_isip(one.text), one.isip) << one.text;
        EXPECT_EQ(ipv4_atoi(one.text), one.atoi) << one.text;
        expect_as_the_model(one.text);
    }
}

TEST(Ipv4, WritesWithoutLeadingZeros) {
    for (uint32_t octet = 0; octet < 256; ++octet) {
        for (uint32_t address : {octet << 24, octet << 16 | 0x0a0000ff, octet << 8 | 99U, octet}) {
            char wanted[16];
            int length = std::snprintf(wanted, sizeof wanted, "%u.%u.%u.%u", address >> 24,
                                       address >> 16 & 255, address >> 8 & 255, address & 255);
            std::string text(17, '#');
            ASSERT_EQ(ipv4_itostr(text.data(), address), length);
            ASSERT_EQ(text, (wanted + std::string("\0################", 17)).substr(0, 17));
            char bytes[] = "######";
            ASSERT_EQ(ipv4_iton(bytes + 1, address), address); // an odd place on purpose
            ASSERT_EQ(bytes[0], bytes[5]);
            ASSERT_EQ(ipv4_ntoi(bytes + 1), address);
            ASSERT_EQ(ipv4_ntostr(text.data(), bytes + 1), length);
            ASSERT_STREQ(text.c_str(), wanted);
            ASSERT_STREQ(ipv4_itoa(address), wanted);
        }
    }
    EXPECT_EQ(ipv4_ntoi("\xc0\xa8\x00\x01"), 0xc0a80001);
}

TEST(Ipv4, SharesEightSlotsWithTheHexTexts) {
    const char mac[] = "\1\2\3\4\5\6";
    char *first = ipv4_itoa(0xc0a80001);
    EXPECT_EQ(ipv4_ntoa(mac), first + 40);
    EXPECT_EQ(hex_ntoa(mac, 6), first + 2 * 40);
    EXPECT_EQ(mac_ntoa(mac), first + 3 * 40);
    for (int i = 4; i < 8; ++i) {
        EXPECT_EQ(ipv4_itoa(0), first + i * 40);
    }
    EXPECT_STREQ(first, "192.168.0.1");
    EXPECT_STREQ(first + 40, "1.2.3.4");
    EXPECT_EQ(mac_ntoa(mac), first);
}

TEST(Ipv4Masks, WidthsAndBits) {
    uint32_t mask = 0;
    for (unsigned width = 0; width <= 32; ++width) {
        EXPECT_EQ(ipv4_wtoi(width), mask) << width;
        EXPECT_EQ(ipv4_isimask(~mask), 1) << "an inverted mask";
        EXPECT_EQ(ipv4_isimask(mask), width == 0 || width == 32 ? 1 : 0);
        mask = mask >> 1 | 0x80000000;
    }
    EXPECT_EQ(ipv4_wtoi(33), 0x80000000);
    EXPECT_EQ(ipv4_wtoi(64), 0xffffffff);
    std::mt19937 random(1);
    for (uint32_t bits : {0U, ~0U, static_cast<uint32_t>(random()), 0xff00ff00U, 0x77777777U}) {
        EXPECT_EQ(ipv4_itow(bits), static_cast<unsigned>(std::popcount(bits))) << bits;
    }
    EXPECT_EQ(ipv4_ismask("0.0.0.255"), 1);
    EXPECT_EQ(ipv4_ismask("255.255.255.255"), 1);
    EXPECT_EQ(ipv4_ismask("255.255.255.0"), 0);
    EXPECT_EQ(ipv4_ismask("0.0.0.255/24"), 0);
    EXPECT_EQ(ipv4_ismask(""), 0);
}

} // namespace
