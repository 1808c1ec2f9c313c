#include <routerkit/ping.h>

#include <array>
#include <cstring>
#include <optional>

#include <arpa/inet.h>
#include <netinet/in.h>
#include <netinet/ip.h>
#include <poll.h>
#include <sys/socket.h>
#include <sys/syscall.h>
#include <unistd.h>

#include "support/lab.h"

using lab::Census;
using lab::FailsWith;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::MatchesRegex;

namespace {

constexpr uint32_t kFar = 0x0a010001;    // 10.1.0.1
constexpr uint32_t kNobody = 0x0a01004d; // 10.1.0.77
constexpr uint32_t kLoopback = 0x7f000001;
constexpr unsigned kVerbose = 1;

// What goes wrong with the system calls of the function under test.
struct Trouble {
    int poll = 0; // errno of the next call
    int recv = 0;
    int sendto = 0;
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
    if (trouble.datagram) {
        received = static_cast<ssize_t>(trouble.datagram->copy(static_cast<char *>(buffer), size));
    }
    return received;
}

extern "C" ssize_t sendto(int fd, const void *bytes, size_t size, int flags, const sockaddr *to,
                          socklen_t length) {
    return fails(trouble.sendto) ? -1 : ::syscall(SYS_sendto, fd, bytes, size, flags, to, length);
}

namespace {

// --- The scripted host ---

uint16_t checksum(const std::string &bytes) {
    uint32_t sum = 0;
    for (size_t i = 0; i < bytes.size(); ++i) {
        sum += static_cast<uint32_t>(static_cast<uint8_t>(bytes[i])) << (i % 2 == 0 ? 8 : 0);
    }
    while (sum > 0xffff) {
        sum = (sum >> 16) + (sum & 0xffff);
    }
    return static_cast<uint16_t>(~sum);
}

// The ICMP message with its checksum put right.
std::string summed(std::string message) {
    message[2] = message[3] = 0;
    uint16_t sum = checksum(message);
    message[2] = static_cast<char>(sum >> 8);
    message[3] = static_cast<char>(sum);
    return message;
}

// The right answer to an echo request.
std::string echo_reply(std::string request) {
    request[0] = 0;
    return summed(request);
}

// Header and payload of an answer, the payload replaced.
std::string with_payload(const std::string &request, const std::string &payload) {
    return summed(echo_reply(request).substr(0, 8) + payload);
}

// An IPv4 header (the kernel fills in its checksum), its options, and a message behind it.
std::string in_ipv4(const std::string &message, const std::string &options = "") {
    iphdr header = {};
    header.version = 4;
    header.ihl = static_cast<unsigned>(5 + options.size() / 4) & 15;
    header.ttl = 64;
    header.protocol = IPPROTO_ICMP;
    header.daddr = htonl(0x0a010002);
    std::string bytes(reinterpret_cast<const char *>(&header), sizeof header);
    bytes += options + message;
    bytes[2] = static_cast<char>(bytes.size() >> 8);
    bytes[3] = static_cast<char>(bytes.size());
    return bytes;
}

using Script = std::function<std::string(const std::string &request)>; // the whole datagram

// Answers one echo request as scripted, and leaves the request in /tmp/request.
int answer_once(const Script &script, int ready) {
    int in = ::socket(AF_INET, SOCK_RAW, IPPROTO_ICMP);
    int out = ::socket(AF_INET, SOCK_RAW, IPPROTO_RAW);
    if (::write(ready, "r", 1) != 1) {
        return 1;
    }
    char datagram[2048];
    ssize_t size = ::recv(in, datagram, sizeof datagram, 0);
    std::string request(datagram + sizeof(iphdr), static_cast<size_t>(size) - sizeof(iphdr));
    lab::put("/tmp/request", request);
    std::string reply = script(request);
    sockaddr_in to = {AF_INET, 0, {htonl(0x0a010002)}, {}};
    return ::sendto(out, reply.data(), reply.size(), 0, reinterpret_cast<sockaddr *>(&to),
                    sizeof to) == static_cast<ssize_t>(reply.size())
               ? 0
               : 1;
}

class Ping : public testing::Test {
  protected:
    ~Ping() override { trouble = {}; }

    void silence() { lab::sh(far_.command("sysctl -w net.ipv4.icmp_echo_ignore_all=1")); }

    // The result of a test that the other host answers as scripted.
    int scripted(const Script &script, unsigned flags = 0) {
        int ready[2];
        EXPECT_EQ(::pipe(ready), 0);
        auto host = far_.start([&] { return answer_once(script, ready[1]); });
        char byte;
        EXPECT_EQ(::read(ready[0], &byte, 1), 1);
        ::close(ready[0]);
        ::close(ready[1]);
        return ping_test("eth1", &kFar, 1, 500, flags);
    }

    lab::Host far_{"far", "eth1", "10.1.0.2/24", "10.1.0.1/24"};
    Census census_;
};

TEST_F(Ping, KernelAnswers) {
    const std::array both = {kNobody, kFar};
    EXPECT_EQ(ping_test("eth1", &kFar, 1, 1000, 0), 1);
    EXPECT_EQ(ping_test(nullptr, &kFar, 1, 1000, ~kVerbose), 1);
    EXPECT_THAT(lab::take_log(), IsEmpty());
    EXPECT_EQ(ping_test("eth1", both.data(), 2, 0xffffffff, kVerbose), 1);
    EXPECT_EQ(ping_test(nullptr, &kFar, 1, 1000, 0xff), 1);
    EXPECT_THAT(lab::take_log(),
                ElementsAre(MatchesRegex("notice: eth1 ping 10.1.0.77 10.1.0.1 reply received in "
                                         "0\\.0[0-9][0-9] seconds"),
                            MatchesRegex("notice:  ping 10.1.0.1 reply received in 0\\.0[0-9][0-9] "
                                         "seconds")));
}

TEST_F(Ping, RequestIsTheOneDescribed) {
    silence();
    EXPECT_EQ(scripted([](const std::string &request) { return in_ipv4(echo_reply(request)); }), 1);
    std::string request = lab::get("/tmp/request");
    auto pid = static_cast<uint16_t>(::getpid());
    uint16_t sequence = 1;
    std::string expected(64, '\0');
    expected[0] = 8;
    std::memcpy(&expected[4], &pid, 2);
    std::memcpy(&expected[6], &sequence, 2);
    expected.replace(8, 13, "Hello, world!");
    EXPECT_EQ(request, summed(expected));
}

TEST_F(Ping, SilenceIsNoFailure) {
    silence();
    lab::SignalStorm storm;
    EXPECT_NEAR(lab::elapsed_ms([] { EXPECT_EQ(ping_test("eth1", &kFar, 1, 300, kVerbose), 0); }),
                312, 20);
    EXPECT_NEAR(lab::elapsed_ms([] { EXPECT_EQ(ping_test("eth1", nullptr, 0, 100, kVerbose), 0); }),
                112, 20);
    EXPECT_LT(lab::elapsed_ms([] { EXPECT_EQ(ping_test("eth1", &kFar, 1, 0, kVerbose), 0); }), 20);
    EXPECT_GT(lab::SignalStorm::count(), 50);
    EXPECT_THAT(lab::take_log(), IsEmpty());
}

TEST_F(Ping, InterruptedCallsAreRepeated) {
    lab::SignalStorm storm(1);
    for (int i = 0; i < 100; ++i) {
        trouble = {EINTR, EINTR, EINTR, {}};
        ASSERT_EQ(ping_test("eth1", &kFar, 1, 1000, 0), 1);
    }
}

TEST_F(Ping, SlowAnswerIsMeasured) {
    silence();
    EXPECT_EQ(scripted(
                  [](const std::string &request) {
                      ::usleep(120000);
                      return in_ipv4(echo_reply(request));
                  },
                  kVerbose),
              1);
    EXPECT_THAT(lab::take_log(),
                ElementsAre(MatchesRegex("notice: eth1 ping 10.1.0.1 reply received in "
                                         "0\\.1[2-4][0-9] seconds")));
}

TEST_F(Ping, ReplyIsJudged) {
    silence();
    struct Case {
        const char *name;
        Script reply;
        int result;
    };
    auto changed = [](size_t at, int difference, bool sum_right = true) {
        return [=](const std::string &request) {
            std::string reply = echo_reply(request);
            reply[at] = static_cast<char>(reply[at] + difference);
            return in_ipv4(sum_right ? summed(reply) : reply);
        };
    };
    auto payload = [](const std::string &text) {
        return [=](const std::string &request) { return in_ipv4(with_payload(request, text)); };
    };
    std::string hello("Hello, world!", 14);
    std::string longest = hello + std::string(1024 - 20 - 8 - hello.size(), 'x');
    const Case cases[] = {
        {"type", changed(0, 3), 0},
        {"code", changed(1, 1), 0},
        {"checksum", changed(3, 1, false), 0},
        {"identifier, first byte", changed(4, 1), 0},
        {"identifier, second byte", changed(5, 1), 0},
        {"sequence number 2", changed(6, 1), 0},
        {"sequence number, other byte", changed(7, 1), 0},
        {"payload", changed(20, 1), 0},
        // What lies in the buffer behind these is not the text.
        {"text cut short", payload("Hello, w"), 1},
        {"no payload", payload(""), 1},
        {"payload goes on without its end", payload("Hello, world!!"), 0},
        {"what follows the text is free", changed(60, 1), 1},
        {"odd length", payload(hello + "x"), 1},
        {"odd length, last byte not summed",
         [&](const std::string &request) { return in_ipv4(with_payload(request, hello) + "x"); },
         0},
        {"IP options",
         [](const std::string &request) {
             return in_ipv4(echo_reply(request), "\x01\x01\x01\x01\x01\x01\x01\x01");
         },
         1},
        {"fills the buffer", payload(longest), 1},
        {"one more than the buffer", payload(longest + "x"), 0},
        {"much more than the buffer", payload(longest + std::string(400, '\0')), 0},
        {"destination unreachable, about something else",
         [](const std::string &) {
             return in_ipv4(summed(std::string("\x03\x01", 2).append(34, 0)));
         },
         0},
    };
    for (const Case &one : cases) {
        EXPECT_EQ(scripted(one.reply, kVerbose), one.result) << one.name;
        EXPECT_EQ(lab::take_log().size(), static_cast<size_t>(one.result)) << one.name;
    }
}

TEST_F(Ping, LyingHeadersAreNotBelieved) {
    uint16_t pid = static_cast<uint16_t>(::getpid());
    std::string request(64, '\0');
    std::memcpy(&request[4], &pid, 2);
    request[6] = 1;
    request.replace(8, 13, "Hello, world!");
    const std::string good = in_ipv4(echo_reply(request));
    auto result = [&](std::string datagram) {
        trouble.datagram = std::move(datagram);
        return ping_test("eth1", &kFar, 1, 1000, 0);
    };
    EXPECT_EQ(result(good), 1) << "the same way in, told nothing but the truth";
    for (size_t size = 0; size < good.size(); ++size) {
        EXPECT_EQ(result(good.substr(0, size)), 0) << "received " << size;
    }
    for (int total = 0; total < 28; ++total) { // no room for both headers
        std::string datagram = good;
        datagram[3] = static_cast<char>(total);
        EXPECT_EQ(result(datagram), 0) << "total length " << total;
    }
    std::string seven = echo_reply(request);
    seven = in_ipv4(summed(seven.substr(0, 7)) + seven.substr(7));
    seven[3] = 27;
    EXPECT_EQ(result(seven), 0) << "right but for the header's last byte";
    std::string beyond = good;
    beyond[2] = '\xff';
    EXPECT_EQ(result(beyond), 0);
    for (int words : {0, 1, 4, 6, 15}) {
        std::string datagram = good;
        datagram[0] = static_cast<char>(0x40 | words);
        EXPECT_EQ(result(datagram), 0) << "header length " << words;
    }
    EXPECT_EQ(result(good + "trailer"), 1) << "behind the datagram's own length";
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
    EXPECT_THAT(ping_test("nosuch0", &kFar, 1, 1000, 2), FailsWith(-1, ENODEV));
    EXPECT_THAT(ping_test(nullptr, &kUnrouted, 1, 1000, 0), FailsWith(-1, ENETUNREACH));
    EXPECT_THAT(lab::take_log(), IsEmpty());
}

TEST_F(Ping, LongProgressTextIsCut) {
    std::string shown = "nosuch0 ping";
    std::array<uint32_t, 40> many;
    for (uint32_t &address : many) {
        address = kFar;
        shown += " 10.1.0.1";
    }
    EXPECT_THAT(ping_test("nosuch0", many.data(), many.size(), 1000, kVerbose),
                FailsWith(-1, ENODEV));
    EXPECT_THAT(lab::take_log(),
                ElementsAre("err: " + shown.substr(0, 255) + " failed: No such device"));
}

TEST(PingOurselves, OurOwnRequestArrivesFirst) {
    EXPECT_LT(lab::elapsed_ms([] { EXPECT_EQ(ping_test("lo", &kLoopback, 1, 1000, kVerbose), 0); }),
              500);
    EXPECT_THAT(lab::take_log(), IsEmpty());
}

} // namespace
