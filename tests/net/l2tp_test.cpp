#include <routerkit/l2tp.h>

#include <cstdlib>
#include <cstring>

#include "support/far_end.h"
#include "support/socket.h"

using lab::FailsWith;
using lab::kFar;
using lab::takes_ms;
using testing::ElementsAre;

namespace {

const sockaddr_in kPort = rk::inet_endpoint(INADDR_ANY, 1701);
constexpr char kText[] = "General request to clear control connection";

std::string stop_ccn(const char *tunnel_id, const char *assigned_id) {
    return std::string("\xc8\x02\0\x51", 4) + std::string(tunnel_id, 2) +
           std::string("\0\0\0\1\0\0\x80\x08\0\0\0\0\0\4\x80\x08\0\0\0\x09", 20) +
           std::string(assigned_id, 2) + std::string("\x80\x35\0\0\0\1\0\1\0\0", 10) + kText;
}

class StopCcn : public testing::Test {
  protected:
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

    lab::FarEnd host_{"eth1"};
    rk::UniqueFd peer_{lab::far_socket("far", AF_INET, SOCK_DGRAM, kPort)};
    rk::UniqueFd holder_{::socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0)}; // of our port 1701
    sockaddr_in from_ = {};
    lab::Census census_;
};

TEST(L2tpBuffer, HoldsAMessageToItsLastByte) {
    EXPECT_EQ(new_buf(0), nullptr);
    l2tp_buf_t *buffer = new_buf(1);
    EXPECT_TRUE(buffer->data == buffer->start && buffer->length == 1 && buffer->capacity == 1);
    std::free(buffer->start); // as hosts may
    std::free(buffer);
    free_buf(nullptr);

    EXPECT_EQ(new_buf(-1), nullptr);

    buffer = new_outgoing();
    add_header(buffer, 0x306, 0x0102);
    EXPECT_EQ(std::string(buffer->data, buffer->data + 6), std::string("\x80\6\0\0\1\2", 6));
    EXPECT_EQ(buffer->length, 0);
    EXPECT_EQ(add_message_type_avp(buffer, 0x1234), 0);
    EXPECT_EQ(add_result_code_avp(buffer, 0x5678, 0x9abc, std::string(226, 'x').data(), 226), 0);
    EXPECT_EQ(add_control_hdr(buffer, 0xfedc), buffer->start);
    EXPECT_EQ(std::string(buffer->start, buffer->start + 30),
              std::string("\xc8\2\1\0\xfe\xdc\0\0\0\1\0\0\x80\x08\0\0\0\0\x12\x34"
                          "\x80\xec\0\0\0\1\x56\x78\x9a\xbc",
                          30));
    EXPECT_EQ(buffer->data + buffer->length, buffer->last + 1);
    free_buf(buffer);
}

TEST_F(StopCcn, SendOnlyNeitherBindsNorWaits) {
    ::bind(holder_.get(), rk::as_sockaddr(kPort), sizeof kPort);
    EXPECT_EQ(l2tp_StopCCN(kFar, 0x1234, 0x0005, 1), 0);
    EXPECT_EQ(receive(), stop_ccn("\x12\x34", "\0\5"));
    EXPECT_EQ(l2tp_StopCCN(kFar, 0x7fffffff, -2, 1), 0);
    EXPECT_EQ(receive(), stop_ccn("\xff\xff", "\xff\xfe")) << "the low 16 bits go on the wire";
    EXPECT_THAT(lab::take_log(),
                ElementsAre("notice: l2tp_StopCCN[4660/5]: sendto 10.1.0.1 81 bytes",
                            "notice: l2tp_StopCCN[2147483647/-2]: sendto 10.1.0.1 81 bytes"));
    EXPECT_EQ(lab::tshark(host_.take_frames(),
                          "-Y l2tp -T fields -e udp.dstport -e l2tp.tunnel "
                          "-e l2tp.avp.message_type -e l2tp.avp.assigned_tunnel_id "
                          "-e l2tp.result_code -e l2tp.avp.error_message"),
              std::string("1701\t4660\t4\t5\t1\t") + kText + "\n1701\t65535\t4\t65534\t1\t" +
                  kText + "\n");
}

TEST_F(StopCcn, AnyAnswerEndsTheWaitAndSoDoTwoSecondsOfSilence) {
    for (const char *answer : {"thanks", ""}) {
        std::thread peer([&] { EXPECT_EQ(receive(answer), stop_ccn("\0\1", "\0\2")); });
        EXPECT_EQ(takes_ms(0, [] { return l2tp_StopCCN(kFar, 1, 2, 0); }), 0);
        peer.join();
        EXPECT_EQ(from_.sin_port, kPort.sin_port);
    }
    lab::take_log();
    lab::SignalStorm storm;
    EXPECT_EQ(takes_ms(2000, [] { return l2tp_StopCCN(kFar, 1, 2, 0); }), 0);
    EXPECT_THAT(lab::take_log(), ElementsAre("notice: l2tp_StopCCN[1/2]: sendto 10.1.0.1 81 bytes",
                                             "err: l2tp_StopCCN: no answer (Timer expired)"));
}

TEST_F(StopCcn, FailuresHaveTheirLines) {
    auto stop = [](uint32_t peer = kFar) { return l2tp_StopCCN(peer, 1, 2, 0); };
    EXPECT_THAT(lab::without_descriptors(stop), FailsWith(-1, EMFILE));
    EXPECT_THAT(stop(0xcb007101), FailsWith(-1, ENETUNREACH));
    ::bind(holder_.get(), rk::as_sockaddr(kPort), sizeof kPort);
    EXPECT_THAT(stop(), FailsWith(-2, EADDRINUSE));
    EXPECT_THAT(lab::take_log(),
                ElementsAre("err: l2tp_StopCCN: socket fail: Too many open files",
                            "notice: l2tp_StopCCN[1/2]: sendto 203.0.113.1 81 bytes",
                            "err: l2tp_StopCCN: sendto fail: Network is unreachable",
                            "err: l2tp_StopCCN: bind fail: Address already in use"));
}

} // namespace
