#include <routerkit/jsonrpc.h>

#include <algorithm>
#include <cstring>
#include <map>
#include <regex>

#include <sys/syscall.h>

#include "http/web_server.h"
#include "support/lab.h"

using lab::FailsWith;
using lab::WebServer;

namespace {

size_t largest_receive;

} // namespace

extern "C" ssize_t recv(int fd, void *buffer, size_t room, int flags) {
    largest_receive = std::max(largest_receive, room);
    return ::syscall(SYS_recvfrom, fd, buffer, room, flags, nullptr, nullptr);
}

namespace {

constexpr const char *kHost = "127.0.0.1";

json_ctx_t json;
char reply[65536];
int length;

// A service: "double" of {"n":...}, anything else is an unknown method; answers in reverse order.
std::string serve(const std::string &request) {
    static const std::regex call(
        R"re(\{"jsonrpc":"2.0","id":("?\d+"?),"method":"(\w+)","params":(?:\{"n":(\d+))?)re");
    std::string answers = "]\r\n";
    for (std::sregex_iterator one(request.begin(), request.end(), call), end; one != end; ++one) {
        std::string outcome =
            (*one)[2] == "double"
                ? "\"result\":" + std::to_string(2 * std::stoi((*one)[3])) + ",\"error\":null"
                : "\"error\":{\"code\":-32601}";
        answers = "{\"id\":" + (*one)[1].str() + "," + outcome + "}" +
                  (answers.front() == ']' ? "" : ",") + answers;
    }
    return "HTTP/1.1 200 OK\r\nServer: small\r\n\r\n[" + answers;
}

WebServer eager(uint16_t port, const std::string &answer) {
    return {port, [answer](const std::string & /*request*/) { return answer; }, true};
}

// A request's body, after a look at its head.
std::string content(const std::string &request, const std::string &path = "/rpcform/jsonrpc") {
    std::string body = request.substr(request.find("\r\n\r\n") + 4);
    EXPECT_EQ(request, "POST " + path + " HTTP/1.1\r\nHost: " + kHost +
                           "\r\nContent-type: application/x-www-form-urlencoded\r\n"
                           "Content-length: " +
                           std::to_string(body.size()) + "\r\n\r\n" + body);
    return body;
}

// A client and two calls.
struct Calls {
    jsonrpc_client_t client = {kHost, &json, reply, sizeof reply, 77};
    jsonrpc_req_t calls[2] = {{"nonsense", "[]", 5, nullptr, nullptr},
                              {"double", "{\"n\":21}", 5, nullptr, nullptr}};

    int run(bool parse) {
        lab::Census census;
        return parse ? jsonrpc_call_and_parse(&client, calls, 2)
                     : jsonrpc_call(kHost, calls, 2, reply, sizeof reply);
    }
};

TEST(JsonrpcBatch, ReachesAService) {
    WebServer service(80, serve);
    Calls two;
    EXPECT_EQ(two.run(true), 200);
    EXPECT_EQ(content(service.take_request()),
              "[{\"jsonrpc\":\"2.0\",\"id\":0,\"method\":\"nonsense\",\"params\":[]},"
              "{\"jsonrpc\":\"2.0\",\"id\":1,\"method\":\"double\",\"params\":{\"n\":21}}]\r\n");
    EXPECT_EQ(two.calls[0].result, nullptr);
    EXPECT_EQ(two.calls[0].code, -32601);
    ASSERT_NE(two.calls[1].result, nullptr);
    EXPECT_EQ(json_getInt(two.calls[1].result), 42);
    EXPECT_EQ(two.calls[1].error, nullptr) << "an error of null is none";
    EXPECT_EQ(two.calls[1].code, 5);

    EXPECT_NEAR(lab::elapsed_ms([&] { EXPECT_EQ(two.run(false), 200); }), 205, 20);
    EXPECT_EQ(content(service.take_request()),
              "[{\"jsonrpc\":\"2.0\",\"id\":\"0\",\"method\":\"nonsense\",\"params\":[]},"
              "{\"jsonrpc\":\"2.0\",\"id\":\"1\",\"method\":\"double\",\"params\":{\"n\":21}}]"
              "\r\n");
    EXPECT_STREQ(reply, "HTTP/1.1 200 OK");
    EXPECT_NE(std::strstr(reply + 17, "\"id\":\"1\",\"result\":42"), nullptr);
}

TEST(JsonrpcBatch, JudgesReplies) {
    const std::map<int, std::vector<const char *>> replies = {
        {200, {"[]", " [ {'id':1,'result':null} ] "}},
        {-1, {"", "[{'id':0,'result':1}"}},
        {-2, {"7", "{'id':0,'result':1}"}},
        {-3, {"[7]", "[{'result':1}]"}},
        {-4,
         {"[{'id':2,'result':1}]", "[{'id':-1,'result':1}]", "[{'id':'0','result':1}]",
          "[{'id':true,'result':1}]", "[{'id':[0],'result':1}]", "[{'id':null}]"}},
        {-5,
         {"[{'id':0,'error':{}}]", "[{'id':0,'error':{'code':'1'}}]",
          "[{'id':0,'error':1,'result':1}]"}},
        {-6, {"[{'id':0}]", "[{'id':0,'error':null}]"}}};
    for (const auto &[result, texts] : replies) {
        for (std::string text : texts) {
            std::replace(text.begin(), text.end(), '\'', '"');
            WebServer service = eager(80, "HTTP/1.1 200 OK\r\n\r\n" + text);
            Calls two;
            EXPECT_EQ(two.run(true), result) << text;
            EXPECT_EQ(two.client.status, 200);
        }
    }
}

TEST(JsonrpcBatch, ReportsStatusAndFailure) {
    Calls two;
    EXPECT_THAT(two.run(true), FailsWith(-1, ECONNREFUSED));
    EXPECT_EQ(two.client.status, -1);
    WebServer service = eager(80, "HTTP/1.1 500 No\r\n\r\n[{\"id\":0,\"result\":1}]");
    for (size_t size : {65200U, 65500U, 100000U}) { // the second is too long with the head
        const std::string params(size, 'x');
        two.calls[0].params = params.c_str();
        for (bool parse : {true, false}) {
            errno = 0;
            EXPECT_EQ(two.run(parse), size < 65500 ? 500 : -1);
            EXPECT_TRUE(size < 65500 || errno == ENOBUFS) << errno;
        }
        EXPECT_EQ(two.client.status, size < 65500 ? 500 : -1);
    }
    EXPECT_EQ(two.calls[0].result, nullptr);
    EXPECT_EQ(jsonrpc_call(kHost, two.calls, 0, reply, 10), -1) << "no room for a status line";
}

TEST(SingleCalls, PostABatchOfOne) {
    WebServer service(8080, serve), rpc(80, serve);
    const std::regex one(R"re(\[\{"jsonrpc":"2.0","id":"[1-9]\d{0,2}","method":"double",)re"
                         R"re("params":\{"n":7\}\}\]\r\n)re");
    lab::Census census;
    EXPECT_EQ(http_post_request(kHost, 8080, "double", "\"n\":7", "/rpc?x", reply, &length), 0);
    EXPECT_EQ(largest_receive, sizeof reply - 1);
    EXPECT_TRUE(std::regex_match(content(service.take_request(), "/rpc?x"), one));
    EXPECT_EQ(std::strlen(reply), static_cast<size_t>(length));
    EXPECT_NE(std::strstr(reply, "\"result\":14"), nullptr) << reply;

    std::memset(reply, '#', sizeof reply);
    EXPECT_EQ(http_post_rpc(kHost, "double", "\"n\":7", reply, 20, &length), 0);
    EXPECT_EQ(length, 20);
    EXPECT_EQ(std::string(reply, 21), "HTTP/1.1 200 OK\r\nSer#");
    EXPECT_TRUE(std::regex_match(content(rpc.take_request()), one));
}

TEST(SingleCalls, CutTheCallAndReportFailures) {
    WebServer service = eager(8080, ""), rpc = eager(80, "");
    const std::string params(600, 'x'), path(65500, 'p');
    auto request = [&](int port, const char *target) {
        lab::Census census;
        return http_post_request(kHost, port, "m", params.c_str(), target, reply, &length);
    };
    auto call = [&](const char *host) {
        lab::Census census;
        return http_post_rpc(host, "m", params.c_str(), reply, 20, &length);
    };
    EXPECT_EQ(request(8080, "/"), 0);
    EXPECT_EQ(std::string(reply) + std::to_string(length), "0");
    EXPECT_EQ(content(service.take_request(), "/").size(), 511U);
    length = 99;
    EXPECT_EQ(call(kHost), 0);
    EXPECT_EQ(length, 99) << "untouched for 0";
    EXPECT_EQ(content(rpc.take_request()).size(), 127U);
    EXPECT_THAT(request(81, "/"), FailsWith(-1, ECONNREFUSED));
    EXPECT_THAT(request(65536 + 8080, "/"), FailsWith(-1, EINVAL));
    EXPECT_THAT(request(8080, "/\r\n"), FailsWith(-1, EINVAL));
    EXPECT_THAT(request(8080, path.c_str()), FailsWith(-1, ENOBUFS));
    EXPECT_THAT(call("127.0.0.1\n"), FailsWith(-1, EINVAL));
    EXPECT_THAT(call("127.0.0.2"), FailsWith(-1, ECONNREFUSED));
}

} // namespace
