#include <routerkit/tokens.h>

#include <climits>
#include <cstring>

#include <routerkit/extender.h>

#include "support/lab.h"

namespace {

constexpr unsigned kRoom = 256;

// The tokens of a text as "type:span:size ...", or the error with the position.
std::string scan(const std::string &text, unsigned count = kRoom) {
    lab::Fenced fenced(text);
    std::vector<jsonrpc_token_t> tokens(count);
    jsonrpc_parser_t parser;
    jsonrpc_init(&parser);
    int result = jsonrpc_parse(&parser, fenced.data(), fenced.size(), tokens.data(), count);
    if (result < 0) {
        return std::to_string(result) + "@" + std::to_string(parser.pos);
    }
    std::string shown;
    for (int i = 0; i < result; ++i) {
        const jsonrpc_token_t &token = tokens[static_cast<size_t>(i)];
        shown += std::string(i != 0 ? " " : "") + "?OASP"[token.type] + ":" +
                 text.substr(static_cast<size_t>(token.start),
                             static_cast<size_t>(token.end - token.start)) +
                 ":" + std::to_string(token.size);
    }
    jsonrpc_init(&parser);
    EXPECT_EQ(jsonrpc_parse(&parser, fenced.data(), fenced.size(), nullptr, 0), result) << text;
    return shown;
}

TEST(Tokens, Documents) {
    struct Case {
        std::string text;
        std::string tokens;
    };
    const Case cases[] = {
        {R"({"a":1,"b":[true,"x"]})",
         R"(O:{"a":1,"b":[true,"x"]}:2 S:a:1 P:1:0 S:b:1 A:[true,"x"]:2 P:true:0 S:x:0)"},
        {"[1,2,3]", "A:[1,2,3]:3 P:1:0 P:2:0 P:3:0"},
        {R"({"a":{"b":{}},"c":[]})",
         R"(O:{"a":{"b":{}},"c":[]}:2 S:a:1 O:{"b":{}}:1 S:b:1 O:{}:0 S:c:1 A:[]:0)"},
        {"bare -1.5e3:x", "P:bare:0 P:-1.5e3:x:0"},
        {"", ""},
        {"  \t\r\n", ""},
        {"{\"a\":1", "-3@6"},
        {"{\"a\":1]", "-2@6"},
        {"]", "-2@0"},
        {" \"abc", "-3@1"},
        {R"("a\qb")", "-2@0"},
        {R"("\u00e9\"\\\/\b\f\n\r\t")", R"(S:\u00e9\"\\\/\b\f\n\r\t:0)"},
        {R"("\u12")", "-2@0"},
        {R"("\u12)", "-3@0"},
        {"\"\\", "-3@0"},
        {"[1\x7f]", "-2@1"},
        {"\xc3\xa9", "-2@0"},
        {"\"\xc3\xa9\"", "S:\xc3\xa9:0"},
    };
    for (const Case &one : cases) {
        EXPECT_EQ(scan(one.text), one.tokens) << one.text;
    }
    EXPECT_EQ(scan(std::string("[1,\0 2]", 7)), "-3@3") << "a NUL ends the text";
}

TEST(Tokens, AFullArrayCanBeEnlargedButNotReducedOnTheWay) {
    const std::string text = R"({"a":1,"b":[true,"x"],"c":{"d":2}})";
    for (unsigned count = 0; count < 11; ++count) {
        jsonrpc_parser_t parser;
        jsonrpc_init(&parser);
        jsonrpc_token_t tokens[kRoom];
        ASSERT_EQ(jsonrpc_parse(&parser, text.data(), text.size(), tokens, count), -1) << count;
        lab::Fenced fewer(std::string(count / 2 * sizeof *tokens, '\0'));
        auto *reduced = reinterpret_cast<jsonrpc_token_t *>(fewer.data());
        EXPECT_EQ(jsonrpc_parse(&parser, text.data(), text.size(), reduced, count / 2), -1);
        EXPECT_EQ(jsonrpc_parse(&parser, text.data(), text.size(), tokens, kRoom), 11) << count;
        EXPECT_EQ(tokens[0].size, 3);
        EXPECT_EQ(tokens[0].end, static_cast<int>(text.size()));
        EXPECT_EQ(tokens[4].size, 2);
        EXPECT_EQ(tokens[8].size, 1);
    }
}

TEST(Tokens, DeepNestingIsPairedUp) {
    for (size_t depth : {31U, 32U, 33U, 70U}) {
        std::string text;
        for (size_t i = 0; i < depth; ++i) {
            text += "{\"k\":[";
        }
        for (size_t i = 0; i < depth; ++i) {
            text += "]}";
        }
        std::vector<jsonrpc_token_t> tokens(3 * depth);
        jsonrpc_parser_t parser;
        jsonrpc_init(&parser);
        ASSERT_EQ(jsonrpc_parse(&parser, text.data(), text.size(), tokens.data(),
                                static_cast<unsigned>(tokens.size())),
                  static_cast<int>(tokens.size()));
        for (size_t i = 0; i < depth; ++i) {
            const jsonrpc_token_t &object = tokens[3 * i];
            const jsonrpc_token_t &array = tokens[3 * i + 2];
            EXPECT_EQ(static_cast<size_t>(object.end), text.size() - 2 * i);
            EXPECT_EQ(object.end - array.end, 1);
            EXPECT_EQ(array.size, i + 1 < depth ? 1 : 0);
        }
    }
}

TEST(Tokens, KeysAreComparedWhole) {
    const char text[] = R"("ab" ab)";
    jsonrpc_token_t tokens[2];
    jsonrpc_parser_t parser;
    jsonrpc_init(&parser);
    jsonrpc_parse(&parser, text, sizeof text, tokens, 2);
    EXPECT_EQ(jsonrpc_strncmp(text, &tokens[0], "ab"), 0);
    EXPECT_EQ(jsonrpc_strncmp(text, &tokens[0], "a"), -1);
    EXPECT_EQ(jsonrpc_strncmp(text, &tokens[0], "abc"), -1);
    EXPECT_EQ(jsonrpc_strncmp(text, &tokens[1], "ab"), -1);
}

// --- The extender's report ---

struct Report {
    explicit Report(const std::string &reply) : text(reply), tokens(kRoom) {
        jsonrpc_parser_t parser;
        jsonrpc_init(&parser);
        count = jsonrpc_parse(&parser, text.c_str(), text.size(), tokens.data(), kRoom);
    }

    std::string log() const {
        std::vector<char> out(32774, '#');
        EXPECT_EQ(json_getKavraWiFiExtenderSlavesLog(out.data(), text.c_str(), nullptr, count,
                                                     tokens.data()),
                  0);
        return out.data();
    }

    std::string text;
    std::vector<jsonrpc_token_t> tokens;
    int count;
};

TEST(Extender, FieldsAreTakenAndCut) {
    const std::string longest(40, 'm');
    Report report(R"({"jsonrpc":"2.0","id":7,"result":{"UpTime":"1d 02:03","RSSIValue":-61,)"
                  R"("uptime":"no",RSSIValue:1,"ModelName":"EX1","Manufacturer":")" +
                  longest + R"(","SerialNumber":"S\"1","SoftwareVersion":"old",)" +
                  R"("SoftwareVersion":"1.2","HardwareVersion":"B"}})");
    extender_info_t info = {};
    EXPECT_EQ(json_getKavraWiFiExtenderSlavesInfo(&info, report.text.c_str(), nullptr, report.count,
                                                  report.tokens.data()),
              0);
    EXPECT_EQ(info.id, 7);
    EXPECT_STREQ(info.up_time, "1d 02:03");
    EXPECT_EQ(info.rssi, -61);
    EXPECT_EQ(info.manufacturer, longest.substr(0, 31));
    EXPECT_STREQ(info.model_name, "EX1");
    EXPECT_STREQ(info.serial_number, "S\\\"1");
    EXPECT_STREQ(info.software_version, "1.2");
    EXPECT_STREQ(info.hardware_version, "B");

    info.id = 99;
    for (int count : {0, INT_MIN, 3, 4}) {
        json_getKavraWiFiExtenderSlavesInfo(&info, report.text.c_str(), nullptr, count,
                                            report.tokens.data());
        EXPECT_EQ(info.id, 99) << "a key without a value behind it";
    }
}

TEST(Extender, LogIsDecoded) {
    lab::Census census;
    auto reply = [](const std::string &members) { return R"({"id":1,"r":{)" + members + "}}"; };
    EXPECT_EQ(Report(reply(R"("DeviceLog":"aGVsbG8=")")).log(), "hello");
    EXPECT_EQ(Report(reply(R"("DeviceLog":"aGVsbG8=","DeviceLog":"eA==")")).log(), "x");
    EXPECT_EQ(Report(reply(R"("DeviceLog":"AGVs")")).log(), "");
    EXPECT_EQ(Report(reply(R"("Other":"aGVsbG8=")")).log(), "");
    EXPECT_EQ(Report(reply("\"DeviceLog\":\"" + std::string(60000, 'e') + "\"")).log().size(),
              32773U);
}

} // namespace
