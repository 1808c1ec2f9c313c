// One request and one reply over TCP, for all of the HTTP and JSON-RPC calls.
#pragma once

#include <cstddef>
#include <cstring>
#include <string_view>

#include <sys/types.h>

#include "support/text_buffer.h"

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

// For requests, batches of calls and raw replies, a NUL included in the texts.
constexpr size_t kPostRoom = 65535;
using PostRequest = TextBuffer<kPostRoom>;

// False with EINVAL for a line end in host or path, with ENOBUFS for a request that does not fit.
bool write_post(PostRequest &request, const char *host, const char *path, const char *body);

} // namespace rk
