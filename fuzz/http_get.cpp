// The replies to http_get, piece by piece, redirects included.
#include <routerkit/http.h>

#include "support/chunks.h"
#include "support/peer.h"

namespace {

// The body that was sent, without its encoding.
std::string sent_body(std::string_view reply) {
    return std::string(reply.substr(std::min(reply.size(), reply.find("\r\n\r\n") + 4)));
}

} // namespace

void fuzz::run(std::string_view input) {
    size_t size = 1 + take(input);
    size *= size; // 1 to 65536
    lab::Fenced buffer(std::string(size, '#')), cookie("k=v" + std::string(4093, '\0'));
    peer.start(input);
    int result = http_get("http://u@127.0.0.1:8080/p?q#f", buffer.data(), size, cookie.data());
    require(std::memchr(cookie.data(), '\0', 4096) != nullptr);
    require(result < static_cast<int>(size) && result > -1000);
    if (result < 0) {
        return;
    }
    require(buffer.data()[result] == '\0');
    std::string_view body = buffer.view().substr(0, static_cast<size_t>(result));
    std::string_view whole = input.substr(std::min<size_t>(input.size(), 1));
    std::string_view reply = whole.substr(0, whole.find('\xff'));
    bool redirected = http_response_code(std::string(reply).c_str()) / 100 == 3;
    bool plain = reply.find("chunked") == std::string_view::npos;
    require(redirected || !plain || sent_body(reply).starts_with(body));
}
