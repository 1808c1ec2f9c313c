#include "http/http_reply.h"

#include <routerkit/http.h>
#include <routerkit/jsonrpc.h>

#include "support/lab.h"

using lab::FailsWith;
using lab::Fenced;

namespace {

TEST(ResponseCode, TakesVersions10And11AndThreeDigits) {
    for (const char *line : {"HTTP/1.1 200 OK", "HTTP/1.0   200", "HTTP/1.1200x", "HTTP/1.1 +200",
                             "HTTP/1.1 \t0200"}) {
        EXPECT_EQ(http_response_code(line), 200) << line;
    }
    for (const char *line :
         {"HTTP/1.2 200", "HTTP/2 200", "http/1.1 200", "HTTP/1.", "HTTP/1.1", "HTTP/1.1 OK",
          "HTTP/1.1 99", "HTTP/1.1 1000", "HTTP/1.1 -200", "HTTP/1.1 4294967496", ""}) {
        EXPECT_EQ(http_response_code(line), -1) << line;
    }
}

TEST(ContentLength, CountsFromZeroUp) {
    auto parsed = [](const std::string &value) {
        Fenced line("Content-Length:" + value);
        return rk::content_length(rk::find_header(line.view(), "Content-Length"));
    };
    EXPECT_EQ(parsed("0"), 0);
    EXPECT_EQ(parsed(" \t+12, 13"), 12);
    EXPECT_EQ(parsed("2147483646"), INT32_MAX - 1);
    for (const char *most : {"2147483647", "2147483648", "2147483650", "4294967297"}) {
        EXPECT_EQ(parsed(most), INT32_MAX) << most;
    }
    for (const char *none : {"", "x1", "-", "- 1", "-1", "-99999999999999999999999"}) {
        EXPECT_LT(parsed(none), 0) << none;
    }
    EXPECT_LT(rk::content_length({}), 0);
}

TEST(Unchunk, DecodesOrRefuses) {
    const std::string z(26, 'z');
    for (const auto &[sent, wanted] : std::initializer_list<std::pair<std::string, std::string>>{
             {"4\r\nWiki\r\n5\r\npedia\r\n0\r\n\r\n", "Wikipedia"},
             {"1a;name=value\r\n" + z + "\r\n0\r\n\r\n", z},
             {"0001\r\na\r\n0\r\nTrailer: x", "a"},
             {"1\r\na\r\n", "a"}, // broken off between two chunks
             {"4\r\n\r\n\r\n\r\n0\r\n\n", "\r\n\r\n"},
             {"0\r\n\r", ""},
             {"1\r\na\r\nno digit\r\nb", "a"}, // a size of 0
             {"-1\r\na\r\n0\r\n\r\n", ""}}) {
        Fenced body(sent);
        EXPECT_EQ(rk::unchunk(body.data(), body.size()), static_cast<int>(wanted.size())) << sent;
        EXPECT_EQ(std::string(body.data(), wanted.size()), wanted);
    }
    for (const char *bad :
         {"", "0\r\n", "1\r\na\r\n0\r\n", "4", "4\r\n", "4\r\nWik", "4\r\nWiki", "4\r\nWiki\r",
          "4\r\nWikipedia\r\n0\r\n\r\n", "5\r\nWiki\r\n0\r\n\r\n", "7fffffff\r\na\r\n",
          "ffffffff\r\na\r\n", "fffffffe\r\na\r\n", "100000001\r\na\r\n0\r\n\r\n",
          "10000000000000000001\r\na\r\n0\r\n\r\n", "x\r\n"}) {
        Fenced body(bad);
        EXPECT_THAT(rk::unchunk(body.data(), body.size()), FailsWith(-1, EPROTO)) << bad;
    }
}

std::string header(const std::string &lines, const char *name) {
    Fenced text(lines);
    std::string_view value = rk::find_header(text.view(), name);
    return value.data() != nullptr ? std::string(value) : "(none)";
}

TEST(FindHeader, TakesTheFirstOfTheName) {
    const std::string lines = "A: 1\r\ncontent-LENGTH:   7 \t\r\nA:2\r\n:x\r\nE:\r\nbad\r\nZ: 9";
    EXPECT_EQ(header(lines, "a"), "1");
    EXPECT_EQ(header(lines, "Content-Length"), "7 \t");
    EXPECT_EQ(header(lines, "E"), "");
    EXPECT_EQ(header(lines, "Z"), "(none)") << "behind a line without a colon";
    EXPECT_EQ(header("Z : 9", "Z"), "(none)");
    std::string many;
    for (int i = 0; i < 30; ++i) {
        many += "X: \r\n";
    }
    EXPECT_EQ(header(many + "Z: 9", "z"), "9") << "the 31st, broken off";
    EXPECT_EQ(header(many + "X: \r\nZ: 9", "z"), "(none)");
}

TEST(RawReply, IsSplitInPlace) {
    struct Case {
        std::string reply;
        int status;
        const char *trimmed, *raw; // the bodies of both functions; null for none
    };
    for (const Case &one :
         {Case{"HTTP/1.1 200 OK\r\nA: b\r\n\r\n\r\n{}\r\n", 200, "{}", "\r\n{}\r\n"},
          Case{"HTTP/1.0 500\r\n\r\nno\r\nlines\n\n", 500, "no\r\nlines", "no\r\nlines\n\n"},
          Case{"HTTP/1.1 204\r\n\r\n", 204, "", ""},
          Case{"HTTP/1.1 200 OK\r\nA: b\r\n", 200, nullptr, nullptr},
          Case{"HTTP/1.1 200 OK\r", -1, nullptr, nullptr},
          Case{"HTTP/3.1 200 OK\r\n\r\nx", -1, nullptr, nullptr}, Case{"", -1, nullptr, nullptr}}) {
        Fenced trimmed(one.reply + "#"), raw(one.reply + "#"); // the NUL takes the last place
        char untouched[] = "untouched";
        char *body = untouched;
        EXPECT_EQ(http_post_response(trimmed.data(), one.reply.size(), &body), one.status);
        EXPECT_STREQ(body, one.status < 0 ? untouched : one.trimmed) << one.reply;

        std::string copy(32, '#');
        size_t length = 0;
        EXPECT_EQ(get_json_rpc(raw.data(), one.reply.size(), copy.data(), &length),
                  one.raw != nullptr ? one.status : -1);
        EXPECT_EQ(one.reply.empty() ? std::string() : std::string(raw.data()),
                  one.reply.substr(0, one.reply.find("\r\n")));
        EXPECT_EQ(copy.substr(0, length), one.raw != nullptr ? one.raw : "");
    }
}

} // namespace
