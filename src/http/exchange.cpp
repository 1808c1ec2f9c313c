#include "http/exchange.h"

#include <algorithm>
#include <cstring>

#include <netinet/tcp.h>
#include <poll.h>

#include <routerkit/sockets.h>

#include "support/deadline.h"
#include "support/socket.h"
#include "support/text_buffer.h"

namespace rk {
namespace {

// Without a limit the time does not matter.
Deadline deadline_of(int limit) {
    return limit == kNoLimit ? Deadline(0) : Deadline::in(static_cast<uint32_t>(limit));
}

// Waits until the socket is ready, up to the deadline if there is a limit.
bool wait(int fd, short events, int limit, Deadline deadline) {
    pollfd entry = {fd, events, 0};
    int ready = retry_eintr(
        [&] { return ::poll(&entry, 1, limit == kNoLimit ? -1 : std::max(deadline.left(), 0)); });
    if (ready == 0) {
        errno = EAGAIN;
    }
    return ready > 0;
}

// Of a request's bytes. A NUL counts, too.
constexpr size_t kRequestRoom = 65535;
using Request = TextBuffer<kRequestRoom>;

int write_post(Request &request, const Post &post) {
    if (has_line_end(post.host) || has_line_end(post.path)) {
        return fail(EINVAL);
    }
    return request.format("POST %s HTTP/1.1\r\n"
                          "Host: %s\r\n"
                          "Content-type: application/x-www-form-urlencoded\r\n"
                          "Content-length: %zu\r\n\r\n%s",
                          post.path, post.host, std::strlen(post.body), post.body)
               ? 0
               : fail(ENOBUFS);
}

} // namespace

int connect_to(const char *host, int port) {
    if (*host == '\0' || port < 1 || port > UINT16_MAX) {
        return fail(EINVAL);
    }
    sockaddr_in peer = inet_endpoint(0, static_cast<uint16_t>(port));
    if (find_host(host, &peer.sin_addr) != 0) {
        return -1;
    }
    constexpr int kOn = 1;
    UniqueFd fd(::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, IPPROTO_TCP));
    // A repeated connect goes on waiting for the connection that is under way.
    if (!fd || ::setsockopt(fd.get(), IPPROTO_TCP, TCP_NODELAY, &kOn, sizeof kOn) != 0 ||
        retry_eintr([&] { return ::connect(fd.get(), as_sockaddr(peer), sizeof peer); }) != 0) {
        return -1;
    }
    return fd.release();
}

bool send_all(int fd, std::string_view text, int limit) {
    Deadline deadline = deadline_of(limit);
    while (!text.empty()) {
        ssize_t count = retry_eintr(
            [&] { return ::send(fd, text.data(), text.size(), MSG_NOSIGNAL | MSG_DONTWAIT); });
        if (count >= 0) {
            text.remove_prefix(static_cast<size_t>(count));
        } else if (errno != EAGAIN || !wait(fd, POLLOUT, limit, deadline)) {
            return false;
        }
    }
    return true;
}

ssize_t receive_once(int fd, char *buffer, size_t room, int limit) {
    if (room == 0) {
        return 0;
    }
    if (limit != kNoLimit && !wait(fd, POLLIN, limit, deadline_of(limit))) {
        return -1;
    }
    return retry_eintr([&] { return ::recv(fd, buffer, room, 0); });
}

ssize_t exchange(const Post &post) {
    Request request;
    if (write_post(request, post) != 0) {
        return kNotSent;
    }
    UniqueFd fd(post.limit == kNoLimit ? connect_to(post.host, post.port)
                                       : socket_connect(post.host));
    if (!fd || !send_all(fd.get(), request.view(), post.limit)) {
        return kNotSent;
    }
    return receive_once(fd.get(), post.reply, post.room, post.limit);
}

} // namespace rk
