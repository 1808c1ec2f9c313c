#include <routerkit/http.h>

#include <algorithm>
#include <cstring>

#include <sys/socket.h>

#include <routerkit/strings.h>

#include "http/exchange.h"
#include "http/http_reply.h"
#include "support/log.h"
#include "support/owning.h"

using rk::retry_eintr;
using rk::UniqueFd;

namespace {

constexpr int kMaxRedirects = 10;

using GetRequest = rk::TextBuffer<5000>;

// Whom a URL names.
struct Server {
    explicit Server(const char *url) : port(url_getport(url)) {
        if (url_gethost(host, sizeof host, url) != 0) {
            host[0] = '\0';
        }
    }

    // Logs what errno is about.
    int failed(const char *step) const {
        rk::log_at(LOG_ERR, "http_get: %s the %s:%d (%m)", step, host, port);
        return -1;
    }

    int failed(const char *step, int error) const {
        errno = error;
        return failed(step);
    }

    char host[64];
    int port;
};

// The head of a reply, and the first bytes of the body that arrived with it.
struct Head {
    char text[4096];
    size_t size = 0;
    rk::ReplyShape shape;

    [[nodiscard]] char *end() { return text + size; }
    [[nodiscard]] std::string_view lines() { return rk::header_lines(shape, end()); }

    // The start of the body; empty too when the head has no end.
    [[nodiscard]] std::string_view rest() {
        char *start = shape.blank != nullptr ? shape.blank + 4 : end();
        return {start, static_cast<size_t>(end() - start)};
    }

    // Up to the blank line, the connection's end, 4095 bytes, or a line that is no status line.
    bool receive(int fd) {
        shape = {};
        for (size = 0; size < sizeof text - 1 && shape.blank == nullptr;) {
            ssize_t count = ::recv(fd, end(), sizeof text - 1 - size, 0);
            if (count < 0 && errno != EINTR && errno != EAGAIN) {
                return false;
            }
            if (count == 0) {
                break;
            }
            size += count > 0 ? static_cast<size_t>(count) : 0;
            shape = rk::look_at_reply(text, end());
            if (shape.line_end != nullptr && shape.status < 0) {
                break;
            }
        }
        return true;
    }
};

// The caller's buffer: `room` bytes for the body, and one more for the NUL.
struct Body {
    char *bytes;
    size_t room;
};

// What stands in the request line for a URL's path and query, without the fragment.
void append_target(GetRequest &request, const char *path) {
    if (std::strchr("?#", *path) != nullptr) { // or nothing at all
        request.append("/");
    }
    request.append(std::string_view(path, std::strcspn(path, "#")));
}

bool write_get(GetRequest &request, const Server &server, const char *url, const char *cookie) {
    const char *path = url_getpath(url);
    bool has_cookie = cookie != nullptr && *cookie != '\0';
    if (rk::has_line_end(server.host) || rk::has_line_end(path) ||
        (has_cookie && rk::has_line_end(cookie))) {
        errno = EINVAL;
        return false;
    }
    request.append("GET ");
    append_target(request, path);
    request.append(" HTTP/1.1\r\nHost: ")
        .append(server.host)
        .append("\r\nAccept: */*\r\nAccept-Encoding: identity\r\nConnection: close\r\n");
    if (has_cookie) {
        request.append("Cookie: ").append(cookie).append("\r\n");
    }
    request.append("\r\n");
    if (request.cut()) {
        errno = ENOBUFS;
    }
    return !request.cut();
}

// No value is longer than the head, for which the caller's buffer has room.
void take_cookie(std::string_view lines, char *cookie) {
    std::optional<std::string_view> value = rk::find_header(lines, "Set-Cookie");
    if (cookie != nullptr && value) {
        const char *end = value->data() + value->size();
        const char *semicolon = memechr(value->data(), end, ';');
        auto length = static_cast<size_t>((semicolon != nullptr ? semicolon : end) - value->data());
        std::memcpy(cookie, value->data(), length);
        cookie[length] = '\0';
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
    size_t held = std::min(head.rest().size(), body.room);
    std::memcpy(body.bytes, head.rest().data(), held);
    std::optional<size_t> length = rk::content_length(head.lines());
    if (head.shape.blank == nullptr) {
        return 0;
    }
    if (length) {
        size_t wanted = std::min(*length, body.room);
        held = std::min(held, wanted);
        return static_cast<ssize_t>(held + receive_all(fd, body.bytes + held, wanted - held));
    }
    ssize_t count = rk::receive_once(fd, body.bytes + held, body.room - held, rk::kNoLimit);
    return count < 0 ? -1 : static_cast<ssize_t>(held) + count;
}

int take_body(int fd, Head &head, const Body &body, char *cookie, const Server &server) {
    take_cookie(head.lines(), cookie);
    ssize_t length = receive_body(fd, head, body);
    if (length < 0) {
        return server.failed("failed to recv content from");
    }
    std::optional<std::string_view> encoding = rk::find_header(head.lines(), "Transfer-Encoding");
    if (encoding && *encoding == "chunked") {
        length = rk::unchunk(body.bytes, static_cast<size_t>(length));
    }
    if (length >= 0) {
        body.bytes[length] = '\0';
    }
    return static_cast<int>(length);
}

// The target of a redirect, inside the head, where it may be cut: nothing else is read from it.
const char *take_location(Head &head) {
    std::optional<std::string_view> value = rk::find_header(head.lines(), "Location");
    if (!value) {
        return nullptr;
    }
    char *location = head.text + (value->data() - head.text);
    location[value->size()] = '\0';
    return location;
}

// One request and its reply: the result, or the URL to go on with in `location`.
int get_once(const Server &server, const char *url, const Body &body, char *cookie, Head &head,
             const char **location) {
    GetRequest request;
    if (server.host[0] == '\0') {
        return server.failed("failed to connect to", EINVAL);
    }
    if (!write_get(request, server, url, cookie)) {
        return server.failed("failed to send request to");
    }
    UniqueFd fd(rk::connect_to(server.host, server.port));
    if (!fd) {
        return server.failed("failed to connect to");
    }
    if (!rk::send_all(fd.get(), request.view(), rk::kNoLimit)) {
        return server.failed("failed to send request to");
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
    if (status / 100 == 3) {
        *location = take_location(head);
    } else {
        rk::TextBuffer<16> step;
        step.format("%03d from", status);
        server.failed(step.c_str(), EREMOTEIO);
    }
    errno = EREMOTEIO;
    return -status;
}

} // namespace

int http_get(const char *url, char *buf, size_t size, char *cookie) {
    if (size == 0) {
        return rk::fail(EINVAL);
    }
    Body body = {buf, std::min(size - 1, size_t{INT32_MAX})};
    Head head;
    for (int redirects = 0; redirects <= kMaxRedirects; ++redirects) {
        const char *location = nullptr;
        int result = get_once(Server(url), url, body, cookie, head, &location);
        if (location == nullptr) {
            return result;
        }
        url = location;
    }
    return Server(url).failed("failed to connect to", ELOOP);
}
