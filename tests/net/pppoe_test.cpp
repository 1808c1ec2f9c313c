#include <routerkit/pppoe.h>

#include <cstring>

#include <routerkit/conversions.h>
#include <routerkit/ping.h>

#include "support/fake_sendto.h"
#include "support/far_end.h"

using lab::FailsWith;
using lab::sh;
using testing::ElementsAre;
using testing::IsEmpty;

namespace {

constexpr uint32_t kFar = 0x0a010001; // 10.1.0.1
constexpr char kPeer[] = "\x02\x11\x22\x33\x44\x55";

class Pppoe : public testing::Test {
  protected:
    Pppoe() {
        // A new cable carries frames as soon as the kernel has seen its carrier.
        EXPECT_TRUE(
            lab::wait_until([] { return ping_test("fifteen-letters", &kFar, 1, 100, 0) == 1; }));
    }
    ~Pppoe() override { lab::on_sendto = nullptr; }

    // Ends session 0x1234, by a name of which the first 15 characters count.
    static int end_session(const char *ifname = "fifteen-letters-and-more",
                           const char *peer = kPeer) {
        uint16_t session;
        std::memcpy(&session, "\x12\x34", sizeof session);
        lab::Census census;
        lab::SignalStorm storm;
        errno = 0;
        return send_ppp_msg(session, peer, ifname);
    }

    std::vector<std::string> take_frames() const {
        std::vector<std::string> frames = tap_.take();
        std::erase_if(frames, [](const std::string &frame) {
            return frame.compare(12, 2, "\x88\x63") != 0 && frame.compare(12, 2, "\x88\x64") != 0;
        });
        return frames;
    }

    lab::Host far_{"far", "fifteen-letters", "10.1.0.2/24", "10.1.0.1/24"};
    lab::Tap tap_{"far"};
};

TEST_F(Pppoe, BothFramesReachThePeer) {
    char own[6];
    const std::string own_text = lab::get("/sys/class/net/fifteen-letters/address");
    ASSERT_NE(mac_aton(own, own_text.c_str()), 0);
    const std::string to_peer = std::string(kPeer, 6) + std::string(own, 6);
    const std::string request =
        std::string("\x88\x64\x11\0\x12\x34\0\x12\xc0\x21\5\2\0\x10", 14) + "User request";
    const std::string padt("\x88\x63\x11\xa7\x12\x34\0\0", 8);

    EXPECT_EQ(end_session(), 0);
    const std::vector<std::string> frames = take_frames();
    EXPECT_THAT(frames, ElementsAre(to_peer + request, to_peer + padt));
    EXPECT_EQ(lab::tshark(frames, "-T fields -e pppoe.code -e pppoe.session_id -e ppp.code"),
              "0x00\t0x1234\t5\n0xa7\t0x1234\t\n");
}

TEST_F(Pppoe, NothingIsSentWhereItCannotBeRight) {
    struct Case {
        const char *setup, *ifname, *peer;
        int result, error;
    };
    for (const Case &one : {
             Case{"true", "nosuch0", kPeer, 0, ENODEV},
             Case{"true", "lo", kPeer, -1, EINVAL},
             Case{"true", "fifteen-letters", "\0\0\0\0\0\0", -1, EINVAL},
             Case{"true", "fifteen-letters", nullptr, -1, EINVAL},
             Case{"ip link set fifteen-letters arp off", "fifteen-letters", kPeer, -1, EINVAL},
             Case{"ip link set fifteen-letters arp on down", "fifteen-letters", kPeer, 0, 0},
         }) {
        sh(one.setup);
        EXPECT_THAT(end_session(one.ifname, one.peer), FailsWith(one.result, one.error))
            << one.setup << " " << one.ifname;
    }
    EXPECT_THAT(lab::without_descriptors([] { return send_ppp_msg(1, kPeer, "fifteen-letters"); }),
                FailsWith(-1, EMFILE));
    EXPECT_THAT(take_frames(), IsEmpty());
    EXPECT_THAT(lab::take_log(), IsEmpty());
}

TEST_F(Pppoe, InterruptedSendsAreRepeatedAndFailedOnesEndIt) {
    int calls = 0;
    lab::on_sendto = [&]() -> std::optional<ssize_t> {
        errno = EINTR;
        return ++calls % 3 != 0 ? std::optional<ssize_t>(-1) : std::nullopt;
    };
    EXPECT_EQ(end_session(), 0);
    EXPECT_EQ(calls, 6);
    EXPECT_THAT(take_frames(), testing::SizeIs(2));

    for (ssize_t result : {-1, 23}) { // a failed and a short one
        calls = 0;
        lab::on_sendto = [&]() -> std::optional<ssize_t> {
            ++calls;
            errno = ENOBUFS;
            return result;
        };
        EXPECT_THAT(end_session(), FailsWith(-1, ENOBUFS));
        EXPECT_EQ(calls, 1);
    }
}

} // namespace
