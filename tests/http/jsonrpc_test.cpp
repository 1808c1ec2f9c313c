#include <routerkit/jsonrpc.h>

#include <algorithm>
#include <cstring>
#include <regex>

#include "http/web_server.h"
#include "support/lab.h"

using lab::Census;
using lab::FailsWith;
using lab::WebServer;

namespace {

json_ctx_t json;
char reply[65536];

constexpr const char *kHead = "HTTP/1.1 200 OK\r\nContent-Type: application/json\r\n\r\n";

// A service: "double" of {"n":...}, anything else is an unknown method; answers in reverse order.
std::string serve(const std::string &request) {
    const std::regex call(
        R"re(\{"jsonrpc":"2.0","id":("?\d+"?),"method":"(\w+)","params":(.*?)\})re");
    std::vector<std::string> answers;
    for (std::sregex_iterator one(request.begin(), request.end(), call), end; one != end; ++one) {
        std::string params = (*one)[3];
        int number = std::atoi(params.c_str() + std::strcspn(params.c_str(), "0123456789"));
        answers.push_back("{\"jsonrpc\":\"2.0\",\"id\":" + (*one)[1].str() +
                          ((*one)[2] == "double"
                               ? ",\"result\":" + std::to_string(2 * number) + ",\"error\":null}"
                               : ",\"error\":{\"code\":-32601,\"message\":\"no\"}}"));
    }
    std::string text;
    for (auto answer = answers.rbegin(); answer != answers.rend(); ++answer) {
        text += (text.empty() ? "" : ",") + *answer;
    }
    return kHead + ("[" + text + "]\r\n");
}

std::string content(const std::string &request) {
    return request.substr(request.find("\r\n\r\n") + 4);
}

std::string head(const std::string &path, size_t length) {
    return "POST " + path +
           " HTTP/1.1\r\nHost: 127.0.0.1\r\nContent-type: application/x-www-form-urlencoded\r\n"
           "Content-length: " +
           std::to_string(length) + "\r\n\r\n";
}

jsonrpc_client_t client() {
    return {"127.0.0.1", &json, reply, sizeof reply, 77};
}

TEST(JsonrpcCallAndParse, HandsEachCallItsAnswer) {
    WebServer service(80, serve);
    jsonrpc_req_t calls[] = {{"nonsense", "[]", 0, nullptr, nullptr},
                             {"double", "{\"n\":21}", 5, nullptr, nullptr}};
    Census census;
    jsonrpc_client_t one = client();
    EXPECT_EQ(jsonrpc_call_and_parse(&one, calls, 2), 200);
    EXPECT_EQ(one.status, 200);
    const std::string sent =
        "[{\"jsonrpc\":\"2.0\",\"id\":0,\"method\":\"nonsense\",\"params\":[]},"
        "{\"jsonrpc\":\"2.0\",\"id\":1,\"method\":\"double\","
        "\"params\":{\"n\":21}}]\r\n";
    EXPECT_EQ(service.take_request(), head("/rpcform/jsonrpc", sent.size()) + sent);
    EXPECT_EQ(calls[0].result, nullptr);
    ASSERT_NE(calls[0].error, nullptr);
    EXPECT_EQ(calls[0].code, -32601);
    ASSERT_NE(calls[1].result, nullptr);
    EXPECT_EQ(json_getInt(calls[1].result), 42);
    EXPECT_EQ(calls[1].error, nullptr) << "an error of null is none";
    EXPECT_EQ(calls[1].code, 5);
}

TEST(JsonrpcCall, LeavesTheRawReply) {
    WebServer service(80, serve);
    const jsonrpc_req_t calls[] = {{"double", "{\"n\":4}", 5, nullptr, nullptr},
                                   {"b", "{}", 6, nullptr, nullptr}};
    Census census;
    EXPECT_NEAR(lab::elapsed_ms([&] {
                    EXPECT_EQ(jsonrpc_call("127.0.0.1", calls, 2, reply, sizeof reply), 200);
                }),
                205, 20);
    EXPECT_EQ(content(service.take_request()),
              "[{\"jsonrpc\":\"2.0\",\"id\":\"0\",\"method\":\"double\",\"params\":{\"n\":4}},"
              "{\"jsonrpc\":\"2.0\",\"id\":\"1\",\"method\":\"b\",\"params\":{}}]\r\n");
    EXPECT_STREQ(reply, "HTTP/1.1 200 OK");
    EXPECT_NE(std::strstr(reply + 17, "\"id\":\"0\",\"result\":8"), nullptr);
}

TEST(JsonrpcCallAndParse, JudgesReplies) {
    struct Case {
        const char *reply;
        int result;
    };
    for (const Case &one :
         {Case{"[]", 200}, Case{" [ {\"id\":1,\"result\":null} ] ", 200},
          Case{"[{\"id\":0,\"result\":1},{\"id\":1,\"result\":2}", -1}, Case{"", -1},
          Case{"{\"id\":0,\"result\":1}", -2}, Case{"7", -2}, Case{"[7]", -3},
          Case{"[{\"result\":1}]", -3}, Case{"[{\"id\":2,\"result\":1}]", -4},
          Case{"[{\"id\":-1,\"result\":1}]", -4}, Case{"[{\"id\":\"0\",\"result\":1}]", -4},
          Case{"[{\"id\":true,\"result\":1}]", -4}, Case{"[{\"id\":null,\"result\":1}]", -4},
          Case{"[{\"id\":[0],\"result\":1}]", -4}, Case{"[{\"id\":0,\"error\":{}}]", -5},
          Case{"[{\"id\":0,\"error\":{\"code\":\"1\"}}]", -5},
          Case{"[{\"id\":0,\"error\":1,\"result\":1}]", -5}, Case{"[{\"id\":0}]", -6},
          Case{"[{\"id\":0,\"error\":null}]", -6}}) {
        WebServer service(
            80, [&](const std::string &) { return std::string(kHead) + one.reply; }, true);
        jsonrpc_req_t calls[2] = {{"a", "[]", 0, nullptr, nullptr},
                                  {"b", "[]", 0, nullptr, nullptr}};
        Census census;
        jsonrpc_client_t asking = client();
        EXPECT_EQ(jsonrpc_call_and_parse(&asking, calls, 2), one.result) << one.reply;
        EXPECT_EQ(asking.status, 200);
    }
}

TEST(JsonrpcBatch, ReportsStatusAndFailure) {
    const jsonrpc_req_t call = {"a", "[]", 0, nullptr, nullptr};
    jsonrpc_req_t untouched = call;
    jsonrpc_client_t asking = client();
    EXPECT_THAT(jsonrpc_call_and_parse(&asking, &untouched, 1), FailsWith(-1, ECONNREFUSED));
    EXPECT_EQ(asking.status, -1);
    WebServer service(
        80, [](const std::string &) { return "HTTP/1.1 500 No\r\n\r\n[{\"id\":0,\"result\":1}]"; },
        true);
    Census census;
    EXPECT_EQ(jsonrpc_call_and_parse(&asking, &untouched, 1), 500);
    EXPECT_EQ(asking.status, 500);
    EXPECT_EQ(untouched.result, nullptr);
    EXPECT_EQ(jsonrpc_call("127.0.0.1", &call, 1, reply, sizeof reply), 500);
    EXPECT_EQ(jsonrpc_call("127.0.0.1", &call, 1, reply, 10), -1);
    for (int i = 0; i < 3; ++i) {
        service.take_request();
    }
    for (size_t length :
         {65000U, 65400U, 65534U, 100000U}) { // with the head, too long from the second on
        const std::string params(length, 'x');
        jsonrpc_req_t longer = {"a", params.c_str(), 0, nullptr, nullptr};
        int result = length == 65000 ? 500 : -1;
        errno = 0;
        EXPECT_EQ(jsonrpc_call("127.0.0.1", &longer, 1, reply, sizeof reply), result) << length;
        EXPECT_EQ(jsonrpc_call_and_parse(&asking, &longer, 1), result);
        EXPECT_TRUE(result == 500 || errno == ENOBUFS);
    }
    EXPECT_GT(service.take_request().size(), 65000U);
}

TEST(SingleCalls, PostABatchOfOne) {
    WebServer service(8080, serve);
    WebServer rpc(80, serve);
    const std::regex pattern(
        R"re(\[\{"jsonrpc":"2.0","id":"(\d+)","method":"double","params":\{("n":\d+)\}\}\]\r\n)re");
    std::smatch parts;
    int length = 0;
    Census census;
    EXPECT_EQ(http_post_request("127.0.0.1", 8080, "double", "\"n\":7", "/rpc?x", reply, &length),
              0);
    std::string sent = service.take_request();
    std::string text = content(sent);
    EXPECT_EQ(sent, head("/rpc?x", text.size()) + text);
    ASSERT_TRUE(std::regex_match(text, parts, pattern)) << text;
    EXPECT_THAT(std::stoi(parts[1]), testing::AllOf(testing::Ge(1), testing::Le(999)));
    EXPECT_EQ(std::strlen(reply), static_cast<size_t>(length));
    EXPECT_NE(std::strstr(reply, "\"result\":14"), nullptr) << reply;

    std::fill(std::begin(reply), std::end(reply), '#');
    EXPECT_EQ(http_post_rpc("127.0.0.1", "double", "\"n\":9", reply, 20, &length), 0);
    EXPECT_EQ(length, 20);
    EXPECT_EQ(std::string(reply, 22), std::string(kHead, 20) + "##");
    sent = rpc.take_request();
    text = content(sent);
    EXPECT_EQ(sent, head("/rpcform/jsonrpc", text.size()) + text);
    EXPECT_TRUE(std::regex_match(text, pattern)) << text;
}

TEST(SingleCalls, CutTheCallAndReportTheRead) {
    WebServer closing(
        8080, [](const std::string &) { return ""; }, true);
    WebServer rpc(
        80, [](const std::string &) { return ""; }, true);
    const std::string params(600, 'x');
    int length = 99;
    Census census;
    EXPECT_EQ(http_post_request("127.0.0.1", 8080, "m", params.c_str(), "/", reply, &length), 0);
    EXPECT_EQ(length, 0);
    EXPECT_STREQ(reply, "");
    EXPECT_EQ(content(closing.take_request()).size(), 511U);
    length = 99;
    EXPECT_EQ(http_post_rpc("127.0.0.1", "m", params.c_str(), reply, 20, &length), 0);
    EXPECT_EQ(length, 99) << "untouched for 0";
    EXPECT_EQ(content(rpc.take_request()).size(), 127U);

    EXPECT_THAT(http_post_request("127.0.0.1", 81, "m", "", "/", reply, &length),
                FailsWith(-1, ECONNREFUSED));
    for (int port : {-1, 0, 65536 + 8080}) {
        EXPECT_THAT(http_post_request("127.0.0.1", port, "m", "", "/", reply, &length),
                    FailsWith(-1, EINVAL));
    }
    EXPECT_THAT(http_post_request("127.0.0.1", 8080, "m", "", "/\r\n", reply, &length),
                FailsWith(-1, EINVAL));
    const std::string path(65500, 'p');
    EXPECT_THAT(http_post_request("127.0.0.1", 8080, "m", "", path.c_str(), reply, &length),
                FailsWith(-1, ENOBUFS));
    EXPECT_THAT(http_post_rpc("127.0.0.1\n", "m", "", reply, 20, &length), FailsWith(-1, EINVAL));
    EXPECT_THAT(http_post_rpc("127.0.0.2", "m", "", reply, 20, &length),
                FailsWith(-1, ECONNREFUSED));
}

TEST(SingleCalls, ReportASilentService) {
    WebServer rpc(80, [](const std::string &) { return std::nullopt; });
    int length = 99;
    lab::SignalStorm storm;
    EXPECT_NEAR(lab::elapsed_ms(
                    [&] { EXPECT_EQ(http_post_rpc("127.0.0.1", "m", "", reply, 20, &length), 0); }),
                2210, 60);
    EXPECT_EQ(length, -1);
}

} // namespace
