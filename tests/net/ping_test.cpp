#include <routerkit/ping.h>

#include <array>
#include <cstring>
#include <optional>
#include <thread>

#include <fcntl.h>
#include <netinet/ip.h>
#include <poll.h>
#include <sys/syscall.h>

#include "support/lab.h"
#include "support/socket.h"

using lab::FailsWith;
using lab::takes_ms;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::MatchesRegex;

namespace {

constexpr uint32_t kHere = 0x0a010002;   // 10.1.0.2
constexpr uint32_t kFar = 0x0a010001;    // 10.1.0.1
constexpr uint32_t kNobody = 0x0a01004d; // 10.1.0.77
constexpr unsigned kVerbose = 1;

// What goes wrong with the system calls of the function under test.
struct Trouble {
    int poll = 0, recv = 0, sendto = 0;  // errno of the next call
    std::optional<std::string> datagram; // what recv hands over, whatever arrived
} trouble;

bool fails(int &error) {
    if (error == 0) {
        return false;
    }
    errno = std::exchange(error, 0);
    return true;
}

} // namespace

extern "C" int poll(pollfd *entries, nfds_t count, int timeout) {
    return fails(trouble.poll) ? -1
                               : static_cast<int>(::syscall(SYS_poll, entries, count, timeout));
}

extern "C" ssize_t recv(int fd, void *buffer, size_t size, int flags) {
    if (fails(trouble.recv)) {
        return -1;
    }
    ssize_t received = ::syscall(SYS_recvfrom, fd, buffer, size, flags, nullptr, nullptr);
    return !trouble.datagram
               ? received
               : static_cast<ssize_t>(trouble.datagram->copy(static_cast<char *>(buffer), size));
}

extern "C" ssize_t sendto(int fd, const void *bytes, size_t size, int flags, const sockaddr *to,
                          socklen_t length) {
    return fails(trouble.sendto) ? -1 : ::syscall(SYS_sendto, fd, bytes, size, flags, to, length);
}

namespace {

// An ICMP message with its checksum (RFC 1071) put right.
std::string summed(std::string message) {
    message[2] = message[3] = 0;
    uint32_t sum = 0;
    for (size_t i = 0; i < message.size(); ++i) {
        sum += static_cast<uint32_t>(static_cast<uint8_t>(message[i])) << (i % 2 == 0 ? 8 : 0);
    }
    sum = ~((sum >> 16) + (sum & 0xffff)); // short enough to fold once
    message[2] = static_cast<char>(sum >> 8);
    message[3] = static_cast<char>(sum);
    return message;
}

// Our request, or the answer to it, with any payload.
std::string echo(char type, const std::string &payload) {
    const auto pid = static_cast<uint16_t>(::getpid());
    const uint16_t sequence = 1;
    std::string bytes(8, '\0');
    bytes[0] = type;
    std::memcpy(&bytes[4], &pid, 2);
    std::memcpy(&bytes[6], &sequence, 2);
    return summed(bytes + payload);
}

const std::string kText("Hello, world!", 14);
const std::string kPayload = kText + std::string(42, '\0');

// A message behind an IPv4 header (RFC 791; the kernel fills its checksum in) and its options.
std::string in_ipv4(const std::string &message, const std::string &options = "") {
    iphdr header = {};
    header.version = 4;
    header.ihl = static_cast<unsigned>(5 + options.size() / 4) & 15;
    header.ttl = 64;
    header.protocol = IPPROTO_ICMP;
    header.daddr = htonl(kHere);
    header.tot_len = htons(static_cast<uint16_t>(sizeof header + options.size() + message.size()));
    return std::string(reinterpret_cast<const char *>(&header), sizeof header) + options + message;
}

class Ping : public testing::Test {
  protected:
    ~Ping() override { trouble = {}; }

    void silence() {
        lab::sh(far_.command("sh -c 'echo 1 > /proc/sys/net/ipv4/icmp_echo_ignore_all'"));
    }

    lab::Host far_{"far", "eth1", "10.1.0.2/24", "10.1.0.1/24"};
    lab::Census census_;
};

// The other host's kernel is silent; the test answers in its place.
class PingScripted : public Ping {
  protected:
    PingScripted() { silence(); }

    int answered_with(const std::string &datagram, unsigned flags = 0, int delay_ms = 0) {
        rk::UniqueFd in(socket_there(IPPROTO_ICMP));
        rk::UniqueFd out(socket_there(IPPROTO_RAW));
        std::thread host([&] {
            char request[256];
            ssize_t size = ::recv(in.get(), request, sizeof request, 0);
            request_.assign(request, static_cast<size_t>(size)).erase(0, sizeof(iphdr));
            std::this_thread::sleep_for(std::chrono::milliseconds(delay_ms));
            const sockaddr_in to = rk::inet_endpoint(kHere, 0);
            ::sendto(out.get(), datagram.data(), datagram.size(), 0, rk::as_sockaddr(to),
                     sizeof to);
        });
        int result = ping_test("eth1", &kFar, 1, 500, flags);
        host.join();
        return result;
    }

    std::string request_; // the last one

  private:
    // A socket belongs to the network of the thread that opens it.
    static int socket_there(int protocol) {
        int fd = -1;
        std::thread([&] {
            rk::UniqueFd far(::open("/run/netns/far", O_RDONLY | O_CLOEXEC));
            ::setns(far.get(), CLONE_NEWNET);
            fd = ::socket(AF_INET, SOCK_RAW | SOCK_CLOEXEC, protocol);
        }).join();
        return fd;
    }
};

TEST_F(Ping, KernelAnswers) {
    const std::array both = {kNobody, kFar};
    EXPECT_EQ(ping_test("eth1", &kFar, 1, 1000, ~kVerbose), 1);
    EXPECT_THAT(lab::take_log(), IsEmpty());
    EXPECT_EQ(ping_test("eth1", both.data(), 2, 0xffffffff, kVerbose), 1);
    EXPECT_EQ(ping_test(nullptr, &kFar, 1, 1000, 0xff), 1);
    EXPECT_THAT(lab::take_log(),
                ElementsAre(MatchesRegex("notice: eth1 ping 10.1.0.77 10.1.0.1 reply received in "
                                         "0\\.0[0-9][0-9] seconds"),
                            MatchesRegex("notice:  ping 10.1.0.1 reply received in 0\\.0[0-9][0-9] "
                                         "seconds")));
}

TEST_F(Ping, SilenceIsNoFailure) {
    silence();
    lab::SignalStorm storm;
    EXPECT_EQ(takes_ms(300, [] { return ping_test("eth1", &kFar, 1, 300, kVerbose); }), 0);
    EXPECT_EQ(takes_ms(100, [] { return ping_test("eth1", nullptr, 0, 100, kVerbose); }), 0);
    EXPECT_THAT(lab::take_log(), IsEmpty());
}

TEST_F(Ping, InterruptedCallsAreRepeated) {
    trouble = {EINTR, EINTR, EINTR, {}};
    EXPECT_EQ(ping_test("eth1", &kFar, 1, 1000, 0), 1);
    EXPECT_EQ(trouble.poll + trouble.recv + trouble.sendto, 0);
}

TEST_F(PingScripted, RequestIsTheOneDescribedAndTheAnswerTimed) {
    EXPECT_EQ(answered_with(in_ipv4(echo(0, kPayload)), kVerbose, 120), 1);
    EXPECT_EQ(request_, echo(8, kPayload));
    EXPECT_THAT(lab::take_log(),
                ElementsAre(MatchesRegex("notice: eth1 ping 10.1.0.1 reply received in "
                                         "0\\.1[2-4][0-9] seconds")));
}

TEST_F(PingScripted, ReplyIsJudged) {
    auto changed = [](size_t at) {
        std::string reply = echo(0, kPayload);
        ++reply[at];
        return summed(reply);
    };
    std::string unsummed = echo(0, kPayload);
    ++unsummed[3];
    const std::string longest = kText + std::string(1024 - 20 - 8 - kText.size(), 'x');
    struct Case {
        const char *name;
        std::string reply;
        int result;
    };
    const Case cases[] = {
        {"type", changed(0), 0},
        {"code", changed(1), 0},
        {"checksum", unsummed, 0},
        {"identifier, first byte", changed(4), 0},
        {"identifier, second byte", changed(5), 0},
        {"sequence number 2", changed(6), 0},
        {"sequence number, other byte", changed(7), 0},
        {"payload", changed(20), 0},
        // What the one before left in the buffer behind these two is not the text.
        {"text cut short", echo(0, "Hello, w"), 1},
        {"no payload", echo(0, ""), 1},
        {"what follows the text is free", changed(60), 1},
        {"text goes on without its end", echo(0, "Hello, world!!"), 0},
        {"odd length", echo(0, kText + "x"), 1},
        {"odd length, last byte not summed", echo(0, kText) + "x", 0},
        {"fills the buffer", echo(0, longest), 1},
        {"one more than the buffer", echo(0, longest + "x"), 0},
        {"destination unreachable", summed(std::string("\3\1", 2).append(34, 0)), 0},
    };
    for (const Case &one : cases) {
        EXPECT_EQ(answered_with(in_ipv4(one.reply), kVerbose), one.result) << one.name;
        EXPECT_EQ(lab::take_log().size(), static_cast<size_t>(one.result)) << one.name;
    }
    EXPECT_EQ(answered_with(in_ipv4(echo(0, kPayload), "\1\1\1\1\1\1\1\1")), 1) << "IP options";
}

TEST_F(Ping, LyingHeadersAreNotBelieved) {
    const std::string good = in_ipv4(echo(0, kPayload));
    auto result = [&](size_t at, int byte) {
        trouble.datagram = good;
        (*trouble.datagram)[at] = static_cast<char>(byte);
        return ping_test("eth1", &kFar, 1, 1000, 0);
    };
    EXPECT_EQ(result(0, 0x45), 1) << "the same way in, told nothing but the truth";
    for (int total = 0; total < 28; ++total) { // no room for both headers
        EXPECT_EQ(result(3, total), 0) << "total length " << total;
    }
    EXPECT_EQ(result(2, 0xff), 0) << "a total length past the end";
    for (int words : {0, 1, 4, 6, 15}) {
        EXPECT_EQ(result(0, 0x40 | words), 0) << "header length " << words;
    }
    for (size_t size = 0; size < good.size(); ++size) {
        trouble.datagram = good.substr(0, size);
        EXPECT_EQ(ping_test("eth1", &kFar, 1, 1000, 0), 0) << "received " << size;
    }
}

TEST_F(Ping, FailuresAreLoggedWithTheirStep) {
    constexpr uint32_t kUnrouted = 0xcb007101; // 203.0.113.1
    EXPECT_THAT(ping_test("nosuch0", &kFar, 1, 1000, kVerbose), FailsWith(-1, ENODEV));
    EXPECT_THAT(ping_test(nullptr, &kUnrouted, 1, 1000, kVerbose), FailsWith(-1, ENETUNREACH));
    trouble.poll = ENOMEM;
    EXPECT_THAT(ping_test("eth1", &kFar, 1, 1000, kVerbose), FailsWith(-1, ENOMEM));
    trouble.recv = ENOBUFS;
    EXPECT_THAT(ping_test("eth1", &kFar, 1, 1000, kVerbose), FailsWith(-1, ENOBUFS));
    EXPECT_THAT(
        lab::without_descriptors([&] { return ping_test("eth1", &kFar, 1, 1000, kVerbose); }),
        FailsWith(-1, EMFILE));
    EXPECT_THAT(
        lab::take_log(),
        ElementsAre("err: nosuch0 ping 10.1.0.1 failed: No such device",
                    "err:  ping 203.0.113.1 send ICMP ECHO failed: Network is unreachable",
                    "err: eth1 ping 10.1.0.1 wait for ICMP REPLY failed: Cannot allocate memory",
                    "err: eth1 ping 10.1.0.1 receive ICMP REPLY failed: No buffer space available",
                    "err: eth1 ping 10.1.0.1 failed: Too many open files"));
    EXPECT_THAT(ping_test("nosuch0", &kFar, 1, 1000, ~kVerbose), FailsWith(-1, ENODEV));
    EXPECT_THAT(lab::take_log(), IsEmpty());

    std::array<uint32_t, 40> many;
    many.fill(kFar);
    std::string shown = "nosuch0 ping";
    for (size_t i = 0; i < many.size(); ++i) {
        shown += " 10.1.0.1";
    }
    ping_test("nosuch0", many.data(), many.size(), 1000, kVerbose);
    EXPECT_THAT(lab::take_log(),
                ElementsAre("err: " + shown.substr(0, 255) + " failed: No such device"));
}

} // namespace
