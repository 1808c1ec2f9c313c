#include <routerkit/http.h>

#include <cstring>

#include <sys/mount.h>
#include <sys/syscall.h>

#include "http/web_server.h"
#include "support/lab.h"
#include "support/syscalls.h"

using lab::FailsWith;
using lab::take_log;
using lab::WebServer;

namespace {

// How many bytes the next receives bring at most, the last number for all further ones; 0 for a
// failure with `receive_error`.
std::vector<size_t> portions;
int receive_error = 0;

} // namespace

extern "C" ssize_t recv(int fd, void *buffer, size_t room, int flags) {
    if (!portions.empty()) {
        EXPECT_NE(room, 0U) << "nothing to be received";
        room = std::min(room, portions.front());
        portions.size() > 1 ? void(portions.erase(portions.begin())) : void();
    }
    return room == 0 ? rk::fail(receive_error)
                     : ::syscall(SYS_recvfrom, fd, buffer, room, flags, nullptr, nullptr);
}

namespace {

constexpr const char *kUrl = "http://127.0.0.1:8080/page";
constexpr size_t kAll = SIZE_MAX;
const std::string kOk = "HTTP/1.1 200 OK\r\n";

char body[1100000];
char cookie[4096];

// http_get's outcome: the result, and the body (with its NUL as "." and a byte of what was there
// before) or the error's text, and what was logged.
std::string get(const std::string &url, size_t size = sizeof body, char *jar = cookie) {
    lab::Census census;
    std::memset(body, '#', sizeof body);
    int result = http_get(url.c_str(), body, size, jar);
    std::string outcome = std::to_string(result) + " ";
    outcome += result < 0 ? std::strerror(errno) : std::string(body) + "." + body[result + 1];
    portions.clear();
    for (const std::string &line : take_log()) {
        outcome += "; " + line;
    }
    return outcome;
}

// The same from a server that says one thing to everybody.
std::string get_reply(const std::string &reply, std::vector<size_t> receives = {kAll},
                      size_t size = sizeof body) {
    WebServer server(8080, [&](const std::string & /*request*/) { return reply; });
    portions = std::move(receives);
    *cookie = '\0';
    return get(kUrl, size);
}

std::string failure(const std::string &step, int error, const char *server = "127.0.0.1:8080",
                    int result = -1) {
    std::string text = std::strerror(error);
    return std::to_string(result) + " " + text + "; err: http_get: " + step + " the " + server +
           " (" + text + ")";
}

TEST(HttpGet, SendsTheUrlAndCookieOrNothing) {
    WebServer server(8080, [](const std::string & /*request*/) { return kOk + "\r\n"; });
    const std::string base = "http://127.0.0.1:8080", refused = "failed to send request to";
    const std::string longest = "/" + std::string(4999 - 93 - 1, 'x'); // less the rest of a request
    for (const char *path : {"/a\rb", "/a\nb", "/\r\nHost: other", "/a#\n"}) {
        EXPECT_EQ(get(base + path), failure(refused, EINVAL));
    }
    EXPECT_EQ(get("http://127.0.0.1\n:8080/"), failure(refused, EINVAL, "127.0.0.1\n:8080"));
    EXPECT_EQ(get(base + longest + "x"), failure(refused, ENOBUFS));
    char bad[4096] = "a=b\r\nX: y";
    EXPECT_EQ(get(kUrl, sizeof body, bad), failure(refused, EINVAL));
    EXPECT_THAT(http_get(kUrl, body, 0, nullptr), FailsWith(-1, EINVAL));

    struct Case {
        std::string url, target;
        const char *cookie;
    };
    for (const Case &one :
         {Case{base + longest, longest, ""}, // the first that is sent at all
          Case{base + "/a?b=c#d", "/a?b=c", "sid=abc"},
          Case{"http://me:pw@127.0.0.1:8080", "/", "a\tb"}, Case{"x://127.0.0.1:8080?q", "/?q", ""},
          Case{base + "#top", "/", nullptr}}) {
        std::string line = one.cookie != nullptr && *one.cookie != '\0' ? one.cookie : "";
        char jar[4096];
        std::strcpy(jar, line.c_str());
        EXPECT_EQ(get(one.url, sizeof body, one.cookie != nullptr ? jar : nullptr), "0 .#");
        EXPECT_EQ(server.take_request(),
                  "GET " + one.target +
                      " HTTP/1.1\r\nHost: 127.0.0.1\r\nAccept: */*\r\nAccept-Encoding: identity\r\n"
                      "Connection: close\r\n" +
                      (line.empty() ? "" : "Cookie: " + line + "\r\n") + "\r\n");
    }
}

TEST(HttpGet, ReportsAFailedConnection) {
    lab::put("/tmp/resolv.conf", "nameserver 127.0.0.1\n"); // nobody there
    ASSERT_EQ(::mount("/tmp/resolv.conf", "/etc/resolv.conf", nullptr, MS_BIND, nullptr), 0);
    const std::string step = "failed to connect to";
    EXPECT_EQ(get(kUrl), failure(step, ECONNREFUSED));
    EXPECT_EQ(get("/page"), failure(step, EINVAL, ":-1"));
    EXPECT_EQ(get("http:///page"), failure(step, EINVAL, ":80"));
    EXPECT_EQ(get("http://" + std::string(64, 'h')), failure(step, EINVAL, ":80"));
    EXPECT_EQ(get("http://127.0.0.1:73616/"), failure(step, EINVAL, "127.0.0.1:73616"));
    EXPECT_EQ(get("http://nobody.lab/"), failure(step, EHOSTUNREACH, "nobody.lab:80"));
    EXPECT_THAT(
        lab::without_descriptors([&] { return http_get(kUrl, body, sizeof body, nullptr); }),
        FailsWith(-1, EMFILE));
}

TEST(HttpGet, FindsTheHeadWhereverTheReceivesSplitIt) {
    const std::string chunks = "4\r\nWiki\r\n5\r\npedia\r\n0\r\n\r\n", line = "Content-Length: ";
    for (const std::string &reply :
         {kOk + "\r\nWikipedia", kOk + line + "9\r\nX: y\r\n\r\nWikipedia, the rest",
          kOk + line + "99\r\nTransfer-Encoding: chunked\r\n\r\n" + chunks}) {
        for (size_t first = 1; first <= reply.size(); ++first) {
            ASSERT_EQ(get_reply(reply, {first, kAll}).substr(0, 12), "9 Wikipedia.") << first;
        }
        // Byte by byte; without a length one receive is all.
        EXPECT_EQ(get_reply(reply, {1}).substr(0, 12),
                  reply.find(line) != std::string::npos ? "9 Wikipedia." : "1 W.#");
    }
}

TEST(HttpGet, TakesAReplyThatBreaksOffAsFarAsItCame) {
    const std::string head = kOk + "Set-Cookie: a=b\r\ncontent-length: 9\r\n\r\n";
    for (size_t length = 0; length <= head.size() + 9; ++length) {
        std::string reply = (head + "Wikipedia").substr(0, length);
        std::string text = length > head.size() ? reply.substr(head.size()) : "";
        ASSERT_EQ(get_reply(reply), length < kOk.size()
                                        ? failure("invalid answer from", EPROTO)
                                        : std::to_string(text.size()) + " " + text + ".#");
        std::string line = reply.substr(std::min(kOk.size(), length), 15);
        ASSERT_EQ(cookie, line.size() > 12 ? line.substr(12) : "");
    }
}

TEST(HttpGet, JudgesReplies) {
    const std::string chunked = kOk + "Transfer-Encoding: chunked\r\n\r\n",
                      length = "Content-Length: ";
    const std::string padded = kOk + "X: " + std::string(4095 - kOk.size() - 7, 'x');
    const std::string invalid = failure("invalid answer from", EPROTO);
    struct Case {
        std::string reply, outcome;
    };
    for (const Case &one :
         {Case{"HTTP/1.1 404\r\n\r\nno", failure("404 from", EREMOTEIO, "127.0.0.1:8080", -404)},
          Case{"HTTP/1.0 100\r\n\r\n", failure("100 from", EREMOTEIO, "127.0.0.1:8080", -100)},
          Case{"HTTP/1.1 302 Found\r\nX: y\r\n\r\n", "-302 Remote I/O error"},
          Case{"HTTP/1.2 200 OK\r\n\r\nx", invalid}, Case{std::string(5000, 'H'), invalid},
          Case{kOk + length + "0\r\n\r\nabc", "0 .b"}, // dropped, though it was in the buffer
          Case{kOk + length + "-2\r\n\r\nabc", "3 abc.#"},
          Case{kOk + length + "99999999999\r\n\r\nabc", "3 abc.#"},
          Case{kOk + "Transfer-Encoding: Chunked\r\n\r\n0\r\n\r\n", "5 0\r\n\r\n.#"},
          Case{chunked + "4\r\nWikipedia", "-1 Protocol error"},
          Case{chunked + "ffffffff\r\na\r\n", "-1 Protocol error"},
          Case{chunked, "-1 Protocol error"},
          Case{padded + "\r\n\r\nabc", "3 abc.#"}, // 4095 bytes up to the body
          Case{padded + "x\r\n\r\nabc", "0 .#"},
          Case{kOk + "X: " + std::string(60000, 'x'), "0 .#"}}) {
        EXPECT_EQ(get_reply(one.reply), one.outcome) << one.reply.substr(0, 80);
    }
    EXPECT_EQ(get_reply(kOk + "Set-Cookie:  sid=abc; Path=/\r\nset-cookie: b\r\n\r\n"), "0 .#");
    EXPECT_STREQ(cookie, "sid=abc");
    for (const std::string &line : {std::string(), length + "100\r\n"}) {
        std::string head = kOk + line + "\r\n";
        for (size_t first : {head.size(), head.size() + 5, kAll}) {
            std::string reply = head + std::string(100, 'x');
            EXPECT_EQ(get_reply(reply, {first, kAll}, 10), "9 xxxxxxxxx.#");
            EXPECT_EQ(get_reply(reply, {first, kAll}, 1), "0 .#");
        }
    }
}

TEST(HttpGet, RepeatsInterruptedReceivesAndReportsFailedOnes) {
    const std::string with = kOk + "Content-Length: 9\r\n\r\nWikipedia",
                      without = kOk + "\r\nWikipedia";
    receive_error = EINTR;
    EXPECT_EQ(get_reply(with, {10, 0, 30, 0, kAll}), "9 Wikipedia.#");
    EXPECT_EQ(get_reply(without, {10, 0, 20, 0, kAll}), "9 Wikipedia.#");
    receive_error = EAGAIN;
    EXPECT_EQ(get_reply(without, {10, 0, kAll}), "9 Wikipedia.#");
    receive_error = ECONNRESET;
    EXPECT_EQ(get_reply(without, {10, 0}), failure("failed to recv header from", ECONNRESET));
    EXPECT_EQ(get_reply(without, {20, 0}), failure("failed to recv content from", ECONNRESET));
    EXPECT_EQ(get_reply(with, {with.size() - 3, 0}), "6 Wikipe.#");
    lab::SignalStorm storm;
    WebServer slow(8080, [&](const std::string & /*request*/) {
        ::usleep(60000);
        return with;
    });
    EXPECT_EQ(get(kUrl), "9 Wikipedia.#");
    EXPECT_GT(lab::SignalStorm::count(), 5);
}

TEST(HttpGet, FollowsTenRedirects) {
    WebServer server(8080, [](const std::string &request) -> std::string {
        int left = std::atoi(request.c_str() + std::strlen("GET /"));
        std::string to = left == 50 ? "/0" : "http://127.0.0.1:8080/" + std::to_string(left - 1);
        return left == 0 ? kOk + "Set-Cookie: last\r\n\r\nthere"
                         : "HTTP/1.1 302 Found\r\nlocation:  " + to + "\r\nSet-Cookie: no\r\n\r\n";
    });
    *cookie = '\0';
    EXPECT_EQ(get("http://127.0.0.1:8080/10"), "5 there.#");
    EXPECT_STREQ(cookie, "last");
    EXPECT_EQ(get("http://127.0.0.1:8080/11"), failure("failed to connect to", ELOOP));
    EXPECT_EQ(get("http://127.0.0.1:8080/50"), failure("failed to connect to", EINVAL, ":-1"));
    for (int sent = 11 + 11 + 1; sent != 0; --sent) {
        server.take_request();
    }
    get("http://127.0.0.1:8080/0");
    EXPECT_EQ(server.take_request().substr(0, 7), "GET /0 ") << "no requests but those";
}

TEST(HttpGet, TalksToARealServer) {
    lab::put("/tmp/web/empty", "");
    lab::put("/tmp/web/page", std::string(2048, 'p'));
    lab::put("/tmp/web/large", std::string(1000000, 'l'));
    lab::Background nginx("nginx -c " ROUTERKIT_SOURCE_DIR "/tests/http/nginx.conf -e stderr");
    ASSERT_TRUE(lab::wait_until([] { return lab::sh("ss -Hltn sport = :8080") != ""; }));
    const std::string base = "http://127.0.0.1:8080", page = "2048 " + std::string(2048, 'p');
    EXPECT_EQ(get(base + "/page"), page + ".#");
    EXPECT_EQ(get(base + "/chunked").substr(0, page.size() + 1), page + ".");
    EXPECT_EQ(get(base + "/moved"), page + ".#");
    EXPECT_EQ(get(base + "/large"), "1000000 " + std::string(1000000, 'l') + ".#");
    EXPECT_EQ(get(base + "/empty"), "0 .#");
    std::strcpy(cookie, "sid=1");
    EXPECT_EQ(get(base + "/cookie"), "3 yes.#");
    EXPECT_STREQ(cookie, "sid=1-2");
    EXPECT_EQ(get(base + "/x"), failure("404 from", EREMOTEIO, "127.0.0.1:8080", -404));
    EXPECT_LE(lab::system_calls([&] { http_get(kUrl, body, sizeof body, nullptr); }).size(), 7U);
}

} // namespace
