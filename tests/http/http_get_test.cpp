#include <routerkit/http.h>

#include <cstring>

#include <dlfcn.h>
#include <sys/mount.h>
#include <sys/syscall.h>

#include "http/web_server.h"
#include "support/lab.h"
#include "support/syscalls.h"

using lab::Census;
using lab::FailsWith;
using lab::take_log;
using lab::WebServer;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::SizeIs;
using testing::StrEq;

namespace {

// What the network does to the next receives: how many bytes each brings at most, the last one of
// the list all further ones. 0 stands for a failure with `receive_error`.
std::vector<size_t> portions;
int receive_error = 0;

} // namespace

extern "C" ssize_t recv(int fd, void *buffer, size_t room, int flags) {
    if (!portions.empty()) {
        EXPECT_NE(room, 0U) << "nothing to be received";
        size_t portion = portions.front();
        if (portions.size() > 1) {
            portions.erase(portions.begin());
        }
        if (portion == 0) {
            return rk::fail(receive_error);
        }
        room = std::min(room, portion);
    }
    return ::syscall(SYS_recvfrom, fd, buffer, room, flags, nullptr, nullptr);
}

namespace {

constexpr uint16_t kPort = 8080;
constexpr const char *kUrl = "http://127.0.0.1:8080/page";
constexpr size_t kAll = SIZE_MAX;

char body[8192];
char cookie[4096];

// http_get with the receives in portions; its result, and the log's single line or "".
struct Get {
    Get(const char *url, std::vector<size_t> receives, size_t size = sizeof body) {
        std::memset(body, '#', sizeof body);
        std::strcpy(cookie, "");
        Census census;
        portions = std::move(receives);
        result = http_get(url, body, size, cookie);
        error = errno;
        portions.clear();
        std::vector<std::string> lines = take_log();
        EXPECT_LE(lines.size(), 1U);
        log = lines.empty() ? "" : lines[0];
    }

    int result;
    int error;
    std::string log;
};

std::string failed(const std::string &step, int error) {
    return "err: http_get: " + step + " the 127.0.0.1:8080 (" + std::strerror(error) + ")";
}

std::optional<std::string> reply; // what the script below says, set before the server starts
std::optional<std::string> say_reply(const std::string & /*request*/) {
    return reply;
}

TEST(HttpGet, SendsTheUrlAndCookie) {
    WebServer server(kPort, [](const std::string & /*request*/) { return "HTTP/1.1 200\r\n\r\n"; });
    struct Case {
        const char *url, *target, *cookie;
    };
    for (const Case &one :
         {Case{"http://127.0.0.1:8080/a?b=c#d", "/a?b=c", ""},
          Case{"http://me:pw@127.0.0.1:8080", "/", "sid=abc"},
          Case{"x://127.0.0.1:8080?q", "/?q", "a\tb"}, Case{"http://127.0.0.1:8080#top", "/", ""},
          Case{"http://127.0.0.1:8080/%20 x", "/%20 x", nullptr}}) {
        char text[4096] = "";
        bool given = one.cookie != nullptr && *one.cookie != '\0';
        std::strcpy(text, given ? one.cookie : "");
        Census census;
        EXPECT_EQ(http_get(one.url, body, sizeof body, one.cookie != nullptr ? text : nullptr), 0);
        EXPECT_EQ(server.take_request(),
                  std::string("GET ") + one.target +
                      " HTTP/1.1\r\nHost: 127.0.0.1\r\nAccept: */*\r\nAccept-Encoding: identity\r\n"
                      "Connection: close\r\n" +
                      (given ? std::string("Cookie: ") + one.cookie + "\r\n" : "") + "\r\n");
        EXPECT_STREQ(text, given ? one.cookie : "");
    }
    EXPECT_THAT(take_log(), IsEmpty());
}

TEST(HttpGet, RefusesWhatDoesNotFitARequest) {
    WebServer server(kPort, [](const std::string & /*request*/) { return "HTTP/1.1 200\r\n\r\n"; });
    const std::string base = "http://127.0.0.1:8080/";
    constexpr size_t kOthers = 93; // characters of a request beside the path's
    for (const char *path : {"a\rb", "a\nb", "\r\nHost: other", "a#\n"}) {
        Get get((base + path).c_str(), {});
        EXPECT_EQ(get.result, -1);
        EXPECT_EQ(get.log, failed("failed to send request to", EINVAL));
    }
    char bad[4096] = "a=b\r\nX: y";
    EXPECT_THAT(http_get(kUrl, body, sizeof body, bad), FailsWith(-1, EINVAL));
    EXPECT_THAT(http_get("http://127.0.0.1\n:8080/", body, sizeof body, nullptr),
                FailsWith(-1, EINVAL));
    EXPECT_THAT(take_log(), SizeIs(2));

    const std::string long_url = base + std::string(4999 - kOthers - 1, 'x');
    EXPECT_EQ(Get(long_url.c_str(), {}).result, 0);
    EXPECT_EQ(server.take_request().size(), 4999U) << "the first that was sent at all";
    Get longer((long_url + "x").c_str(), {});
    EXPECT_EQ(longer.error, ENOBUFS);
    EXPECT_EQ(longer.log, failed("failed to send request to", ENOBUFS));
    EXPECT_THAT(http_get(kUrl, body, 0, nullptr), FailsWith(-1, EINVAL));
}

TEST(HttpGet, ReportsAFailedConnection) {
    lab::put("/tmp/resolv.conf", "nameserver 127.0.0.1\n"); // nobody there
    ASSERT_EQ(::mount("/tmp/resolv.conf", "/etc/resolv.conf", nullptr, MS_BIND, nullptr), 0);
    struct Case {
        const char *url, *server;
        int error;
    };
    const std::string host(64, 'h');
    const std::string too_long = "http://" + host + "/";
    for (const Case &one :
         {Case{kUrl, "127.0.0.1:8080", ECONNREFUSED}, Case{"/page", ":-1", EINVAL},
          Case{"http:///page", ":80", EINVAL}, Case{too_long.c_str(), ":80", EINVAL},
          Case{"gopher://127.0.0.1/", "127.0.0.1:0", EINVAL},
          Case{"http://127.0.0.1:73616/", "127.0.0.1:73616", EINVAL},
          Case{"http://nobody.lab/", "nobody.lab:80", EHOSTUNREACH},
          Case{"http://1.2.3.4.5/", "1.2.3.4.5:80", EHOSTUNREACH}}) {
        Get get(one.url, {});
        EXPECT_EQ(get.result, -1);
        EXPECT_EQ(get.error, one.error) << one.url;
        EXPECT_EQ(get.log, std::string("err: http_get: failed to connect to the ") + one.server +
                               " (" + std::strerror(one.error) + ")");
    }
    EXPECT_THAT(
        lab::without_descriptors([&] { return http_get(kUrl, body, sizeof body, nullptr); }),
        FailsWith(-1, EMFILE));
    EXPECT_THAT(take_log(), ElementsAre(failed("failed to connect to", EMFILE)));
}

TEST(HttpGet, FindsTheHeadWhereverTheReceivesSplitIt) {
    struct Case {
        const char *head, *sent, *wanted;
        bool any_portion;
    };
    for (const Case &one :
         {Case{
              "HTTP/1.1 200 OK\r\nSet-Cookie: sid=abc; Path=/\r\ncontent-length: 9\r\nX: y\r\n\r\n",
              "Wikipedia, the rest", "Wikipedia", true},
          Case{"HTTP/1.1 200 OK\r\n\r\n", "Wikipedia", "Wikipedia", false},
          Case{"HTTP/1.0 299\r\nTransfer-Encoding: chunked\r\nContent-Length: 99\r\n\r\n",
               "4\r\nWiki\r\n5\r\npedia\r\n0\r\n\r\n", "Wikipedia", true}}) {
        reply = std::string(one.head) + one.sent;
        WebServer server(kPort, say_reply);
        for (size_t first = 1; first <= reply->size() + 1; ++first) {
            // At last, everything comes byte by byte.
            bool bytes = first == reply->size() + 1;
            if (bytes && !one.any_portion) {
                continue;
            }
            Get get(kUrl, bytes ? std::vector<size_t>{1} : std::vector<size_t>{first, kAll});
            ASSERT_EQ(get.result, 9) << first;
            ASSERT_STREQ(body, one.wanted);
            ASSERT_STREQ(cookie, std::strstr(one.head, "Set-") != nullptr ? "sid=abc" : "");
            ASSERT_EQ(get.log, "");
        }
    }
}

TEST(HttpGet, TakesAReplyThatBreaksOffAsFarAsItCame) {
    const std::string head = "HTTP/1.1 200 OK\r\nSet-Cookie: a=b\r\nContent-Length: 9\r\n\r\n";
    const size_t line = head.find("\r\n") + 2;
    for (size_t length = 0; length <= head.size() + 9; ++length) {
        reply = (head + "Wikipedia").substr(0, length);
        WebServer server(kPort, say_reply);
        Get get(kUrl, {kAll});
        std::string wanted = length > head.size() ? reply->substr(head.size()) : "";
        ASSERT_EQ(get.result, length < line ? -1 : static_cast<int>(wanted.size())) << length;
        ASSERT_EQ(get.log, length < line ? failed("invalid answer from", EPROTO) : "");
        ASSERT_EQ(std::string(body, wanted.size() + 2), length < line ? "##" : wanted + '\0' + "#");
        std::string cookie_line = reply->substr(std::min(line, length), 15);
        ASSERT_EQ(cookie, cookie_line.size() > 12 ? cookie_line.substr(12) : "");
    }
}

TEST(HttpGet, JudgesReplies) {
    const std::string ok = "HTTP/1.1 200 OK\r\n";
    const std::string chunked = ok + "Transfer-Encoding: chunked\r\n\r\n";
    auto padded = [&](size_t size) { // a head of that many bytes up to the blank line's end
        return ok + "X: " + std::string(size - ok.size() - 7, 'x') + "\r\n\r\n";
    };
    struct Case {
        std::string reply;
        int result;
        std::string body, log;
    };
    for (const Case &one :
         {Case{"HTTP/1.1 404 Gone\r\n\r\nno", -404, "", failed("404 from", EREMOTEIO)},
          Case{"HTTP/1.0 100\r\n\r\n", -100, "", failed("100 from", EREMOTEIO)},
          Case{"HTTP/1.1 302 Found\r\nX: y\r\n\r\n", -302, "", ""},
          Case{"HTTP/1.2 200 OK\r\n\r\nx", -1, "", failed("invalid answer from", EPROTO)},
          Case{"", -1, "", failed("invalid answer from", EPROTO)},
          Case{std::string(5000, 'H'), -1, "", failed("invalid answer from", EPROTO)},
          Case{ok + "Content-Length: 0\r\n\r\nabc", 0, "", ""},
          Case{ok + "Content-Length: -2\r\n\r\nabc", 3, "abc", ""},
          Case{ok + "Content-Length: many\r\n\r\nabc", 3, "abc", ""},
          Case{ok + "Content-Length: 99999999999\r\n\r\nabc", 3, "abc", ""},
          Case{ok + "Content-Length: 2147483647\r\n\r\nabc", 3, "abc", ""},
          Case{ok + "Transfer-Encoding: Chunked\r\n\r\n0\r\n\r\n", 5, "0\r\n\r\n", ""},
          Case{chunked + "4\r\nWikipedia", -1, "", ""},
          Case{chunked + "ffffffff\r\na\r\n", -1, "", ""}, Case{chunked, -1, "", ""},
          Case{padded(4095) + "abc", 3, "abc", ""}, Case{padded(4096) + "abc", 0, "", ""},
          Case{ok + "X: " + std::string(60000, 'x'), 0, "", ""}}) {
        reply = one.reply;
        WebServer server(kPort, say_reply);
        Get get(kUrl, {kAll});
        EXPECT_EQ(get.result, one.result) << one.reply.substr(0, 80);
        EXPECT_EQ(get.log, one.log);
        if (one.result >= 0) {
            EXPECT_STREQ(body, one.body.c_str());
        } else {
            EXPECT_EQ(get.error, one.result == -1 ? EPROTO : EREMOTEIO);
        }
    }
}

TEST(HttpGet, CutsTheBodyAtTheBuffer) {
    for (const char *length : {"", "Content-Length: 100\r\n"}) {
        std::string head = "HTTP/1.1 200 OK\r\n" + std::string(length) + "\r\n";
        reply = head + std::string(100, 'x');
        WebServer server(kPort, say_reply);
        for (size_t size : {1U, 2U, 10U}) {
            for (size_t first : {head.size(), head.size() + 5, kAll}) {
                EXPECT_EQ(Get(kUrl, {first, kAll}, size).result, static_cast<int>(size) - 1);
                EXPECT_EQ(std::string(body, size + 1), std::string(size - 1, 'x') + '\0' + "#");
            }
        }
    }
}

TEST(HttpGet, RepeatsInterruptedReceivesAndReportsFailedOnes) {
    struct Case {
        const char *length;
        std::vector<size_t> receives;
        int error, result;
        const char *step;
    };
    for (const Case &one :
         {Case{"Content-Length: 9\r\n", {10, 0, 20, 0, kAll}, EINTR, 9, ""},
          Case{"", {10, 0, 25, 0, kAll}, EINTR, 9, ""}, Case{"", {10, 0, kAll}, EAGAIN, 9, ""},
          Case{"", {10, 0}, ECONNRESET, -1, "failed to recv header from"},
          Case{"", {25, 0}, ECONNRESET, -1, "failed to recv content from"},
          Case{"Content-Length: 9\r\n", {44, 0}, ECONNRESET, 6, ""}}) {
        reply = "HTTP/1.1 200 OK\r\n" + std::string(one.length) + "\r\nWikipedia";
        WebServer server(kPort, say_reply);
        receive_error = one.error;
        Get get(kUrl, one.receives);
        EXPECT_EQ(get.result, one.result) << one.step;
        EXPECT_EQ(get.log, *one.step != '\0' ? failed(one.step, one.error) : "");
    }
    lab::SignalStorm storm;
    WebServer slow(kPort, [](const std::string & /*request*/) {
        ::usleep(60000);
        return "HTTP/1.1 200 OK\r\nContent-Length: 2\r\n\r\nok";
    });
    EXPECT_EQ(http_get(kUrl, body, sizeof body, nullptr), 2);
    EXPECT_GT(lab::SignalStorm::count(), 5);
}

TEST(HttpGet, FollowsTenRedirects) {
    WebServer server(kPort, [](const std::string &request) -> std::string {
        int left = std::atoi(request.c_str() + std::strlen("GET /"));
        if (left == 0) {
            return "HTTP/1.1 200 OK\r\nSet-Cookie: last=1\r\n\r\nthere";
        }
        std::string to = left == 50 ? "/0" : "http://127.0.0.1:8080/" + std::to_string(left - 1);
        return "HTTP/1.1 302 Found\r\nlocation:  " + to + "\r\nSet-Cookie: no=1\r\n\r\nmoved";
    });
    Get ten("http://127.0.0.1:8080/10", {kAll});
    EXPECT_EQ(ten.result, 5);
    EXPECT_STREQ(body, "there");
    EXPECT_STREQ(cookie, "last=1");
    Get eleven("http://127.0.0.1:8080/11", {kAll});
    EXPECT_EQ(eleven.result, -1);
    EXPECT_EQ(eleven.error, ELOOP);
    EXPECT_EQ(eleven.log, failed("failed to connect to", ELOOP));
    Get relative("http://127.0.0.1:8080/50", {kAll});
    EXPECT_EQ(relative.log, "err: http_get: failed to connect to the :-1 (Invalid argument)");

    const int sent = 11 + 11 + 1; // no request more than that
    for (int i = 0; i < sent; ++i) {
        server.take_request();
    }
    Get(kUrl, {kAll});
    EXPECT_THAT(server.take_request(), testing::StartsWith("GET /page "));
}

// --- A real web server ---

class Nginx {
  public:
    Nginx() {
        lab::put("/tmp/web/empty", "");
        lab::put("/tmp/web/page", std::string(2048, 'p'));
        lab::put("/tmp/web/large", std::string(1000000, 'l'));
        lab::put("/tmp/nginx.conf",
                 "user root; daemon off; master_process off; pid /tmp/nginx.pid; events {}\n"
                 "error_log stderr crit;\n"
                 "http { access_log off; client_body_temp_path /tmp/t1; proxy_temp_path /tmp/t2;\n"
                 "fastcgi_temp_path /tmp/t3; uwsgi_temp_path /tmp/t4; scgi_temp_path /tmp/t5;\n"
                 "server { listen 127.0.0.1:8080; root /tmp/web;\n"
                 "location = /chunked { ssi on; ssi_types *; alias /tmp/web/page; }\n"
                 "location = /moved { return 301 http://127.0.0.1:8080/page; }\n"
                 "location = /cookie { add_header Set-Cookie 'sid=$cookie_sid-2; Path=/';\n"
                 "return 200 'yes'; } } }\n");
        server_.emplace("nginx -c /tmp/nginx.conf -e stderr");
        EXPECT_TRUE(
            lab::wait_until([] { return lab::sh("ss -Hltn sport = :8080 | wc -l") != "0\n"; }));
    }

  private:
    std::optional<lab::Background> server_;
};

TEST(HttpGet, TalksToAWebServer) {
    Nginx nginx;
    static char large[1100000];
    std::string base = "http://127.0.0.1:8080";
    auto get = [&](const char *path, char *jar = nullptr) {
        Census census;
        return http_get((base + path).c_str(), large, sizeof large, jar);
    };
    for (const char *path : {"/page", "/chunked", "/moved"}) {
        EXPECT_EQ(get(path), 2048) << path;
        EXPECT_EQ(std::string(large), std::string(2048, 'p'));
    }
    EXPECT_EQ(get("/large"), 1000000);
    EXPECT_EQ(std::string(large), std::string(1000000, 'l'));
    EXPECT_EQ(get("/empty"), 0);
    EXPECT_STREQ(large, "");
    char jar[4096] = "sid=1";
    EXPECT_EQ(get("/cookie", jar), 3);
    EXPECT_STREQ(jar, "sid=1-2");
    EXPECT_THAT(take_log(), IsEmpty());
    EXPECT_EQ(get("/none"), -404);
    EXPECT_THAT(take_log(), ElementsAre(failed("404 from", EREMOTEIO)));
    EXPECT_THAT(lab::system_calls([&] { http_get(kUrl, body, sizeof body, nullptr); }),
                SizeIs(testing::Le(7)));
}

} // namespace
