#include <routerkit/http.h>

#include <algorithm>
#include <cstring>

#include <sys/socket.h>

#include <routerkit/strings.h>

#include "http/exchange.h"
#include "http/http_reply.h"
#include "support/chars.h"
#include "support/lines.h"
#include "support/log.h"
#include "support/owning.h"
#include "support/text_buffer.h"

using rk::retry_eintr;
using rk::UniqueFd;

namespace {

constexpr int kMaxRedirects = 10;

using Request = rk::TextBuffer<5000>;

// Whom a URL names.
struct Server {
    explicit Server(const char *url) : port(url_getport(url)) {
        if (url_gethost(host, sizeof host, url) != 0) {
            host[0] = '\0';
        }
    }

    // Logs what errno is about.
    int failed(const char *step) const {
        rk::log_at(LOG_ERR, "http_get: %s the %s:%d (%m)", step, host.data(), port);
        return -1;
    }

    int failed(const char *step, int error) const {
        errno = error;
        return failed(step);
    }

    int port;
    rk::Chars<64> host;
};

// The head of a reply, and the first bytes of the body that arrived with it.
struct Head {
    size_t size;
    rk::ReplyShape shape;
    rk::Chars<4096> text;

    [[nodiscard]] char *end() { return text + size; }

    [[nodiscard]] std::string_view header(const char *name) {
        return rk::find_header(rk::header_lines(shape, end()), name);
    }

    // Up to the blank line, the connection's end, 4095 bytes, or a line that is no status line.
    bool receive(int fd) {
        ssize_t count;
        size = 0;
        do {
            count = ::recv(fd, end(), sizeof text - 1 - size, 0);
            if (count < 0 && errno != EINTR && errno != EAGAIN) {
                return false;
            }
            size += count > 0 ? static_cast<size_t>(count) : 0;
            shape = rk::look_at_reply(text, end());
        } while (count != 0 && size < sizeof text - 1 && shape.blank == nullptr &&
                 (shape.line_end == nullptr || shape.status >= 0));
        return true;
    }
};

// The caller's buffer: `room` bytes for the body, and one more for the NUL.
struct Body {
    char *bytes;
    size_t room;
};

// A null cookie is none, as an empty one.
int write_get(Request &request, const Server &server, const char *url, const char *cookie) {
    const char *path = url_getpath(url); // with the query, and the fragment, which is not sent
    cookie = cookie != nullptr ? cookie : "";
    bool has_cookie = *cookie != '\0';
    if (rk::has_line_end(server.host) || rk::has_line_end(path) || rk::has_line_end(cookie)) {
        return rk::fail(EINVAL);
    }
    bool needs_slash =
        std::strchr("?#", *path) != nullptr; // or nothing at all: the NUL is found, too
    return request.format("GET %s%.*s HTTP/1.1\r\n"
                          "Host: %s\r\n"
                          "Accept: */*\r\n"
                          "Accept-Encoding: identity\r\n"
                          "Connection: close\r\n"
                          "%s%s%s\r\n",
                          needs_slash ? "/" : "", static_cast<int>(std::strcspn(path, "#")), path,
                          server.host.data(), has_cookie ? "Cookie: " : "", cookie,
                          has_cookie ? "\r\n" : "")
               ? 0
               : rk::fail(ENOBUFS);
}

// A connection that the request has gone out on; or -1, which is logged. On its own because the
// stack need not hold the request any longer.
[[gnu::noinline]] int send_get(const Server &server, const char *url, const char *cookie) {
    Request request;
    if (server.host[0] == '\0') {
        return server.failed("failed to connect to", EINVAL);
    }
    if (write_get(request, server, url, cookie) != 0) {
        return server.failed("failed to send request to");
    }
    UniqueFd fd(rk::connect_to(server.host, server.port));
    if (!fd) {
        return server.failed("failed to connect to");
    }
    if (!rk::send_all(fd.get(), request.view(), rk::kNoLimit)) {
        return server.failed("failed to send request to");
    }
    return fd.release();
}

// The first of the attributes is the cookie itself. No value is longer than the head, for which the
// caller's buffer has room.
void take_cookie(Head &head, char *cookie) {
    std::string_view value = head.header("Set-Cookie");
    if (value.data() != nullptr) {
        for (char character : value) {
            if (character == ';') {
                break;
            }
            *cookie++ = character;
        }
        *cookie = '\0';
    }
}

// What arrives of `wanted` bytes until the connection ends or fails.
size_t receive_all(int fd, char *bytes, size_t wanted) {
    size_t held = 0;
    while (held < wanted) {
        ssize_t count =
            retry_eintr([&] { return ::recv(fd, bytes + held, wanted - held, MSG_WAITALL); });
        if (count <= 0) {
            break;
        }
        held += static_cast<size_t>(count);
    }
    return held;
}

// The whole body as it was sent: its length, or -1.
ssize_t receive_body(int fd, Head &head, const Body &body) {
    if (head.shape.blank == nullptr) {
        return 0;
    }
    const char *start = head.shape.blank + 4;
    size_t held = std::min(static_cast<size_t>(head.end() - start), body.room);
    std::memcpy(body.bytes, start, held);
    int32_t length = rk::content_length(head.header("Content-Length"));
    if (length < 0) {
        ssize_t count = rk::receive_once(fd, body.bytes + held, body.room - held, rk::kNoLimit);
        return count < 0 ? -1 : static_cast<ssize_t>(held) + count;
    }
    size_t wanted = std::min(static_cast<size_t>(length), body.room);
    held = std::min(held, wanted);
    return static_cast<ssize_t>(held + receive_all(fd, body.bytes + held, wanted - held));
}

int take_body(int fd, Head &head, const Body &body, char *cookie, const Server &server) {
    if (cookie != nullptr) {
        take_cookie(head, cookie);
    }
    ssize_t length = receive_body(fd, head, body);
    if (length < 0) {
        return server.failed("failed to recv content from");
    }
    constexpr std::string_view kChunked = "chunked";
    std::string_view encoding = head.header("Transfer-Encoding");
    if (encoding.size() == kChunked.size() && rk::has_prefix(encoding, kChunked)) {
        length = rk::unchunk(body.bytes, static_cast<size_t>(length));
    }
    if (length >= 0) {
        body.bytes[length] = '\0';
    }
    return static_cast<int>(length);
}

// The target of a redirect, inside the head, where it may be cut: nothing else is read from it.
// Null for none.
const char *take_location(Head &head) {
    std::string_view value = head.header("Location");
    if (value.data() == nullptr) {
        return nullptr;
    }
    char *location = head.text + (value.data() - head.text);
    location[value.size()] = '\0';
    return location;
}

} // namespace

int http_get(const char *url, char *buf, size_t size, char *cookie) {
    if (size == 0) {
        return rk::fail(EINVAL);
    }
    Body body = {buf, std::min(size - 1, size_t{INT32_MAX})};
    Head head;
    for (int redirects = 0;; ++redirects) {
        Server server(url);
        if (redirects > kMaxRedirects) {
            return server.failed("failed to connect to", ELOOP);
        }
        UniqueFd fd(send_get(server, url, cookie));
        if (!fd) {
            return -1;
        }
        if (!head.receive(fd.get())) {
            return server.failed("failed to recv header from");
        }
        int status = head.shape.status;
        if (status < 0) {
            return server.failed("invalid answer from", EPROTO);
        }
        if (status / 100 == 2) {
            return take_body(fd.get(), head, body, cookie, server);
        }
        if (status / 100 != 3) {
            rk::TextBuffer<16> step;
            step.format("%03d from", status);
            server.failed(step.c_str(), EREMOTEIO);
            return -status;
        }
        url = take_location(head);
        if (url == nullptr) {
            errno = EREMOTEIO;
            return -status;
        }
    }
}
