// An HTTP reply in memory: its status line, its header lines, and both ways to its body.
#include "http/http_reply.h"

#include <algorithm>
#include <optional>

#include <strings.h>

#include <routerkit/http.h>
#include <routerkit/jsonrpc.h>

#include "support/fuzz.h"

namespace {

constexpr size_t kNone = std::string::npos;
constexpr char kLineEnd[] = "\r\n";
constexpr char kBlank[] = "\r\n\r\n";

int status_of(const std::string &reply) {
    const std::string line = reply.substr(0, reply.find(kLineEnd));
    bool known = line != reply && (line.starts_with("HTTP/1.0") || line.starts_with("HTTP/1.1"));
    long code = known ? std::strtol(line.c_str() + 8, nullptr, 10) : -1;
    return code >= 100 && code <= 999 ? static_cast<int>(code) : -1;
}

std::optional<std::string> header(std::string lines, const char *name) {
    for (int count = 0; count < 31 && !lines.empty(); ++count) {
        std::string line = lines.substr(0, lines.find(kLineEnd));
        size_t colon = line.find(':');
        if (colon == kNone) {
            break;
        }
        if (colon == std::strlen(name) && ::strncasecmp(line.c_str(), name, colon) == 0) {
            line.erase(0, colon + 1);
            return line.erase(0, std::min(line.find_first_not_of(' '), line.size()));
        }
        lines.erase(0, line.size() + 2);
    }
    return {};
}

std::string lines_of(const std::string &reply) {
    size_t first = reply.find(kLineEnd), blank = reply.find(kBlank);
    if (first == kNone || first == blank) {
        return "";
    }
    std::string lines = reply.substr(first + 2, blank - first - 2);
    lines.resize(lines.size() - (blank == kNone && lines.ends_with('\r') ? 1 : 0));
    return lines;
}

void look_at_header(const std::string &reply) {
    lab::Fenced text(reply);
    char *end = text.data() + text.size();
    rk::ReplyShape shape = rk::look_at_reply(text.data(), end);
    fuzz::require(shape.status == status_of(reply));
    const std::string lines = lines_of(reply);
    fuzz::require(rk::header_lines(shape, end) == lines);
    lab::Fenced fenced(lines);
    for (const char *name : {"A", "Location", "Transfer-Encoding"}) {
        std::string_view value = rk::find_header(fenced.view(), name);
        fuzz::require((value.data() != nullptr) == header(lines, name).has_value());
        fuzz::require(value == header(lines, name).value_or(""));
    }
    const std::string value = header(lines, "content-LENGTH").value_or("");
    char *rest = nullptr;
    long number = std::strtol(value.c_str(), &rest, 10);
    int32_t length = rk::content_length(rk::find_header(fenced.view(), "Content-Length"));
    fuzz::require((length >= 0) == (rest != value.c_str() && number >= 0));
    fuzz::require(length < 0 || length == std::min(number, long{INT32_MAX}));
}

void take_bodies(const std::string &reply) {
    size_t blank = reply.find(kBlank);
    lab::Fenced first(reply + '#'), second(reply + '#'), copy(reply);
    char *body = nullptr;
    size_t length = 0;
    int status = status_of(reply), raw = blank != kNone ? status : -1;
    fuzz::require(http_post_response(first.data(), reply.size(), &body) == status);
    fuzz::require(get_json_rpc(second.data(), reply.size(), copy.data(), &length) == raw);
    fuzz::require((body != nullptr) == (raw >= 0));
    if (body != nullptr) {
        std::string wanted = reply.substr(blank + 4);
        fuzz::require(copy.view().substr(0, length) == wanted);
        wanted.erase(0, std::min(wanted.find_first_not_of(kLineEnd), wanted.size()));
        wanted.erase(wanted.find_last_not_of(kLineEnd) + 1);
        fuzz::require(std::strcmp(body, wanted.c_str()) == 0);
    }
}

} // namespace

void fuzz::run(std::string_view input) {
    look_at_header(std::string(input));
    take_bodies(std::string(input));
}
