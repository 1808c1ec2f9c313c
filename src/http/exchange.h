// One request and one reply over TCP, for all of the HTTP and JSON-RPC calls.
#pragma once

#include <cstddef>
#include <cstring>
#include <string_view>

#include <sys/types.h>

namespace rk {

// A connection to a port of a host that the system's resolver knows, or -1.
int connect_to(const char *host, int port);

// How long sending and receiving may wait, in milliseconds.
constexpr int kNoLimit = -1;
constexpr int kTransferLimit = 2000; // that of the sockets of socket_connect

// Signals stretch neither limit; EAGAIN is the errno when one has passed.
bool send_all(int fd, std::string_view text, int limit);
ssize_t receive_once(int fd, char *buffer, size_t room, int limit);

// A line end in a request's head would start a header line of the peer's choice.
inline bool has_line_end(const char *text) {
    return text[std::strcspn(text, "\r\n")] != '\0';
}

// A POST request, and where the first of the reply goes.
struct Post {
    const char *host;
    int port;  // with kNoLimit
    int limit; // kTransferLimit comes with the port and the limits of socket_connect
    const char *path;
    const char *body;
    char *reply;
    size_t room;
};

constexpr ssize_t kNotSent = -2;

// The number of bytes that one receive brings, or -1. kNotSent when it did not come to that: with
// EINVAL for a line end in host or path, with ENOBUFS for a request of more than 65534 bytes.
ssize_t exchange(const Post &post);

} // namespace rk
