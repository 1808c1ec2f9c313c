// The parts of a URL, and the searches and escapes of texts.
#include <routerkit/strings.h>

#include <algorithm>

#include "support/fuzz.h"

namespace {

constexpr size_t kNone = std::string::npos;

int port_of(const std::string &url, const std::string &behind) {
    if (behind.starts_with(':')) {
        return std::atoi(behind.c_str() + 1);
    }
    const std::string scheme = url.substr(0, url.find(':'));
    return scheme == "http" ? 80 : scheme == "https" ? 443 : scheme == "ftp" ? 21 : 0;
}

void check_parts(const std::string &url, size_t size) {
    lab::Fenced text = lab::Fenced::terminated(url), room(std::string(size, '#'));
    const char *path = url_getpath(text.data());
    int host = url_gethost(room.data(), size, text.data());
    int port = url_getport(text.data());
    size_t colon = url.find(':');
    if (colon == kNone || url.compare(colon + 1, 2, "//") != 0) {
        fuzz::require(path == nullptr && host == -1 && port == -1);
        return;
    }
    size_t at = url.find('@', colon + 3);
    std::string rest = url.substr(at != kNone ? at + 1 : colon + 3);
    std::string wanted = rest.substr(0, rest.find_first_of(":/?#"));
    fuzz::require(port == port_of(url, rest.substr(wanted.size())));
    fuzz::require(path == rest.substr(std::min(rest.find_first_of("/?#"), rest.size())));
    fuzz::require(host == (wanted.size() < size ? 0 : -1));
    fuzz::require(host != 0 || room.data() == wanted);
}

} // namespace

void fuzz::run(std::string_view input) {
    size_t size = take(input);
    const std::string text = text_of(input), sought = text.substr(0, 1 + size % 8);
    check_parts(text, size);
    lab::Fenced bytes(input), escaped(std::string(size, '#'));
    const char *found = memestr(bytes.data(), bytes.data() + bytes.size(), sought.c_str());
    require(found == (sought.empty() ? bytes.data() : bytes.data() + input.find(sought)));
    const char *end = slashstr(escaped.data(), size, text.c_str());
    require(size == 0 || (end < escaped.data() + size && *end == '\0'));
}
