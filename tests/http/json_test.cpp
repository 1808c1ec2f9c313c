#include <routerkit/json.h>

#include <cstring>

#include <routerkit/tokens.h>

#include "support/lab.h"

namespace {

json_ctx_t ctx;

// A tree as text: kinds and values, children in brackets.
std::string show(const json_node_t *node) {
    switch (node->type) {
    case JSON_STRING:
        return "'" + std::string(node->value.string) + "'";
    case JSON_NUMBER:
        return std::to_string(node->value.number);
    case JSON_BOOLEAN:
        return node->value.number == 1 ? "true" : "false";
    case JSON_NULL:
        return "null";
    default:
        std::string text = node->type == JSON_OBJECT ? "{" : "[";
        for (int i = 0; i < node->count; ++i) {
            const json_node_t *child = node->value.children[i];
            text += i != 0 ? " " : "";
            text += node->type == JSON_OBJECT ? std::string(child->key) + "=" : "";
            text += show(child);
        }
        return text + (node->type == JSON_OBJECT ? "}" : "]");
    }
}

// The tree, or the error; the text lies right before an unreadable page.
std::string parse(const std::string &text) {
    lab::Fenced fenced(std::string_view(text.c_str(), text.size() + 1));
    const json_node_t *root = json_parse(&ctx, fenced.data(), text.size());
    EXPECT_EQ(root == nullptr, ctx.error != 0);
    return root != nullptr ? show(root) : std::to_string(ctx.error);
}

std::string repeat(const std::string &text, int times) {
    std::string all;
    for (int i = 0; i < times; ++i) {
        all += text;
    }
    return all;
}

TEST(Json, Documents) {
    struct Case {
        std::string text;
        std::string tree;
    };
    const std::string ones = repeat("1,", 19);
    const Case cases[] = {
        {"{}", "{}"},
        {" [ ] x", "[]"},
        {"[1,2,]", "[1 2]"},
        {"[,1]", "-3"},
        {"{\"a\":1,}", "-5"},
        {"{1:2}", "-3"},
        {"{\"a\":1,2:3}", "-5"},
        {"{\"a\" 1}", "-5"},
        {"[" + ones + "1]", "[" + repeat("1 ", 19) + "1]"},
        {"[" + ones + "1,1]", "-6"},
        {"[" + ones + "1,", "-6"},
        {"{\"a\": tru}", "-3"},
        {"{\"a\":\"abc", "-3"},
        {"{\"abc", "-5"},
        {"\"abc", "-4"},
        {"\"abc\\\"", "-4"},
        {"\"abc\\", "-4"},
        {std::string("\"a\0b\"", 5), "-4"},
        {R"("a\"b")", R"('a\"b')"},
        {R"(["a\\",1])", R"(['a\\' 1])"},
        {"-12abc", "-12"},
        {"-", "0"},
        {"2147483647", "2147483647"},
        {"-2147483648", "-2147483648"},
        {"000000000012", "12"},
        {"1.5", "1"},
        {"[1.5]", "-3"},
        {"trueX", "true"},
        {"[true,false,null]", "[true false null]"},
        {"", "-3"},
        {"{\"k\":{\"a\":[1,{\"b\":\"" + std::string(100, 'x') + "\"}]}}",
         "{k={a=[1 {b='" + std::string(100, 'x') + "'}]}}"},
    };
    for (const Case &one : cases) {
        EXPECT_EQ(parse(one.text), one.tree) << one.text;
    }
}

TEST(Json, ThePoolBoundsValuesAndDepth) {
    EXPECT_EQ(parse(repeat("[", 300) + repeat("]", 300)), repeat("[", 300) + repeat("]", 300));
    EXPECT_EQ(parse(repeat("[", 301) + repeat("]", 301)), "-7");
    EXPECT_EQ(parse(repeat("[", 100000)), "-7");
    EXPECT_EQ(parse(repeat("{\"a\":", 100000)), "-7");
    std::string twenty = "[" + repeat("1,", 20) + "]";
    EXPECT_EQ(parse("[" + repeat(twenty + ",", 14) + "[1,1,1,1]]"), // 1 + 14 * 21 + 5
              "[" + repeat("[" + repeat("1 ", 19) + "1] ", 14) + "[1 1 1 1]]");
    EXPECT_EQ(parse("[" + repeat(twenty + ",", 14) + "[1,1,1,1,1],\"x\"]"), "-7");
}

TEST(Json, LookUps) {
    char text[] = R"({"a":1,"b":[5,true],"a":2,"é":"x"})";
    const json_node_t *root = json_parse(&ctx, text, std::strlen(text));
    EXPECT_EQ(json_getInt(json_getChildByKey(root, "a")), 1);
    const json_node_t *array = json_getChildByKey(root, "b");
    EXPECT_EQ(json_getInt(json_getArrayElementByIndex(array, 1)), 1);
    EXPECT_EQ(json_getArrayElementByIndex(array, 2), nullptr);
    EXPECT_EQ(json_getArrayElementByIndex(array, -1), nullptr);
    EXPECT_EQ(json_getInt(json_getArrayElementByIndex(root, 2)), 2);
    EXPECT_STREQ(json_getChildByKey(root, "é")->value.string, "x");
    EXPECT_EQ(json_getChildByKey(root, "A"), nullptr);
    EXPECT_EQ(json_getChildByKey(array, "a"), nullptr);
    EXPECT_EQ(json_getChildByKey(nullptr, "a"), nullptr);
}

TEST(Json, Escapes) {
    char all[] = R"(\"\\\/\b\f\n\r\tx\n\ty)";
    EXPECT_EQ(json_enscape(all), all);
    EXPECT_STREQ(all, "\"\\/\b\f\n\r\tx\n\ty");
    for (const char *bad : {R"(a\u0041)", R"(\x)", "end\\"}) {
        std::string text = bad;
        EXPECT_EQ(json_enscape(text.data()), nullptr) << bad;
    }
}

TEST(Json, PartsClaimTheirOwnKindOnly) {
    const char *starts[] = {"\"", "-7", "{", "[", "t", "n"};
    for (size_t i = 0; i < std::size(parsers); ++i) {
        for (size_t j = 0; j < std::size(starts); ++j) {
            char text[4] = {};
            std::strcpy(text, starts[j]);
            ctx.error = 0;
            ctx.used = 0;
            json_node_t node = {};
            char *end = parsers[i](&ctx, &node, text, text + std::strlen(text));
            EXPECT_EQ(node.type != 0, i == j) << i << j;
            EXPECT_EQ(end != text || ctx.error != 0, i == j) << i << j;
        }
    }
    char text[] = "\"ab\" rest";
    json_node_t node;
    ctx.error = 0;
    EXPECT_EQ(json_parse_string(&ctx, &node, text, text + 2), text + 2);
    EXPECT_EQ(ctx.error, JSON_ERROR_STRING) << "the end counts where there is no NUL";
    lab::Fenced quote(std::string_view("\"", 2));
    EXPECT_EQ(json_parse_string(&ctx, &node, quote.data(), quote.data()), quote.data() + 1)
        << "the end may lie right at the quote";
    for (ctx.used = 0; json_alloc(&ctx) != nullptr;) {
    }
    EXPECT_EQ(ctx.used, JSON_MAX_NODES);
}

// A NUL inside the stated length ends the text, and the page behind it may not be there. The texts
// start at every place within a word; the reader of tokens has the same scan.
TEST(Json, NothingIsReadBehindANul) {
    for (size_t length = 0; length < 100; ++length) {
        std::string text = "\"" + std::string(length, 'x') + std::string(1, '\0');
        lab::Fenced fenced(text), tokens_text(text);
        EXPECT_EQ(json_parse(&ctx, fenced.data(), 4096), nullptr);
        EXPECT_EQ(ctx.error, JSON_ERROR_STRING);
        jsonrpc_parser_t parser;
        jsonrpc_init(&parser);
        EXPECT_EQ(jsonrpc_parse(&parser, tokens_text.data(), 4096, nullptr, 0), JSONRPC_ERROR_END);
        lab::Fenced closed("\"" + std::string(length, 'x') + "\\\"\t\xd0\xbf\"");
        EXPECT_EQ(json_parse_string(&ctx, ctx.nodes, closed.data(), closed.data() + closed.size()),
                  closed.data() + closed.size());
    }
}

} // namespace
