#include <routerkit/l2tp.h>

#include <cstdlib>
#include <cstring>

#include <routerkit/ping.h>

#include "support/fake_sendto.h"
#include "support/far_end.h"
#include "support/socket.h"

using lab::FailsWith;
using lab::takes_ms;
using testing::ElementsAre;

namespace {

constexpr uint32_t kPeer = 0x0a010001; // 10.1.0.1
constexpr char kText[] = "General request to clear control connection";

std::string stop_ccn(const char *tunnel_id, const char *assigned_id) {
    return std::string("\xc8\x02\0\x51", 4) + std::string(tunnel_id, 2) +
           std::string("\0\0\0\1\0\0\x80\x08\0\0\0\0\0\4\x80\x08\0\0\0\x09", 20) +
           std::string(assigned_id, 2) + std::string("\x80\x35\0\0\0\1\0\1\0\0", 10) + kText;
}

int open_l2tp_port() {
    const sockaddr_in port = rk::inet_endpoint(INADDR_ANY, 1701);
    int fd = ::socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    EXPECT_EQ(::bind(fd, rk::as_sockaddr(port), sizeof port), 0);
    return fd;
}

class StopCcn : public testing::Test {
  protected:
    StopCcn() {
        EXPECT_TRUE(lab::wait_until([] { return ping_test("eth1", &kPeer, 1, 100, 0) == 1; }));
    }
    ~StopCcn() override { lab::on_sendto = nullptr; }

    // The next message that the peer receives; it answers unless the answer is null.
    std::string receive(const char *answer = nullptr) {
        char message[2048];
        socklen_t size = sizeof from_;
        ssize_t count = ::recvfrom(peer_.get(), message, sizeof message, 0,
                                   reinterpret_cast<sockaddr *>(&from_), &size);
        if (answer != nullptr) {
            ::sendto(peer_.get(), answer, std::strlen(answer), 0, rk::as_sockaddr(from_), size);
        }
        return {message, static_cast<size_t>(count)};
    }

    lab::Host host_{"lns", "eth1", "10.1.0.2/24", "10.1.0.1/24"};
    rk::UniqueFd peer_{lab::socket_of("lns", open_l2tp_port)};
    sockaddr_in from_ = {};
    lab::Census census_;
};

TEST(L2tpBuffer, GrowsByHeaderAndPairs) {
    EXPECT_EQ(new_buf(0), nullptr);
    EXPECT_EQ(new_buf(-1), nullptr);
    l2tp_buf_t *one = new_buf(1);
    EXPECT_TRUE(one->data == one->start && one->last == one->start && one->length == 1 &&
                one->capacity == 1);
    std::free(one->start); // as hosts may
    std::free(one);
    free_buf(nullptr);

    l2tp_buf_t *full = new_outgoing();
    EXPECT_TRUE(full->data == full->start + 12 && full->last == full->start + 255 &&
                full->length == 0 && full->capacity == 256);
    EXPECT_EQ(add_message_type_avp(full, 0x1234), 0);
    EXPECT_EQ(add_result_code_avp(full, 0x5678, 0x9abc, std::string(226, 'x').data(), 226), 0);
    EXPECT_EQ(add_control_hdr(full, 0xfedc), full->start);
    EXPECT_EQ(full->length, 256);
    EXPECT_EQ(std::string(full->start, full->last + 1),
              std::string("\xc8\2\1\0\xfe\xdc\0\0\0\1\0\0\x80\x08\0\0\0\0\x12\x34"
                          "\x80\xec\0\0\0\1\x56\x78\x9a\xbc",
                          30) +
                  std::string(226, 'x'));
    free_buf(full);
}

TEST_F(StopCcn, SendOnlyNeitherBindsNorWaits) {
    rk::UniqueFd holder(open_l2tp_port());
    lab::Census census;
    lab::Tap tap("lns");
    EXPECT_EQ(l2tp_StopCCN(kPeer, 0x1234, 0x0005, 1), 0);
    EXPECT_EQ(receive(), stop_ccn("\x12\x34", "\0\5"));
    EXPECT_NE(ntohs(from_.sin_port), 1701);
    EXPECT_EQ(l2tp_StopCCN(kPeer, 0x7fffffff, -2, 1), 0);
    EXPECT_EQ(receive(), stop_ccn("\xff\xff", "\xff\xfe")) << "the low 16 bits go on the wire";
    EXPECT_THAT(lab::take_log(),
                ElementsAre("notice: l2tp_StopCCN[4660/5]: sendto 10.1.0.1 81 bytes",
                            "notice: l2tp_StopCCN[2147483647/-2]: sendto 10.1.0.1 81 bytes"));
    EXPECT_EQ(lab::tshark(tap.take(), "-Y l2tp -T fields -e udp.dstport -e l2tp.tunnel "
                                      "-e l2tp.avp.message_type -e l2tp.avp.assigned_tunnel_id "
                                      "-e l2tp.result_code -e l2tp.avp.error_message"),
              std::string("1701\t4660\t4\t5\t1\t") + kText + "\n1701\t65535\t4\t65534\t1\t" +
                  kText + "\n");
}

TEST_F(StopCcn, AnyAnswerEndsTheWait) {
    for (const char *answer : {"thanks", ""}) {
        std::thread peer([&] {
            EXPECT_EQ(receive(answer), stop_ccn("\0\1", "\0\2"));
            EXPECT_EQ(ntohs(from_.sin_port), 1701);
        });
        EXPECT_EQ(takes_ms(0, [] { return l2tp_StopCCN(kPeer, 1, 2, 0); }), 0);
        peer.join();
    }
    EXPECT_THAT(lab::take_log(), testing::SizeIs(2)) << "of sending";
}

TEST_F(StopCcn, SilenceEndsItAfterTwoSecondsSignalsOrNot) {
    lab::SignalStorm storm;
    EXPECT_EQ(takes_ms(2000, [] { return l2tp_StopCCN(kPeer, 1, 2, 0); }), 0);
    EXPECT_THAT(lab::take_log(), ElementsAre("notice: l2tp_StopCCN[1/2]: sendto 10.1.0.1 81 bytes",
                                             "err: l2tp_StopCCN: no answer (Timer expired)"));
}

TEST_F(StopCcn, FailuresHaveTheirLines) {
    auto stop = [](uint32_t peer = kPeer) { return l2tp_StopCCN(peer, 1, 2, 0); };
    EXPECT_THAT(lab::without_descriptors(stop), FailsWith(-1, EMFILE));
    EXPECT_THAT(stop(0xcb007101), FailsWith(-1, ENETUNREACH));
    {
        rk::UniqueFd holder(open_l2tp_port());
        EXPECT_THAT(stop(), FailsWith(-2, EADDRINUSE));
    }
    rlimit before;
    ::getrlimit(RLIMIT_NOFILE, &before);
    int calls = 0;
    lab::on_sendto = [&]() -> std::optional<ssize_t> {
        errno = EINTR;
        if (++calls < 3) {
            return -1;
        }
        const rlimit none = {0, before.rlim_max}; // more descriptors than there may be: poll fails
        ::setrlimit(RLIMIT_NOFILE, &none);
        return std::nullopt;
    };
    EXPECT_THAT(stop(), FailsWith(-1, EINVAL));
    ::setrlimit(RLIMIT_NOFILE, &before);
    EXPECT_EQ(calls, 3);
    EXPECT_THAT(lab::take_log(),
                ElementsAre("err: l2tp_StopCCN: socket fail: Too many open files",
                            "notice: l2tp_StopCCN[1/2]: sendto 203.0.113.1 81 bytes",
                            "err: l2tp_StopCCN: sendto fail: Network is unreachable",
                            "err: l2tp_StopCCN: bind fail: Address already in use",
                            "notice: l2tp_StopCCN[1/2]: sendto 10.1.0.1 81 bytes",
                            "err: l2tp_StopCCN: poll fail: Invalid argument"));
}

} // namespace
