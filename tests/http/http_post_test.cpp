#include <routerkit/http.h>

#include "http/web_server.h"
#include "support/lab.h"

using lab::Census;
using lab::FailsWith;
using lab::WebServer;

namespace {

char body_by_caller[] = "set by the caller";

// A record with room for a reply of 65535 bytes, all of it cleared but the reply's body.
struct Post : http_post_t {
    explicit Post(const char *post_body = "", char *reply_body_before = nullptr) : http_post_t{} {
        host = "127.0.0.1";
        path = "/form";
        body = post_body;
        reply = room;
        reply_size = sizeof room;
        status = 77;
        reply_body = reply_body_before;
    }

    int run() {
        Census census;
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
    EXPECT_NEAR(lab::elapsed_ms([&] { EXPECT_EQ(post.run(), 0); }), 205, 20);
    EXPECT_EQ(server.take_request(), "POST /form HTTP/1.1\r\nHost: 127.0.0.1\r\n"
                                     "Content-type: application/x-www-form-urlencoded\r\n"
                                     "Content-length: 10\r\n\r\na=b\r\nc&%20");
    EXPECT_EQ(post.status, 200);
    EXPECT_STREQ(post.reply, "HTTP/1.1 200 OK");
    EXPECT_STREQ(post.reply_body, "\r\nan answer");
}

TEST(HttpPost, JudgesReplies) {
    struct Case {
        const char *reply;
        int result, status;
        const char *body; // null for none
    };
    for (const Case &one :
         {Case{"HTTP/1.0 404 Gone\r\nA: b\r\n\r\nno", 0, 404, "no"},
          Case{"HTTP/1.1 204\r\n\r\n", 0, 204, ""},
          Case{"HTTP/1.1 200 OK\r\nA: b\r\n", -1, 200, nullptr},
          Case{"HTTP/1.1 200 OK", -1, -1, nullptr},
          Case{"HTTP/1.2 200 OK\r\n\r\nx", -1, -1, nullptr}, Case{"", -1, -1, nullptr}}) {
        for (char *before : {static_cast<char *>(nullptr), body_by_caller}) {
            WebServer server = eager(one.reply);
            Post post("", before);
            const char *wanted = one.status < 0 ? before : one.body;
            EXPECT_EQ(post.run(), wanted != nullptr ? 0 : -1) << one.reply;
            EXPECT_EQ(post.status, one.status);
            ASSERT_EQ(post.reply_body != nullptr, wanted != nullptr);
            EXPECT_STREQ(post.reply_body, wanted);
        }
    }
}

TEST(HttpPost, KeepsToTheReplysRoom) {
    WebServer server = eager("HTTP/1.1 200 OK\r\n\r\n" + std::string(100, 'x'));
    for (int32_t size : {2, 19, 20, 30}) {
        Post post;
        post.room[size] = '#';
        post.reply_size = size;
        EXPECT_EQ(post.run(), size < 20 ? -1 : 0);
        EXPECT_EQ(post.status, size < 19 ? -1 : 200);
        EXPECT_EQ(post.room[size], '#');
        EXPECT_EQ(post.room[size - 1], '\0');
    }
    for (int32_t size : {1, 0, -5}) {
        Post post;
        post.reply_size = size;
        EXPECT_THAT(post.run(), FailsWith(-1, EINVAL));
        EXPECT_EQ(post.status, -1);
    }
}

TEST(HttpPost, SendsAllOrNothing) {
    WebServer server = eager("HTTP/1.1 200 OK\r\n\r\n");
    const size_t head = 112; // with a length of five digits
    const std::string longest(65534 - head, 'x');
    const std::string longer = longest + "x";
    EXPECT_THAT(Post(longer.c_str()).run(), FailsWith(-1, ENOBUFS));
    for (const char *bad : {"/a\rb", "a\n", " HTTP/1.1\r\nX: y"}) {
        Post post;
        post.path = bad;
        EXPECT_THAT(post.run(), FailsWith(-1, EINVAL));
        EXPECT_EQ(post.status, -1);
        post.path = "/";
        post.host = bad;
        EXPECT_THAT(post.run(), FailsWith(-1, EINVAL));
    }
    EXPECT_EQ(Post(longest.c_str()).run(), 0);
    EXPECT_EQ(server.take_request().size(), 65534U) << "the first that was sent at all";
}

TEST(HttpPost, FailsWithoutAServer) {
    Post post;
    EXPECT_THAT(post.run(), FailsWith(-1, ECONNREFUSED));
    EXPECT_EQ(post.status, -1);
    EXPECT_THAT(lab::without_descriptors([&] { return http_post(&post); }), FailsWith(-1, EMFILE));
}

TEST(HttpPost, GivesASilentServerTwoSecondsWhateverSignalsArrive) {
    WebServer server(80, [](const std::string & /*request*/) { return std::nullopt; });
    Post post;
    lab::SignalStorm storm;
    EXPECT_NEAR(lab::elapsed_ms([&] { EXPECT_THAT(post.run(), FailsWith(-1, EAGAIN)); }), 2210, 60);
    EXPECT_EQ(post.status, -1);
    EXPECT_GT(lab::SignalStorm::count(), 300);
}

} // namespace
