// What another host (lab::Host) sees at its end of the cable.
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

#include "support/lab.h"
#include "support/owning.h"

namespace lab {

// A socket that lives in the host's network namespace; `open` makes it there, bound and all.
inline int socket_of(const std::string &host, const std::function<int()> &open) {
    int fd = -1;
    std::thread visitor([&] { // a thread has a network namespace of its own
        rk::UniqueFd there(::open(("/run/netns/" + host).c_str(), O_RDONLY | O_CLOEXEC));
        ASSERT_EQ(::setns(there.get(), CLONE_NEWNET), 0);
        fd = open();
    });
    visitor.join();
    EXPECT_GE(fd, 0);
    return fd;
}

// The frames that reach the host, and what a protocol analyser says of them.
class Tap : Pinned {
  public:
    explicit Tap(const std::string &host) : fd_(socket_of(host, open)) {}

    // What has arrived since the last look.
    std::vector<std::string> take() const {
        std::vector<std::string> frames;
        char frame[2048];
        for (ssize_t size; (size = ::recv(fd_.get(), frame, sizeof frame, MSG_DONTWAIT)) > 0;) {
            frames.emplace_back(frame, static_cast<size_t>(size));
        }
        return frames;
    }

  private:
    static int open() {
        sockaddr_ll link = {};
        link.sll_family = AF_PACKET;
        link.sll_protocol = htons(ETH_P_ALL);
        link.sll_ifindex = static_cast<int>(::if_nametoindex("up0"));
        int fd = ::socket(AF_PACKET, SOCK_RAW | SOCK_CLOEXEC, 0);
        EXPECT_EQ(::bind(fd, reinterpret_cast<sockaddr *>(&link), sizeof link), 0);
        return fd;
    }

    rk::UniqueFd fd_;
};

// Runs tshark over some Ethernet frames; it must not find fault with any of them.
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
    auto run = [](const std::string &how) {
        return sh("(tshark -r /tmp/frames.pcap " + how + " 2>/dev/null)");
    };
    EXPECT_EQ(run("-Y '_ws.expert || _ws.malformed' -V"), "");
    return run(options);
}

} // namespace lab
