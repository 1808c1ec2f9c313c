// A web server on the loopback that answers with exact bytes.
#pragma once

#include <algorithm>
#include <functional>
#include <optional>
#include <string>

#include <csignal>
#include <sys/wait.h>
#include <unistd.h>

#include "support/lab.h"
#include "support/socket.h"

namespace lab {

// In a child process, one connection after the other. The script sees the request and answers with
// the bytes to send before the connection is closed; with none, the server is silent until the
// client leaves. An eager server answers before the request has come (it sees "").
class WebServer {
  public:
    using Script = std::function<std::optional<std::string>(const std::string &request)>;

    WebServer(uint16_t port, const Script &script, bool eager = false)
        : script_(script), eager_(eager), listener_(::socket(AF_INET, SOCK_STREAM, 0)) {
        sockaddr_in here = rk::inet_endpoint(INADDR_LOOPBACK, port);
        constexpr int kOn = 1;
        ::setsockopt(listener_.get(), SOL_SOCKET, SO_REUSEADDR, &kOn, sizeof kOn);
        // The connections of a server before this one may take a moment to end.
        EXPECT_TRUE(wait_until(
            [&] { return ::bind(listener_.get(), rk::as_sockaddr(here), sizeof here) == 0; }));
        EXPECT_EQ(::listen(listener_.get(), 64), 0);
        EXPECT_EQ(::socketpair(AF_UNIX, SOCK_SEQPACKET, 0, requests_), 0);
        constexpr timeval kPatience = {10, 0};
        ::setsockopt(requests_[0], SOL_SOCKET, SO_RCVTIMEO, &kPatience, sizeof kPatience);
        child_ = ::fork();
        while (child_ == 0) {
            serve(rk::UniqueFd(::accept(listener_.get(), nullptr, nullptr)));
        }
    }
    ~WebServer() {
        ::kill(child_, SIGKILL);
        ::waitpid(child_, nullptr, 0);
        ::close(requests_[0]);
        ::close(requests_[1]);
    }
    WebServer(const WebServer &) = delete;

    // The next request that the server saw whole, or as far as it came; waits for it, but not for ever.
    std::string take_request() const {
        std::string request(1 << 17, '\0');
        ssize_t size = ::read(requests_[0], request.data(), request.size());
        EXPECT_GE(size, 0) << "no request came";
        request.resize(static_cast<size_t>(std::max(size, ssize_t{0})));
        return request;
    }

  private:
    static bool is_whole(const std::string &request) {
        size_t blank = request.find("\r\n\r\n"), length = request.find("Content-length: ");
        size_t body = length == std::string::npos ? 0 : std::stoul(request.substr(length + 16));
        return blank != std::string::npos && request.size() >= blank + 4 + body;
    }

    void answer(const rk::UniqueFd &client, const std::string &request) const {
        if (std::optional<std::string> reply = script_(request)) {
            ::send(client.get(), reply->data(), reply->size(), MSG_NOSIGNAL);
            ::shutdown(client.get(), SHUT_WR);
        }
    }

    void serve(const rk::UniqueFd &client) const {
        std::string request;
        eager_ ? answer(client, request) : void();
        char block[65536];
        for (ssize_t count = 1; count > 0 && !is_whole(request);) {
            count = ::read(client.get(), block, sizeof block);
            request.append(block, static_cast<size_t>(std::max(count, ssize_t{0})));
        }
        ::send(requests_[1], request.data(), request.size(), 0);
        eager_ ? void() : answer(client, request);
        while (::read(client.get(), block, sizeof block) > 0) {
        }
    }

    Script script_;
    bool eager_;
    rk::UniqueFd listener_;
    int requests_[2];
    pid_t child_;
};

} // namespace lab
