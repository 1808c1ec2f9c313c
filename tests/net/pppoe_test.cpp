#include <routerkit/pppoe.h>

#include <cstring>
#include <optional>

#include <sys/syscall.h>
#include <unistd.h>

#include <routerkit/conversions.h>

#include "support/far_end.h"

using lab::FailsWith;

namespace {

constexpr char kPeer[] = "\x02\x11\x22\x33\x44\x55";
std::function<std::optional<ssize_t>()> on_sendto; // may answer in the kernel's place

} // namespace

extern "C" ssize_t sendto(int fd, const void *bytes, size_t size, int flags, const sockaddr *to,
                          socklen_t to_size) {
    std::optional<ssize_t> answer = on_sendto ? on_sendto() : std::nullopt;
    return answer ? *answer : ::syscall(SYS_sendto, fd, bytes, size, flags, to, to_size);
}

namespace {

class Pppoe : public testing::Test {
  protected:
    // Ends session 0x1234; of the interface's name the first 15 characters count.
    static int end_session(const char *ifname = "fifteen-letters-and-more",
                           const char *peer = kPeer) {
        uint16_t session;
        std::memcpy(&session, "\x12\x34", sizeof session);
        lab::Census census;
        lab::SignalStorm storm;
        errno = 0;
        return send_ppp_msg(session, peer, ifname);
    }
    std::vector<std::string> take_frames() const { return far_.take_frames(kPeer); }

    lab::FarEnd far_{"fifteen-letters"};
};

TEST_F(Pppoe, BothFramesReachThePeer) {
    char own[6];
    mac_aton(own, lab::get("/sys/class/net/fifteen-letters/address").c_str());
    const std::string to_peer = std::string(kPeer, 6) + std::string(own, 6);
    EXPECT_EQ(end_session(), 0);
    const std::vector<std::string> frames = take_frames();
    const std::string request("\x88\x64\x11\0\x12\x34\0\x12\xc0\x21\5\2\0\x10User request", 26);
    const std::string padt("\x88\x63\x11\xa7\x12\x34\0\0", 8);
    EXPECT_THAT(frames, testing::ElementsAre(to_peer + request, to_peer + padt));
    EXPECT_EQ(lab::tshark(frames, "-T fields -e pppoe.code -e pppoe.session_id -e ppp.code"),
              "0x00\t0x1234\t5\n0xa7\t0x1234\t\n");
}

TEST_F(Pppoe, NothingIsSentWhereItCannotBeRight) {
    const char *const same = "fifteen-letters";
    struct Case {
        const char *link_set, *ifname, *peer;
        int result, error;
    };
    for (const Case &one : {
             Case{"lo up", "nosuch0", kPeer, 0, ENODEV},
             Case{"lo up", "lo", kPeer, -1, EINVAL},
             Case{"lo up", same, "\0\0\0\0\0\0", -1, EINVAL},
             Case{"lo up", same, nullptr, -1, EINVAL},
             Case{"fifteen-letters arp off", same, kPeer, -1, EINVAL},
             Case{"fifteen-letters arp on down", same, kPeer, 0, 0},
         }) {
        lab::sh(std::string("ip link set ") + one.link_set);
        EXPECT_THAT(end_session(one.ifname, one.peer), FailsWith(one.result, one.error))
            << one.link_set << ", " << one.ifname;
    }
    lab::sh("ip tuntap add dev tun0 mode tun && ip link set tun0 arp on up");
    EXPECT_THAT(end_session("tun0", kPeer), FailsWith(-1, EINVAL)) << "no Ethernet";
    EXPECT_THAT(lab::without_descriptors([] { return send_ppp_msg(1, kPeer, "lo"); }),
                FailsWith(-1, EMFILE));
    EXPECT_THAT(take_frames(), testing::IsEmpty());
}

TEST_F(Pppoe, InterruptedSendsAreRepeatedAndFailedOnesEndIt) {
    int calls = 0;
    std::optional<ssize_t> result;
    on_sendto = [&] {
        errno = ++calls % 3 != 0 ? EINTR : ENOBUFS;
        return calls % 3 != 0 ? -1 : result;
    };
    EXPECT_EQ(end_session(), 0);
    EXPECT_EQ(calls, 6);
    EXPECT_THAT(take_frames(), testing::SizeIs(2));
    for (ssize_t bad : {-1, 23}) { // failed, cut short
        result = bad;
        EXPECT_THAT(end_session(), FailsWith(-1, ENOBUFS));
    }
    EXPECT_EQ(calls, 12) << "no second frame";
    on_sendto = nullptr;
}

} // namespace
