// The replies to http_get, piece by piece, redirects included.
#include <routerkit/http.h>

#include <optional>

#include "http/http_reply.h"
#include "support/peer.h"

namespace {

// What http_get must give for a plain body with a length; nothing where other rules hold.
std::optional<std::string_view> wanted_body(std::string_view reply, size_t room) {
    std::string head(reply.substr(0, 4095));
    rk::ReplyShape shape = rk::look_at_reply(head.data(), head.data() + head.size());
    auto lines = rk::header_lines(shape, head.data() + head.size());
    int32_t length = rk::content_length(rk::find_header(lines, "Content-Length"));
    if (shape.status / 100 != 2 || shape.blank == nullptr || length < 0 ||
        head.find("chunked") != std::string::npos) {
        return {};
    }
    reply.remove_prefix(static_cast<size_t>(shape.blank - head.data()) + 4);
    return reply.substr(0, std::min(static_cast<size_t>(length), room));
}

} // namespace

void fuzz::run(std::string_view input) {
    size_t size = 1 + take(input);
    size *= size; // 1 to 65536
    lab::Fenced buffer(std::string(size, '#')), cookie("k=v" + std::string(4093, '\0'));
    peer.start(input);
    auto wanted = wanted_body(peer.connection(), size - 1);
    int result = http_get("http://u@127.0.0.1:8080/p?q#f", buffer.data(), size, cookie.data());
    require(std::memchr(cookie.data(), '\0', 4096) != nullptr);
    require(result < static_cast<int>(size) && result > -1000);
    require(result < 0 || buffer.data()[result] == '\0');
    require(!wanted || buffer.view().substr(0, static_cast<size_t>(result)) == *wanted);
}
