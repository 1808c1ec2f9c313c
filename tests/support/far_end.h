// What another host sees at its end of the cable.
#pragma once

#include <functional>
#include <string>
#include <thread>
#include <vector>

#include <fcntl.h>
#include <net/if.h>
#include <netinet/if_ether.h>
#include <netinet/in.h>
#include <netpacket/packet.h>
#include <sched.h>
#include <sys/socket.h>

#include <routerkit/ping.h>

#include "support/lab.h"
#include "support/owning.h"

namespace lab {

inline constexpr uint32_t kFar = 0x0a010001; // 10.1.0.1

// A socket in a host's network namespace, bound there.
template <typename Address>
int far_socket(const std::string &host, int family, int type, const Address &address) {
    int fd = -1;
    std::thread visitor([&] { // a thread has a network namespace of its own
        rk::UniqueFd there(::open(("/run/netns/" + host).c_str(), O_RDONLY | O_CLOEXEC));
        EXPECT_EQ(::setns(there.get(), CLONE_NEWNET), 0);
        fd = ::socket(family, type | SOCK_CLOEXEC, 0);
        EXPECT_EQ(::bind(fd, reinterpret_cast<const sockaddr *>(&address), sizeof address), 0);
    });
    visitor.join();
    return fd;
}

// The host 10.1.0.1 behind one of our interfaces, with all frames that reach it.
class FarEnd : public Host {
  public:
    explicit FarEnd(const char *ifname) : Host("far", ifname, "10.1.0.2/24", "10.1.0.1/24") {
        // A new cable carries frames as soon as the kernel has seen its carrier.
        EXPECT_TRUE(wait_until([=] { return ping_test(ifname, &kFar, 1, 100, 0) == 1; }));
    }

    // Those of them since the last look that went to a MAC address, or all.
    std::vector<std::string> take_frames(std::string_view mac = "") const {
        std::vector<std::string> frames;
        char frame[2048];
        for (ssize_t size; (size = ::recv(tap_.get(), frame, sizeof frame, MSG_DONTWAIT)) > 0;) {
            if (std::string_view(frame, mac.size()) == mac) {
                frames.emplace_back(frame, static_cast<size_t>(size));
            }
        }
        return frames;
    }

  private:
    const sockaddr_ll all_ = {AF_PACKET, htons(ETH_P_ALL), 0, 0, 0, 0, {}};
    rk::UniqueFd tap_{far_socket("far", AF_PACKET, SOCK_RAW, all_)};
};

// Runs tshark, without a user's settings, over Ethernet frames: it must not find fault with any.
inline std::string tshark(const std::vector<std::string> &frames, const std::string &options) {
    auto words = [](std::vector<uint32_t> numbers) {
        return std::string(reinterpret_cast<char *>(numbers.data()), numbers.size() * 4);
    };
    std::string file = words({0xa1b2c3d4, 4U << 16 | 2, 0, 0, 65535, 1}); // pcap 2.4, Ethernet
    for (const std::string &frame : frames) {
        const auto size = static_cast<uint32_t>(frame.size());
        file += words({0, 0, size, size}) + frame;
    }
    put("/tmp/frames.pcap", file);
    const std::string read = "(HOME=/tmp tshark -r /tmp/frames.pcap 2>/dev/null ";
    EXPECT_EQ(sh(read + "-Y '_ws.expert || _ws.malformed' -V)"), "");
    return sh(read + options + ")");
}

} // namespace lab
