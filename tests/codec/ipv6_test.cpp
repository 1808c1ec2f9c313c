#include <routerkit/conversions.h>

#include <climits>
#include <cstring>

#include <arpa/inet.h>

#include "support/lab.h"

namespace {

const char kLongest[] = "1111:2222:3333:4444:5555:6666:7777:8888";
const char kLongestMapped[] = "::ffff:255.255.255.255";
const uint8_t kMdns[16] = {0xff, 0x02, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0xfb};

TEST(Ipv6, ReadsAsInetPtonDoes) {
    for (const char *text : {"ff02::fb", "::", kLongest, kLongestMapped}) {
        uint8_t wanted[16];
        ASSERT_EQ(inet_pton(AF_INET6, text, wanted), 1);
        uint8_t bytes[17];
        bytes[16] = 0xa5;
        EXPECT_EQ(ipv6_isip(text), 1) << text;
        EXPECT_EQ(ipv6_aton(bytes, text), static_cast<int>(std::strlen(text)));
        EXPECT_EQ(std::memcmp(bytes, wanted, 16), 0);
        EXPECT_EQ(bytes[16], 0xa5);
        uint16_t host[9] = {};
        host[8] = 0xa5a5;
        EXPECT_EQ(ipv6_atoh(host, text), static_cast<int>(std::strlen(text)));
        for (int word = 0; word < 8; ++word) {
            EXPECT_EQ(host[word], wanted[2 * word] * 256 + wanted[2 * word + 1]);
        }
        EXPECT_EQ(host[8], 0xa5a5);
        EXPECT_STREQ(ipv6_htoa(host), text);
        EXPECT_STREQ(ipv6_ntoa(bytes), text);
    }
    for (const char *text :
         {"", "1.2.3.4", "::1 ", " ::1", "::1/64", "1::2::3", ":::", "12345::"}) {
        uint8_t bytes[16];
        uint16_t host[8];
        EXPECT_EQ(ipv6_isip(text), 0) << text;
        EXPECT_EQ(ipv6_aton(bytes, text), 0) << text;
        EXPECT_EQ(ipv6_atoh(host, text), 0) << text;
    }
}

TEST(Ipv6, ReadsPrefixes) {
    struct Case {
        const char *text;
        int atonp;
        int prefix; // -7: untouched
        int atohp;
    };
    const Case cases[] = {
        {"2001:db8::/32", 0, 32, 10},
        {"::/0", 0, 0, 2},
        {"ff02::fb/-1", 0, -1, 8},
        {"ff02::fb/ 999x", 0, 999, 8},
        {"2001:db8::", -1, -7, -1},
        {"2001:db8::/", -1, -7, -1},
        {"2001:db8::/x", -1, -7, -1},
        {"/32", -1, -7, -1},
        {"", -1, -7, -1},
        {"nonsense/64", -1, 64, 0},
        // 40 and 41 characters before the slash: the second is no prefix form
        {"0000:0000:0000:0000:0000:ffff:192.168.10/24", -1, 24, 0},
        {"0000:0000:0000:0000:0000:ffff:192.168.1.1/24", -1, -7, -1},
    };
    for (const Case &one : cases) {
        SCOPED_TRACE(one.text);
        uint8_t bytes[16];
        uint16_t host[8];
        int prefix = -7;
        EXPECT_EQ(ipv6_atonp(bytes, &prefix, one.text), one.atonp);
        EXPECT_EQ(prefix, one.prefix);
        prefix = -7;
        EXPECT_EQ(ipv6_atohp(host, &prefix, one.text), one.atohp);
        EXPECT_EQ(prefix, one.prefix);
    }
    uint16_t host[8];
    int prefix = 0;
    ASSERT_EQ(ipv6_atohp(host, &prefix, "2001:db8::1/32"), 11);
    EXPECT_EQ(host[0], 0x2001);
    EXPECT_EQ(host[7], 1);
}

TEST(Ipv6, Writes) {
    char text[64];
    std::memset(text, '#', sizeof text);
    EXPECT_EQ(ipv6_ntostr(text, kMdns), 8);
    EXPECT_STREQ(text, "ff02::fb");
    EXPECT_EQ(ipv6_nptostr(text, kMdns, 64), 11);
    EXPECT_STREQ(text, "ff02::fb/64");
    EXPECT_EQ(text[12], '#');
    EXPECT_STREQ(ipv6_nptoa(kMdns, 64), "ff02::fb/64");

    uint8_t longest[16];
    ASSERT_EQ(ipv6_aton(longest, kLongest), 39);
    EXPECT_EQ(ipv6_nptostr(text, longest, INT_MIN), 39 + 12);
    EXPECT_STREQ(text, (std::string(kLongest) + "/-2147483648").c_str());
    EXPECT_EQ(text[52], '#');
}

// The ring's slots lie side by side, so that a text too long would show in the next one. The
// longest address has 39 characters here; glibc writes no longer one.
TEST(Ipv6, EightSlotsOf54Bytes) {
    uint8_t longest[16];
    ipv6_aton(longest, kLongest);
    uint16_t host[8];
    ipv6_atoh(host, "::1");
    char *first = ipv6_ntoa(kMdns);
    for (int slot = 1; slot < 8; ++slot) {
        char *text = slot % 2 == 0 ? ipv6_htoa(host) : ipv6_nptoa(longest, INT_MIN);
        EXPECT_EQ(text, first + slot * 54);
    }
    EXPECT_STREQ(first, "ff02::fb");
    EXPECT_STREQ(first + 54, (std::string(kLongest) + "/-2147483648").c_str());
    EXPECT_STREQ(first + 2 * 54, "::1");
    EXPECT_EQ(ipv6_htoa(host), first);
    EXPECT_STREQ(first, "::1");
    char *other_ring = ipv4_itoa(0);
    EXPECT_EQ(ipv6_ntoa(kMdns), first + 54) << "the IPv4 ring is another";
    EXPECT_STREQ(other_ring, "0.0.0.0");
}

TEST(Ipv6, WordsChangeOrderInPlaceToo) {
    uint16_t words[9] = {0x0102, 0x0304, 0x0506, 0x0708, 0x090a, 0x0b0c, 0x0d0e, 0x0f10, 0xa5a5};
    EXPECT_EQ(ipv6_hton(words, words), words);
    uint8_t bytes[16];
    std::memcpy(bytes, words, sizeof bytes);
    for (int i = 0; i < 16; ++i) {
        EXPECT_EQ(bytes[i], i + 1);
    }
    uint16_t host[8];
    EXPECT_EQ(ipv6_ntoh(host, words), host);
    EXPECT_EQ(host[0], 0x0102);
    EXPECT_EQ(host[7], 0x0f10);
    EXPECT_EQ(words[8], 0xa5a5);
}

} // namespace
