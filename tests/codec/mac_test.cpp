#include <routerkit/conversions.h>
#include <routerkit/strings.h>

#include <cstdlib>
#include <cstring>
#include <random>

#include "support/lab.h"

namespace {

const uint8_t kMac[6] = {0x00, 0x1a, 0x2b, 0x3c, 0x4d, 0xfe};

TEST(Mac, Writes) {
    char text[19];
    std::memset(text, '#', sizeof text);
    EXPECT_EQ(mac_ntostr(text, kMac), 17);
    EXPECT_STREQ(text, "00:1A:2B:3C:4D:FE");
    EXPECT_EQ(text[18], '#');
    EXPECT_STREQ(mac_ntoa(kMac), "00:1A:2B:3C:4D:FE");
}

TEST(Mac, LowerCaseTextsTakeOneStrfSlotEach) {
    char *first = strf("first");
    char *colons = mac_ntoa_3(kMac);
    char *plain = mac_ntoa_2(kMac);
    EXPECT_STREQ(colons, "00:1a:2b:3c:4d:fe");
    EXPECT_STREQ(plain, "001a2b3c4dfe");
    for (int i = 3; i < 8; ++i) {
        strf("x");
    }
    EXPECT_STREQ(first, "first");
    EXPECT_EQ(strf("ninth"), first);
}

// The obvious way: the bytes stored, and the result.
int model(const std::string &text, std::string &bytes) {
    const char *digits = "0123456789abcdefABCDEF";
    size_t at = 0;
    for (int i = 0; i < 6; ++i) {
        if (i != 0 && at < text.size() && (text[at] == ':' || text[at] == '-')) {
            ++at;
        }
        std::string pair = text.substr(at, 2);
        if (pair.size() != 2 || pair.find_first_not_of(digits) != std::string::npos) {
            return 0;
        }
        bytes += static_cast<char>(std::strtoul(pair.c_str(), nullptr, 16));
        at += 2;
    }
    return static_cast<int>(at);
}

void expect_read(const std::string &text) {
    SCOPED_TRACE(testing::PrintToString(text));
    std::string stored;
    int result = model(text, stored);
    stored.resize(7, '#');
    std::string mac(7, '#');
    ASSERT_EQ(mac_aton(mac.data(), text.c_str()), result);
    ASSERT_EQ(mac, stored) << "bytes before a bad digit stay stored, no other is touched";
}

TEST(Mac, ReadsWithAndWithoutSeparators) {
    struct Case {
        const char *text;
        int result;
    };
    const Case cases[] = {
        {"00:11:22:33:44:55", 17},
        {"00-11-22-33-44-55", 17},
        {"001122334455", 12},
        {"00:1122-33:4455", 15},
        {"aA:bB:cC:dD:eE:fF", 17},
        {"00:11:22:33:44:55:66", 17},
        {"0011223344556677", 12},
        {"00:11:22:33:44:5", 0},
        {"00:11:22:33:44:", 0},
        {"00::11:22:33:44:55", 0},
        {":00:11:22:33:44:55", 0},
        {"0:11:22:33:44:55", 0},
        {"00.11.22.33.44.55", 0},
        {" 00:11:22:33:44:55", 0},
        {"00:11:22:33:44:5g", 0},
        {"00:11:22:33:44:55-x", 17},
        {"", 0},
    };
    for (const Case &one : cases) {
        uint8_t mac[6];
        EXPECT_EQ(mac_aton(mac, one.text), one.result) << one.text;
        expect_read(one.text);
    }
}

TEST(Mac, ReadsAsTheModelDoes) {
    std::mt19937 random(11);
    const std::string digits = "0123456789abcdefABCDEF";
    const std::string others = "::::----:-.gG \xff\x80@/";
    for (int i = 0; i < 100000 && !HasFatalFailure(); ++i) {
        std::string text;
        for (int pair = 0; pair < 6; ++pair) {
            text += pair != 0 && random() % 4 != 0 ? (random() % 2 != 0 ? ":" : "-") : "";
            text += digits[random() % digits.size()];
            text += digits[random() % digits.size()];
        }
        switch (random() % 3) {
        case 0:
            text.resize(random() % (text.size() + 1));
            break;
        case 1:
            text[random() % text.size()] = others[random() % others.size()];
            break;
        default:
            break;
        }
        expect_read(text);
    }
}

TEST(Mac, ComparesAndCopies) {
    uint8_t copy[8] = {0xa5, 0, 0, 0, 0, 0, 0, 0xa5};
    EXPECT_EQ(mac_copy(copy + 1, kMac), 0);
    EXPECT_EQ(std::memcmp(copy + 1, kMac, 6), 0);
    EXPECT_EQ(copy[0] << 8 | copy[7], 0xa5a5);
    EXPECT_EQ(mac_is_equal(copy + 1, kMac), 1);
    for (int i = 1; i <= 6; ++i) {
        copy[i] ^= 0x80;
        EXPECT_EQ(mac_is_equal(copy + 1, kMac), 0) << "byte " << i;
        copy[i] ^= 0x80;
    }
    uint8_t zero[6] = {};
    EXPECT_EQ(mac_isnull(nullptr), 1);
    EXPECT_EQ(mac_isnull(zero), 1);
    zero[5] = 1;
    EXPECT_EQ(mac_isnull(zero), 0);
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
        {"02:33:00:00:00:FB", 0, 0, 0, 0},
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
