// A peer for whatever connects: no byte leaves the program. Defines socket calls: for one source a
// program.
#pragma once

#include <algorithm>
#include <cerrno>

#include <netdb.h>
#include <poll.h>
#include <sys/socket.h>

#include "support/fuzz.h"

namespace fuzz {

// What the peer sends, a piece at a time. A byte 255 ends a connection; the next one gets what is
// behind it.
struct Peer {
    std::string_view sends;
    size_t piece = 0; // 0: as much as there is room for
    bool interrupts = false;

    // From the choice at the input's front.
    void start(std::string_view input) {
        piece = take(input);
        interrupts = piece % 2 != 0;
        sends = input;
        connected_ = false;
    }

    std::string_view connection() const { return sends.substr(0, sends.find('\xff')); }

    int connect() {
        sends.remove_prefix(connected_ ? std::min(sends.size(), connection().size() + 1) : 0);
        connected_ = true;
        return 0;
    }

    ssize_t receive(void *buffer, size_t room) {
        interrupted_ = interrupts && !interrupted_;
        if (interrupted_) {
            errno = EINTR;
            return -1;
        }
        size_t count = std::min({room, connection().size(), piece != 0 ? piece : room});
        std::memcpy(buffer, sends.data(), count);
        sends.remove_prefix(count);
        return static_cast<ssize_t>(count);
    }

  private:
    bool connected_ = false;
    bool interrupted_ = false;
};

inline Peer peer;

} // namespace fuzz

extern "C" {

int connect(int, const sockaddr *, socklen_t) {
    return fuzz::peer.connect();
}

ssize_t send(int, const void *, size_t size, int) {
    return static_cast<ssize_t>(size);
}

ssize_t recv(int, void *buffer, size_t room, int) {
    return fuzz::peer.receive(buffer, room);
}

int poll(pollfd *, nfds_t, int) {
    return 1;
}

int gethostbyname_r(const char *, hostent *, char *, size_t, hostent **found, int *) {
    *found = nullptr;
    return 0;
}
}
