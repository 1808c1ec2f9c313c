// The driver is the simulator, linked in: what it is asked is what it writes down.
#include <routerkit/wireless.h>

#include <climits>
#include <cstdlib>

#include "support/lab.h"

using lab::FailsWith;
using testing::ElementsAre;
using testing::IsEmpty;

namespace {

class Wireless : public testing::Test {
  protected:
    Wireless() {
        ::setenv("ROUTERKIT_SIM", "/tmp/sim", 1);
        lab::put("/tmp/sim/calls", "");
    }
    ~Wireless() override { ::unsetenv("ROUTERKIT_SIM"); }

    static void mib(const std::string &name, const std::string &value) {
        lab::put("/tmp/sim/wlan0/" + name, value + "\n");
    }

    // What the driver was asked since the last look.
    static std::string asked() {
        std::string calls = lab::get("/tmp/sim/calls");
        lab::put("/tmp/sim/calls", "");
        return calls;
    }

    lab::Census census_;
};

TEST_F(Wireless, InterfaceNumbersNameRadiosAndVirtualAccessPoints) {
    struct Case {
        int number;
        const char *ifname;
    };
    for (const Case &one : {Case{0x00, "wlan0"}, Case{0x01, "wlan1"}, Case{0x10, "wlan0-va0"},
                            Case{0x31, "wlan1-va2"}, Case{-1, "wlan3-va6"}, Case{0x8e, "wlan2"}}) {
        lab::put(std::string("/tmp/sim/") + one.ifname + "/id", "int4 7\n");
        EXPECT_EQ(wlio_get_mib_int(one.number, "id"), 7);
        EXPECT_EQ(asked(), std::string("get ") + one.ifname + " id 254\n");
    }
}

TEST_F(Wireless, WritesAreTheNameAndTheValueAsText) {
    mib("chan", "int4 0");
    mib("ssid", "str old");
    mib("key", "bin 00");
    EXPECT_EQ(wlio_set_mib_int(0, "chan", 5), 0);
    EXPECT_EQ(wlio_set_mib_int(0, "chan", INT_MIN), 0);
    EXPECT_EQ(wlio_set_mib_str(0, "ssid", "My = net"), 0);
    EXPECT_EQ(wlio_set_mib_bin(0, "key", "\x01\xab\xff", 3), 0);
    EXPECT_EQ(asked(), "set wlan0 chan=5 250\nset wlan0 chan=-2147483648 240\n"
                       "set wlan0 ssid=My = net 243\nset wlan0 key=01ABFF 246\n");
    EXPECT_EQ(lab::get("/tmp/sim/wlan0/chan") + lab::get("/tmp/sim/wlan0/ssid") +
                  lab::get("/tmp/sim/wlan0/key"),
              "int4 -2147483648\nstr My = net\nbin 01ABFF\n");
    EXPECT_EQ(wlio_set_mib_bin(0, "key", "", 0), 0);
    EXPECT_EQ(wlio_set_mib_str(0, "ssid", ""), 0);
    EXPECT_EQ(asked(), "set wlan0 key= 252\nset wlan0 ssid= 251\n");
    EXPECT_THAT(lab::take_log(), IsEmpty());
}

// 255 characters and the terminator fill the request; one more is refused before the driver knows.
TEST_F(Wireless, RequestsFitOrAreNotMade) {
    std::string a(300, 'a');
    auto name = [&](size_t length) { return a.c_str() + a.size() - length; };
    mib("abcde", "str x");
    EXPECT_EQ(wlio_set_mib_str(0, "abcde", name(249)), 0);
    EXPECT_EQ(lab::get("/tmp/sim/wlan0/abcde").size(), 4U + 249 + 1);
    wlio_set_mib_bin(0, name(4), a.data(), 125);
    wlio_set_mib_int(0, name(253), 5);
    wlio_get_mib_int(0, name(255));
    EXPECT_THAT(asked(), testing::ContainsRegex("^set .* 1\nset .* 1\nset .* 1\nget .* 1\n$"));
    lab::take_log();
    EXPECT_THAT(wlio_set_mib_str(0, "abcde", name(250)), FailsWith(-1, ENOBUFS));
    EXPECT_THAT(wlio_set_mib_bin(0, name(4), a.data(), 126), FailsWith(-1, ENOBUFS));
    EXPECT_THAT(wlio_set_mib_bin(0, "k", a.data(), 300), FailsWith(-1, ENOBUFS));
    EXPECT_THAT(wlio_set_mib_int(0, name(253), 55), FailsWith(-1, ENOBUFS));
    EXPECT_THAT(wlio_get_mib_int(0, name(256)), FailsWith(-1, ENOBUFS));
    EXPECT_EQ(asked(), "");
    EXPECT_THAT(lab::take_log(),
                ElementsAre("err: wlio_set_mib_str failed: No buffer space available",
                            "err: wlio_set_mib_bin failed: No buffer space available",
                            "err: wlio_set_mib_bin failed: No buffer space available",
                            "err: wlio_set_mib_int failed: No buffer space available",
                            "err: wlio_get_mib_int failed: No buffer space available"));
}

TEST_F(Wireless, IntegersByTheLengthOfTheAnswer) {
    struct Case {
        const char *answer;
        int value;
    };
    for (const Case &one : {Case{"bin FF", 255}, Case{"int1 -1", 255}, Case{"bin FFFF", -1},
                            Case{"int2 -32768", -32768}, Case{"int4 -2147483648", INT_MIN},
                            Case{"int4 305419896", 0x12345678}}) {
        mib("n", one.answer);
        EXPECT_EQ(wlio_get_mib_int(0, "n"), one.value) << one.answer;
    }
    EXPECT_THAT(lab::take_log(), IsEmpty());
    for (const char *answer : {"bin ", "bin 010203", "bin 0102030405060708", "bin/65535 01"}) {
        mib("n", answer);
        EXPECT_THAT(wlio_get_mib_int(0, "n"), FailsWith(-1, EPROTO)) << answer;
        EXPECT_THAT(lab::take_log(), ElementsAre("err: wlio_get_mib_int failed: Protocol error"));
    }
}

TEST_F(Wireless, AnswersThatFitAreCopiedOthersTouchNothing) {
    struct Case {
        const char *answer;
        size_t room;
        int length; // -1: ENOBUFS
        std::string text, bytes;
    };
    const Case cases[] = {
        {"str abc", 4, 4, "abc", std::string("abc\0", 4)},
        {"str abc", 3, -1, "", ""},
        {"bin 61626364", 4, 4, "abc", "abcd"}, // without a terminator
        {"bin 61626364", 8, 4, "abcd", "abcd"},
        {"bin 61006263", 4, 4, "a", std::string("a\0bc", 4)},
        {"bin ", 1, 0, "", ""},
        {"str ", 0, -1, "", ""},
        {"str/300 abc", 400, -1, "", ""}, // more than the answer travels in
        {"bin/256 61", 256, 256, "", ""},
    };
    for (const Case &one : cases) {
        SCOPED_TRACE(one.answer);
        mib("m", one.answer);
        std::string buffer(one.room + 1, '#');
        int length = wlio_get_mib_str_n(0, "m", buffer.data(), one.room);
        EXPECT_TRUE(length == one.length && (length >= 0 || errno == ENOBUFS)) << length;
        EXPECT_EQ(buffer.back(), '#');
        EXPECT_TRUE(length < 0 ? buffer == std::string(one.room + 1, '#')
                               : length > 8 || buffer.c_str() == one.text)
            << buffer;
        buffer.assign(one.room + 1, '#');
        EXPECT_EQ(wlio_get_mib_bin_n(0, "m", buffer.data(), one.room), one.length);
        EXPECT_EQ(buffer.substr(0, one.bytes.size()), one.bytes);
        EXPECT_EQ(buffer.back(), '#');
    }
    mib("m", "bin ");
    EXPECT_THAT(wlio_get_mib_str_n(0, "m", nullptr, 0), FailsWith(-1, ENOBUFS)) << "no terminator";
    EXPECT_EQ(lab::take_log().back(), "err: wlio_get_mib_str_n failed: No buffer space available");
}

TEST_F(Wireless, UnsizedReadsKeepToFourBytes) {
    mib("country", "str DEU");
    mib("ssid", "str Home");
    char buffer[] = "######";
    EXPECT_EQ(wlio_get_mib_str(0, "country", buffer), 0);
    EXPECT_EQ(std::string(buffer, 6), std::string("DEU\0##", 6));
    EXPECT_THAT(wlio_get_mib_str(0, "ssid", buffer), FailsWith(-1, ENOBUFS));
    EXPECT_THAT(wlio_get_mib_bin(0, "ssid", buffer), FailsWith(-1, ENOBUFS));
    mib("key", "bin 01020304");
    EXPECT_EQ(wlio_get_mib_bin(0, "key", buffer), 0);
    EXPECT_STREQ(buffer, "\x01\x02\x03\x04##");
    EXPECT_THAT(lab::take_log(),
                ElementsAre("err: wlio_get_mib_str failed: No buffer space available",
                            "err: wlio_get_mib_bin failed: No buffer space available"));
}

TEST_F(Wireless, RefusalsAreLoggedWithTheRequest) {
    mib("n", "int2 1");
    EXPECT_THAT(wlio_get_mib_int(0, "nosuch"), FailsWith(-1, EINVAL));
    EXPECT_THAT(wlio_set_mib_int(0, "n", 65536), FailsWith(-1, EINVAL));
    EXPECT_THAT(wlio_set_mib_str(0x21, "n", "x"), FailsWith(-1, ENODEV)) << "the kernel's word";
    EXPECT_THAT(lab::without_descriptors([] { return wlio_get_mib_int(0, "n"); }),
                FailsWith(-1, EMFILE));
    EXPECT_THAT(lab::take_log(),
                ElementsAre("err: ioctl[WLAN_GET_MIB](\"wlan0\", \"nosuch\"): Invalid argument",
                            "err: wlio_get_mib_int failed: Invalid argument",
                            "err: ioctl[WLAN_SET_MIB](\"wlan0\", \"n=65536\"): Invalid argument",
                            "err: wlio_set_mib_int failed: Invalid argument",
                            "err: ioctl[WLAN_SET_MIB](\"wlan1-va1\", \"n=x\"): No such device",
                            "err: wlio_set_mib_str failed: No such device",
                            "err: socket error: Too many open files",
                            "err: wlio_get_mib_int failed: Too many open files"));
    lab::put("/tmp/sim/fail/get", "2 EPERM\n");
    EXPECT_EQ(wlio_get_mib_int(0, "n"), 1);
    EXPECT_THAT(wlio_get_mib_int(0, "n"), FailsWith(-1, EPERM));
    lab::take_log();
    lab::put("/tmp/sim/fail/get", "1 EINTR\n");
    EXPECT_EQ(wlio_get_mib_int(0, "n"), 1) << "asked again";
    EXPECT_THAT(lab::take_log(), IsEmpty());
}

} // namespace
