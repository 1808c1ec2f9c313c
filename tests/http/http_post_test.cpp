#include <routerkit/http.h>
#include <routerkit/jsonrpc.h>

#include "http/web_server.h"
#include "support/lab.h"

using lab::FailsWith;
using lab::WebServer;

namespace {

char by_caller[] = "set by the caller";

struct Post : http_post_t {
    explicit Post(const char *post_body = "", char *body_before = nullptr)
        : http_post_t{"127.0.0.1", "/form", post_body, 0, room, sizeof room, 77, body_before} {}

    int run() {
        lab::Census census;
        return http_post(this);
    }

    char room[65536];
};

// An eager server spares us the connect helper's wait for a first byte.
WebServer eager(const std::string &reply) {
    return {80, [reply](const std::string & /*request*/) { return reply; }, true};
}

TEST(HttpPost, SendsTheRequestWithinTheConnectTimeout) {
    WebServer server(80, [](const std::string & /*request*/) {
        return "HTTP/1.1 200 OK\r\nA: b\r\n\r\n\r\nan answer";
    });
    Post post("a=b\r\nc&%20");
    post.path = "form?#"; // goes out as it is
    EXPECT_NEAR(lab::elapsed_ms([&] { EXPECT_EQ(post.run(), 0); }), 205, 20);
    EXPECT_EQ(server.take_request(), "POST form?# HTTP/1.1\r\nHost: 127.0.0.1\r\n"
                                     "Content-type: application/x-www-form-urlencoded\r\n"
                                     "Content-length: 10\r\n\r\na=b\r\nc&%20");
    EXPECT_EQ(post.status, 200);
    EXPECT_STREQ(post.reply, "HTTP/1.1 200 OK");
    EXPECT_STREQ(post.reply_body, "\r\nan answer");
}

TEST(HttpPost, JudgesReplies) {
    struct Case {
        const char *reply;
        int32_t room;
        int status;
        const char *body; // null for none
    };
    for (const Case &one :
         {Case{"HTTP/1.0 404 Gone\r\nA: b\r\n\r\nno", 99, 404, "no"},
          Case{"HTTP/1.0 404\r\n\r\nmuch", 19, 404, "mu"},
          Case{"HTTP/1.0 404\r\n\r\nmuch", 17, 404, ""},
          Case{"HTTP/1.0 404\r\n\r\nmuch", 16, 404, nullptr},
          Case{"HTTP/1.1 200 OK", 99, -1, nullptr}, Case{"HTTP/1.1 200 OK", 1, -1, nullptr},
          Case{"HTTP/1.2 200 OK\r\n\r\nx", 99, -1, nullptr}, Case{"", 2, -1, nullptr}}) {
        for (char *before : {static_cast<char *>(nullptr), by_caller}) {
            WebServer server = eager(one.reply);
            Post post("", before);
            post.reply_size = one.room;
            post.room[one.room] = '#';
            const char *wanted = one.status < 0 ? before : one.body;
            EXPECT_EQ(post.run(), wanted != nullptr ? 0 : -1) << one.reply;
            EXPECT_EQ(post.status, one.status);
            EXPECT_STREQ(post.reply_body, wanted);
            EXPECT_EQ(post.room[one.room], '#');
        }
    }
}

TEST(HttpPost, SendsAllOrNothing) {
    WebServer server = eager("HTTP/1.1 200 OK\r\n\r\n");
    const std::string longest(65534 - 112, 'x'); // less the head with a length of five digits
    EXPECT_THAT(Post((longest + "x").c_str()).run(), FailsWith(-1, ENOBUFS));
    for (const char *bad : {"/a\rb", "a\n", " HTTP/1.1\r\nX: y"}) {
        Post path, host;
        path.path = host.host = bad;
        EXPECT_THAT(path.run(), FailsWith(-1, EINVAL));
        EXPECT_THAT(host.run(), FailsWith(-1, EINVAL));
        EXPECT_EQ(host.status, -1);
    }
    for (int32_t size : {0, -5}) {
        Post post;
        post.reply_size = size;
        EXPECT_THAT(post.run(), FailsWith(-1, EINVAL));
    }
    EXPECT_EQ(Post(longest.c_str()).run(), 0);
    EXPECT_EQ(server.take_request().size(), 65534U) << "the first that was sent at all";
}

TEST(HttpPost, GivesASilentServerTwoSecondsWhateverSignalsArrive) {
    Post post;
    EXPECT_THAT(post.run(), FailsWith(-1, ECONNREFUSED));
    EXPECT_EQ(post.status, -1);
    WebServer server(80, [](const std::string & /*request*/) { return std::nullopt; });
    lab::SignalStorm storm;
    EXPECT_NEAR(lab::elapsed_ms([&] { EXPECT_THAT(post.run(), FailsWith(-1, EAGAIN)); }), 2210, 60);
    EXPECT_GT(lab::SignalStorm::count(), 300);
    int length = 99;
    EXPECT_EQ(http_post_rpc("127.0.0.1", "m", "", post.room, 20, &length), 0);
    EXPECT_THAT(length, FailsWith(-1, EAGAIN));
}

} // namespace
