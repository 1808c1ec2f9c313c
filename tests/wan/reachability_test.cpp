#include <routerkit/wan.h>

#include <csignal>
#include <thread>

#include "support/lab.h"

using lab::FailsWith;
using lab::put;
using lab::takes_ms;
using testing::ElementsAre;
using testing::IsEmpty;

namespace {

constexpr unsigned kVerbose = 1;

// WAN2 on ppp0 leads to a provider with a real name server; its hosts answer real pings.
class Reachability : public testing::Test {
  protected:
    void SetUp() override {
        put("/var/wan/2/con_iface", "ppp0");
        put("/var/wan/2/resolv.conf", "nameserver 10.2.0.1\n");
        lab::sh(provider_.command("ip addr add 198.51.100.2/32 dev lo"));
        lab::sh("ip route add default via 10.2.0.1 dev ppp0");
        ASSERT_TRUE(lab::wait_until([] {
            uint32_t address;
            return wan_resolve_domain(2, "www.example.net", &address, 1, 100) == 1;
        }));
    }

    lab::Host provider_{"isp", "ppp0", "10.2.0.2/24", "10.2.0.1/24"};
    lab::Background name_server_{provider_.command(
        "dnsmasq --no-daemon --conf-file=/dev/null --pid-file= --log-facility=/dev/null "
        "--no-resolv --no-hosts --listen-address=10.2.0.1 --bind-interfaces "
        "--host-record=www.example.net,198.51.100.2 --address=/nowhere.example/10.2.0.77 "
        "--txt-record=text.example,x --cname=alias.example,www.example.net")};
};

TEST_F(Reachability, NamesAreAskedOfTheConnectionsOwnServer) {
    lab::Census census;
    uint32_t addresses[2] = {};
    EXPECT_EQ(wan_resolve_domain(2, "www.example.net", addresses, 2, 1000), 1);
    EXPECT_EQ(addresses[0], 0xc6336402U);
    EXPECT_EQ(wan_gethostsbyname(2, "alias.example", addresses, 2), 1);
    EXPECT_EQ(wan_gethostbyname(2, "10.1.2.3", addresses), 1);
    EXPECT_EQ(addresses[0], 0x0a010203U);
    EXPECT_THAT(wan_resolve_domain(1, "10.1.2.3", addresses, 2, 1000), FailsWith(-1, ENETDOWN));
    EXPECT_THAT(wan_gethostbyname(1, "www.example.net", addresses), FailsWith(-1, ENETDOWN));
    EXPECT_THAT(wan_gethostbyname(2, nullptr, addresses), FailsWith(-1, EINVAL));
}

TEST_F(Reachability, HostsArePingedByName) {
    lab::Census census;
    EXPECT_EQ(wan_ping_test(2, "www.example.net", 1000, 0), 1);
    EXPECT_THAT(lab::take_log(), IsEmpty());
    EXPECT_EQ(wan_ping_test(2, "10.2.0.1", 1000, kVerbose), 1);
    EXPECT_THAT(lab::take_log(), ElementsAre(testing::StartsWith(
                                     "notice: ppp0 ping 10.2.0.1 reply received in 0.0")));
}

TEST_F(Reachability, BothStepsShareOneDeadline) {
    ::kill(name_server_.pid(), SIGSTOP); // a name server that takes its time
    std::thread waker([this] {
        std::this_thread::sleep_for(std::chrono::milliseconds(200));
        ::kill(name_server_.pid(), SIGCONT);
    });
    lab::SignalStorm storm;
    EXPECT_EQ(takes_ms(300, [] { return wan_ping_test(2, "nowhere.example", 300, 1); }), 0);
    EXPECT_THAT(lab::take_log(), IsEmpty()) << "no answer is no failure";
    waker.join();
    name_server_.stop();
    EXPECT_THAT(takes_ms(300, [] { return wan_ping_test(2, "www.example.net", 300, 0); }),
                FailsWith(-1, ETIME));
    EXPECT_THAT(takes_ms(0, [] { return wan_ping_test(2, "10.2.0.1", 0, kVerbose); }),
                FailsWith(-1, ETIME))
        << "no time at all is not the resolver's default time";
    EXPECT_THAT(lab::take_log(),
                ElementsAre("notice: WAN2 ping '10.2.0.1' resolve domain failed: Timer expired"));
}

TEST_F(Reachability, FailuresSayWhy) {
    lab::Census census;
    EXPECT_THAT(wan_ping_test(1, "10.2.0.1", 500, kVerbose), FailsWith(-1, ENETDOWN));
    EXPECT_THAT(lab::take_log(), IsEmpty());
    EXPECT_THAT(wan_ping_test(2, "text.example", 500, kVerbose), FailsWith(-1, ENOENT));
    EXPECT_THAT(lab::take_log(), ElementsAre("notice: WAN2 ping 'text.example' resolve domain "
                                             "failed: No such file or directory"));
    EXPECT_THAT(wan_ping_test(2, nullptr, 500, kVerbose), FailsWith(-1, EINVAL));
    EXPECT_THAT(lab::take_log(),
                ElementsAre("notice: WAN2 ping '' resolve domain failed: Invalid argument"));
    put("/var/wan/2/resolv.conf", "# none\n");
    EXPECT_THAT(wan_ping_test(2, "www.example.net", 500, 0), FailsWith(-1, ENETDOWN));
    EXPECT_THAT(lab::take_log(), IsEmpty());
    put("/var/wan/2/con_iface", "nosuch0");
    EXPECT_THAT(wan_ping_test(2, "10.2.0.1", 500, kVerbose), FailsWith(-1, ENODEV));
    EXPECT_THAT(lab::take_log(), ElementsAre("err: nosuch0 ping 10.2.0.1 failed: No such device"));
}

} // namespace
