#include "http/http_reply.h"

#include <random>

#include <routerkit/http.h>
#include <routerkit/jsonrpc.h>

#include "support/lab.h"

using lab::FailsWith;
using lab::Fenced;

namespace {

TEST(ResponseCode, TakesVersions10And11AndThreeDigits) {
    struct Case {
        const char *line;
        int code;
    };
    for (const Case &one :
         {Case{"HTTP/1.1 200 OK", 200}, Case{"HTTP/1.0   404", 404}, Case{"HTTP/1.1999x", 999},
          Case{"HTTP/1.1 +100", 100}, Case{"HTTP/1.1 \t0000503", 503}, Case{"HTTP/1.2 200", -1},
          Case{"HTTP/2 200", -1}, Case{"http/1.1 200", -1}, Case{"HTTP/1.", -1},
          Case{"HTTP/1.1", -1}, Case{"HTTP/1.1 OK", -1}, Case{"HTTP/1.1 99", -1},
          Case{"HTTP/1.1 1000", -1}, Case{"HTTP/1.1 -200", -1}, Case{"HTTP/1.1 4294967496", -1},
          Case{"", -1}}) {
        EXPECT_EQ(http_response_code(one.line), one.code) << one.line;
    }
}

TEST(Unchunk, DecodesOrRefuses) {
    struct Case {
        std::string_view sent;
        std::optional<std::string> body;
    };
    const std::string long_chunk = "1a;name=value\r\n" + std::string(26, 'z') + "\r\n0\r\n\r\n";
    for (const Case &one : {Case{"4\r\nWiki\r\n5\r\npedia\r\n0\r\n\r\n", "Wikipedia"},
                            Case{long_chunk, std::string(26, 'z')},
                            Case{"0\r\n\r\n", ""},
                            Case{"0001\r\na\r\n0\r\nTrailer: x", "a"}, // not looked at
                            Case{"0\r\n\r", ""},
                            Case{"1\r\na\r\n", "a"}, // broken off between two chunks
                            Case{"A\r\n\r\n\r\n\r\n\r\n\r\n\r\n0\r\n\n", "\r\n\r\n\r\n\r\n\r\n"},
                            Case{"", {}},
                            Case{"0\r\n", {}},
                            Case{"1\r\na\r\n0\r\n", {}},
                            Case{"4", {}},
                            Case{"4\r\n", {}},
                            Case{"4\r\nWik", {}},
                            Case{"4\r\nWiki", {}},
                            Case{"4\r\nWiki\r", {}},
                            Case{"4\r\nWikipedia\r\n0\r\n\r\n", {}}, // no line end behind the chunk
                            Case{"5\r\nWiki\r\n0\r\n\r\n", {}},
                            Case{"7fffffff\r\na\r\n0\r\n\r\n", {}},
                            Case{"ffffffff\r\na\r\n", {}},
                            Case{"fffffffe\r\na\r\n", {}},
                            Case{"100000001\r\na\r\n0\r\n\r\n", {}},
                            Case{"10000000000000000001\r\na\r\n0\r\n\r\n", {}},
                            Case{"-1\r\na\r\n0\r\n\r\n", {}},
                            Case{"x\r\n\r\n", {}}}) {
        Fenced body(one.sent);
        int length = rk::unchunk(body.data(), body.size());
        if (one.body) {
            ASSERT_EQ(length, static_cast<int>(one.body->size())) << one.sent;
            EXPECT_EQ(std::string(body.data(), one.body->size()), *one.body);
        } else {
            EXPECT_THAT(length, FailsWith(-1, EPROTO)) << one.sent;
        }
    }
}

std::string header(const std::string &lines, const char *name) {
    Fenced text(lines);
    return std::string(rk::find_header({text.data(), text.size()}, name).value_or("(none)"));
}

TEST(FindHeader, TakesTheFirstOfTheName) {
    const std::string lines = "A: 1\r\ncontent-LENGTH:   7 \t\r\nA:2\r\n:x\r\nE:\r\nbad\r\nZ: 9";
    EXPECT_EQ(header(lines, "a"), "1");
    EXPECT_EQ(header(lines, "Content-Length"), "7 \t");
    EXPECT_EQ(header(lines, "E"), "");
    EXPECT_EQ(header(lines, "Z"), "(none)") << "behind a line without a colon";
    EXPECT_EQ(header("Z: 9", "z"), "9") << "broken off";
    EXPECT_EQ(header("Content-Length : 7", "Content-Length"), "(none)");
    for (int before : {30, 31}) {
        std::string many;
        for (int i = 0; i < before; ++i) {
            many += "X: \r\n";
        }
        EXPECT_EQ(header(many + "Z: 9", "Z"), before == 30 ? "9" : "(none)");
    }
}

TEST(ContentLength, CountsFromZeroUp) {
    struct Case {
        const char *value;
        int length; // -1 for none
    };
    for (const Case &one :
         {Case{"0", 0}, Case{"12", 12}, Case{" \t+12, 13", 12}, Case{"-1", -1}, Case{"-0", 0},
          Case{"", -1}, Case{"x1", -1}, Case{"- 1", -1}, Case{"4294967297", INT32_MAX},
          Case{"99999999999999999999999", INT32_MAX}, Case{"-99999999999999999999999", -1}}) {
        Fenced line(std::string("Content-Length:") + one.value);
        auto length = rk::content_length({line.data(), line.size()});
        EXPECT_EQ(length ? static_cast<int>(*length) : -1, one.length) << one.value;
    }
}

TEST(RawReply, IsSplitInPlace) {
    struct Case {
        std::string reply;
        int status;
        const char *trimmed; // the body of http_post_response; null for none
        const char *raw;     // that of get_json_rpc; null for a failure
    };
    for (const Case &one :
         {Case{"HTTP/1.1 200 OK\r\nA: b\r\n\r\n\r\n{\"a\":1}\r\n", 200, "{\"a\":1}",
               "\r\n{\"a\":1}\r\n"},
          Case{"HTTP/1.0 500\r\n\r\nno\r\nlines\n\n", 500, "no\r\nlines", "no\r\nlines\n\n"},
          Case{"HTTP/1.1 204\r\n\r\n", 204, "", ""},
          Case{"HTTP/1.1 204\r\nA: b\r\n\r\n\r\n\n\r", 204, "", "\r\n\n\r"},
          Case{"HTTP/1.1 200 OK\r\nA: b\r\n", 200, nullptr, nullptr},
          Case{"HTTP/1.1 200 OK\r\n", 200, nullptr, nullptr},
          Case{"HTTP/1.1 200 OK\r", -1, nullptr, nullptr},
          Case{"HTTP/3.1 200 OK\r\n\r\nx", -1, nullptr, nullptr}, Case{"", -1, nullptr, nullptr}}) {
        Fenced trimmed(one.reply + "#"); // where the NUL goes
        char untouched[] = "untouched";
        char *body = untouched;
        EXPECT_EQ(http_post_response(trimmed.data(), one.reply.size(), &body), one.status);
        EXPECT_EQ(body == nullptr, one.status >= 0 && one.trimmed == nullptr) << one.reply;
        if (body != nullptr) {
            EXPECT_STREQ(body, one.status < 0 ? untouched : one.trimmed);
        }

        Fenced raw(one.reply + "#");
        std::string copy(32, '#');
        size_t length = 99;
        int status = get_json_rpc(raw.data(), one.reply.size(), copy.data(), &length);
        if (one.raw != nullptr) {
            EXPECT_EQ(status, one.status);
            EXPECT_EQ(copy.substr(0, length + 1), std::string(one.raw) + "#");
        } else {
            EXPECT_EQ(status, -1) << one.reply;
            EXPECT_EQ(length, 99U);
        }
    }
}

// Whatever a peer makes of a good reply, nothing outside of it is touched.
TEST(RawReply, SurvivesMutations) {
    const std::string good = "HTTP/1.1 200 OK\r\nSet-Cookie: a=b; c\r\nContent-Length: 24\r\n"
                             "Transfer-Encoding: chunked\r\n\r\n"
                             "4\r\nWiki\r\n5\r\npedia\r\n0\r\n\r\n";
    const std::string_view pieces[] = {"\r\n", ":", "\r\n\r\n", "0", "ffffffff", "-", " ", "\r"};
    std::mt19937 random(20240719);
    size_t read_whole = 0;
    for (int round = 0; round < 30000; ++round) {
        std::string reply = good;
        for (size_t changes = random() % 4; changes != 0; --changes) {
            size_t place = random() % reply.size();
            switch (random() % 3) {
            case 0:
                reply[place] = static_cast<char>(random());
                break;
            case 1:
                reply.insert(place, pieces[random() % std::size(pieces)]);
                break;
            default:
                reply.erase(place, random() % 8 + 1);
            }
        }
        reply.resize(random() % 2 == 0 ? reply.size() : random() % (reply.size() + 1));
        Fenced text(reply);
        char *end = text.data() + text.size();
        rk::ReplyShape shape = rk::look_at_reply(text.data(), end);
        auto lines = rk::header_lines(shape, end);
        bool chunked = rk::find_header(lines, "Transfer-Encoding") == "chunked";
        rk::content_length(lines);
        char *body = shape.blank != nullptr ? shape.blank + 4 : end;
        int length = rk::unchunk(body, static_cast<size_t>(end - body));
        ASSERT_LE(length, end - body) << reply;
        read_whole += chunked && length == 9 ? 1 : 0;

        Fenced other(reply + "#");
        char *start = nullptr;
        http_post_response(other.data(), reply.size(), &start);
        Fenced third(reply + "#");
        Fenced copy(reply);
        size_t copied = 0;
        get_json_rpc(third.data(), reply.size(), copy.data(), &copied);
    }
    EXPECT_GT(read_whole, 5000U);
}

} // namespace
