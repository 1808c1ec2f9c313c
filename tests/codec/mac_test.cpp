#include <routerkit/conversions.h>
#include <routerkit/strings.h>

#include <cstring>

#include "support/lab.h"

namespace {

constexpr char kMac[] = "\x00\x1a\x2b\x3c\x4d\xfe";

TEST(Mac, Writes) {
    std::string text(19, '#');
    EXPECT_EQ(mac_ntostr(text.data(), kMac), 17);
    EXPECT_EQ(text, std::string("00:1A:2B:3C:4D:FE\0#", 19));
    EXPECT_STREQ(mac_ntoa(kMac), "00:1A:2B:3C:4D:FE");
    char *first = strf("first");
    EXPECT_STREQ(mac_ntoa_3(kMac), "00:1a:2b:3c:4d:fe");
    EXPECT_STREQ(mac_ntoa_2(kMac), "001a2b3c4dfe");
    for (int i = 3; i < 8; ++i) {
        strf("x");
    }
    EXPECT_STREQ(first, "first") << "one slot each";
    EXPECT_EQ(strf("ninth"), first);
}

TEST(Mac, ReadsWithAndWithoutSeparators) {
    struct Case {
        const char *text;
        int result;
        const char *stored = "\x02\x1a\x2b\x3c\x4d\xfe";
    };
    const Case cases[] = {
        {"02:1A:2b:3C:4d:fE", 17},
        {"02-1A-2b-3C-4d-fE", 17},
        {"021A2b3C4dfE", 12},
        {"02:1A2b-3C:4dfE", 15},
        {"02:1A:2b:3C:4d:fE:66", 17},
        {"021A2b3C4dfE77", 12},
        {"02:1A:2b:3C:4d:f", 0, "\x02\x1a\x2b\x3c\x4d#"},
        {"02:1A:2b:3C:4d:", 0, "\x02\x1a\x2b\x3c\x4d#"},
        {"02:1A:2b:3C:4d:fg", 0, "\x02\x1a\x2b\x3c\x4d#"},
        {"02::1A:2b:3C:4d:fE", 0, "\x02#####"},
        {"02.1A.2b.3C.4d.fE", 0, "\x02#####"},
        {"2:1A:2b:3C:4d:fE", 0, "######"},
        {":02:1A:2b:3C:4d:fE", 0, "######"},
        {"", 0, "######"},
    };
    for (const Case &one : cases) {
        SCOPED_TRACE(one.text);
        lab::Fenced text(std::string_view(one.text, std::strlen(one.text) + 1));
        std::string mac(7, '#');
        EXPECT_EQ(mac_aton(mac.data(), text.data()), one.result);
        EXPECT_EQ(mac, std::string(one.stored) + "#");
    }
}

TEST(Mac, ComparesAndCopies) {
    std::string copy(8, '#');
    EXPECT_EQ(mac_copy(copy.data() + 1, kMac), 0);
    EXPECT_EQ(copy, "#" + std::string(kMac, 6) + "#");
    for (size_t i = 1; i <= 6; ++i) {
        std::string other = copy;
        other[i] = '?';
        EXPECT_EQ(mac_is_equal(other.data() + 1, kMac), 0) << "byte " << i;
    }
    EXPECT_EQ(mac_is_equal(copy.data() + 1, kMac), 1);
    EXPECT_EQ(mac_isnull(nullptr), 1);
    EXPECT_EQ(mac_isnull("\0\0\0\0\0\0"), 1);
    EXPECT_EQ(mac_isnull("\0\0\0\0\0\1"), 0);
}

TEST(Mac, KindsOfMulticast) {
    struct Case {
        const char *text;
        int multicast, ipv4, ipv6, dns;
    };
    const Case cases[] = {
        {"01:00:5E:00:00:FB", 1, 1, 0, 1}, {"01:00:5E:00:00:FC", 1, 1, 0, 0},
        {"33:33:00:00:00:FB", 1, 0, 1, 1}, {"33:33:00:00:00:01", 1, 0, 1, 0},
        {"FF:FF:FF:FF:FF:FF", 1, 0, 0, 0}, {"01:00:5F:00:00:FB", 1, 0, 0, 0},
        {"00:00:5E:00:00:FB", 0, 0, 0, 0}, {"33:32:00:00:00:FB", 1, 0, 0, 0},
    };
    for (const Case &one : cases) {
        SCOPED_TRACE(one.text);
        uint8_t mac[6];
        ASSERT_EQ(mac_aton(mac, one.text), 17);
        EXPECT_EQ(mac_is_multicast(mac), one.multicast);
        EXPECT_EQ(mac_is_ipv4_multicast(mac), one.ipv4);
        EXPECT_EQ(mac_is_ipv6_multicast(mac), one.ipv6);
        EXPECT_EQ(mac_is_dns_multicast(mac), one.dns);
    }
}

} // namespace
