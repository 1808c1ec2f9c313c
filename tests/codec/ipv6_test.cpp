#include <routerkit/conversions.h>

#include <climits>
#include <cstring>

#include "support/lab.h"

namespace {

const char kLongest[] = "1111:2222:3333:4444:5555:6666:7777:8888";
const char kMdns[] = "\xff\x02\0\0\0\0\0\0\0\0\0\0\0\0\0\xfb";

TEST(Ipv6, ReadsAndWritesWholeAddresses) {
    for (const char *text : {"ff02::fb", "::", "::ffff:255.255.255.255", kLongest}) {
        SCOPED_TRACE(text);
        const int length = static_cast<int>(std::strlen(text));
        std::string bytes(17, '#');
        EXPECT_EQ(ipv6_isip(text), 1);
        EXPECT_EQ(ipv6_aton(bytes.data(), text), length);
        EXPECT_EQ(bytes[16], '#');
        uint16_t host[9] = {};
        EXPECT_EQ(ipv6_atoh(host, text), length);
        for (size_t word = 0; word < 8; ++word) {
            EXPECT_EQ(host[word], static_cast<uint8_t>(bytes[2 * word]) * 256 +
                                      static_cast<uint8_t>(bytes[2 * word + 1]));
        }
        EXPECT_EQ(host[8], 0);
        EXPECT_STREQ(ipv6_htoa(host), text);
        EXPECT_STREQ(ipv6_ntoa(bytes.data()), text);
    }
    for (const char *text : {"", "1.2.3.4", "::1 ", " ::1", "::1/64", "1::2::3", "12345::"}) {
        uint16_t address[8];
        EXPECT_EQ(ipv6_isip(text) + ipv6_aton(address, text) + ipv6_atoh(address, text), 0) << text;
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
        {"ff02::fb/-1", 0, -1, 8},
        {"ff02::fb/ 999x", 0, 999, 8},
        {"2001:db8::", -1, -7, -1},
        {"2001:db8::/x", -1, -7, -1},
        {"/32", -1, -7, -1},
        {"nonsense/64", -1, 64, 0},
        // 40 and 41 characters before the slash: the second is no prefix form
        {"0000:0000:0000:0000:0000:ffff:192.168.10/24", -1, 24, 0},
        {"0000:0000:0000:0000:0000:ffff:192.168.1.1/24", -1, -7, -1},
    };
    for (const Case &one : cases) {
        SCOPED_TRACE(one.text);
        uint16_t address[8];
        int prefix = -7;
        EXPECT_EQ(ipv6_atonp(address, &prefix, one.text), one.atonp);
        EXPECT_EQ(prefix, one.prefix);
        prefix = -7;
        EXPECT_EQ(ipv6_atohp(address, &prefix, one.text), one.atohp);
        EXPECT_EQ(prefix, one.prefix);
    }
}

TEST(Ipv6, WritesWithPrefix) {
    std::string text(64, '#');
    EXPECT_EQ(ipv6_nptostr(text.data(), kMdns, 64), 11);
    EXPECT_EQ(text.substr(0, 13), std::string("ff02::fb/64\0#", 13));
    uint8_t longest[16];
    ASSERT_EQ(ipv6_aton(longest, kLongest), 39);
    EXPECT_EQ(ipv6_nptostr(text.data(), longest, INT_MIN), 39 + 12);
    EXPECT_EQ(text.c_str(), std::string(kLongest) + "/-2147483648");
    EXPECT_EQ(text[52], '#');
}

TEST(Ipv6, EightSlotsOf54Bytes) {
    char *first = ipv6_ntoa(kMdns);
    char *other_ring = ipv4_itoa(0);
    for (int slot = 1; slot < 8; ++slot) {
        EXPECT_EQ(ipv6_nptoa(kMdns, slot), first + slot * 54);
    }
    EXPECT_STREQ(first, "ff02::fb");
    EXPECT_STREQ(first + 7 * 54, "ff02::fb/7");
    EXPECT_EQ(ipv6_ntoa(kMdns), first);
    EXPECT_STREQ(other_ring, "0.0.0.0");
}

TEST(Ipv6, WordsChangeOrderInPlaceToo) {
    uint16_t words[9] = {0x0102, 0x0304, 0x0506, 0x0708, 0x090a, 0x0b0c, 0x0d0e, 0x0f10, 0xa5a5};
    EXPECT_EQ(ipv6_hton(words, words), words);
    EXPECT_EQ(std::memcmp(words, "\1\2\3\4\5\6\7\x8\x9\xa\xb\xc\xd\xe\xf\x10\xa5\xa5", 18), 0);
    uint16_t host[8];
    EXPECT_EQ(ipv6_ntoh(host, words), host);
    EXPECT_EQ(host[0] << 16 | host[7], 0x01020f10);
}

} // namespace
