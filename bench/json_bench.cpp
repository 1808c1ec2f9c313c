// The JSON readers against RapidJSON: the tree against its in-situ document, the tokens against its
// event reader. The answers compared are the leaves in the document's order.
#include <routerkit/json.h>
#include <routerkit/tokens.h>

#include <cstring>
#include <optional>
#include <string>
#include <vector>

#include <rapidjson/document.h>
#include <rapidjson/reader.h>

#include "support/pairs.h"
#include "support/replies.h"

namespace {

// This source is built twice: with the peer's assertions left out, and as its headers come.
#ifdef NDEBUG
constexpr char kTreePeer[] = "RapidJSON in situ";
constexpr char kTokensPeer[] = "RapidJSON SAX";
#else
constexpr char kTreePeer[] = "RapidJSON asserting";
constexpr char kTokensPeer[] = "RapidJSON SAX asserting";
#endif

std::string work; // what the parsers destroy
json_ctx_t ctx;
const json_node_t *root;
std::optional<rapidjson::Document> document; // a fresh one for each reply, as a program makes it

void show(const json_node_t *node, std::string &out) {
    switch (node->type) {
    case JSON_STRING:
        out += std::string(node->value.string) + ";";
        break;
    case JSON_NUMBER:
    case JSON_BOOLEAN:
        out += std::to_string(node->value.number) + ";";
        break;
    case JSON_NULL:
        out += "null;";
        break;
    default:
        for (int i = 0; i < node->count; ++i) {
            if (node->type == JSON_OBJECT) {
                out += std::string(node->value.children[i]->key) + "=";
            }
            show(node->value.children[i], out);
        }
    }
}

void show(const rapidjson::Value &value, std::string &out) {
    if (value.IsString()) {
        out += std::string(value.GetString()) + ";";
    } else if (value.IsInt()) {
        out += std::to_string(value.GetInt()) + ";";
    } else if (value.IsBool()) {
        out += std::to_string(value.GetBool() ? 1 : 0) + ";";
    } else if (value.IsNull()) {
        out += "null;";
    } else if (value.IsArray()) {
        for (const auto &element : value.GetArray()) {
            show(element, out);
        }
    } else {
        for (const auto &member : value.GetObject()) {
            out += std::string(member.name.GetString()) + "=";
            show(member.value, out);
        }
    }
}

void parse_ours(const std::string &text) {
    std::memcpy(work.data(), text.c_str(), text.size() + 1);
    root = json_parse(&ctx, work.data(), text.size());
}

void parse_theirs(const std::string &text) {
    std::memcpy(work.data(), text.c_str(), text.size() + 1);
    document.emplace().ParseInsitu(work.data());
}

void declare_tree(const std::string &name, const std::string &text, double at_most) {
    bench::Row row("json_parse, " + name);
    row.ours([text](size_t) { parse_ours(text); },
             [] {
                 std::string out;
                 show(root, out);
                 return out;
             });
    row.peer(
        kTreePeer, at_most, [text](size_t) { parse_theirs(text); },
        [] {
            std::string out;
            show(*document, out);
            return out;
        });
}

std::string found;

void declare_look_up(const std::string &text) {
    bench::Row row("json_parse and three fields each, 2 KB");
    row.ours(
        [text](size_t) {
            parse_ours(text);
            const json_node_t *list =
                json_getChildByKey(json_getChildByKey(root, "result"), "list");
            for (int i = 0; i < list->count; ++i) {
                const json_node_t *record = json_getArrayElementByIndex(list, i);
                found = json_getChildByKey(record, "name")->value.string;
                found += json_getChildByKey(record, "mac")->value.string;
                found[0] = static_cast<char>(json_getInt(json_getChildByKey(record, "rssi")));
            }
        },
        [] { return found; });
    row.peer(
        kTreePeer, 0.30,
        [text](size_t) {
            parse_theirs(text);
            for (const auto &record : (*document)["result"]["list"].GetArray()) {
                found = record["name"].GetString();
                found += record["mac"].GetString();
                found[0] = static_cast<char>(record["rssi"].GetInt());
            }
        },
        [] { return found; });
}

jsonrpc_token_t tokens[1024];
int token_count;

// Counts what the scanner calls a token.
struct Counter : rapidjson::BaseReaderHandler<rapidjson::UTF8<>, Counter> {
    bool Default() { return count(); }
    bool Key(const char *, rapidjson::SizeType, bool) { return count(); }
    bool StartObject() { return count(); }
    bool StartArray() { return count(); }
    bool EndObject(rapidjson::SizeType) { return true; }
    bool EndArray(rapidjson::SizeType) { return true; }
    bool count() {
        ++token_count;
        return true;
    }
};

std::string count_answer() {
    return std::to_string(token_count);
}

void declare_tokens(const std::string &name, const std::string &text, double at_most) {
    bench::Row row("jsonrpc_parse, " + name);
    row.ours(
        [text](size_t) {
            jsonrpc_parser_t parser;
            jsonrpc_init(&parser);
            token_count = jsonrpc_parse(&parser, text.c_str(), text.size(), tokens, 1024);
        },
        count_answer);
    row.peer(
        kTokensPeer, at_most,
        [text](size_t) {
            token_count = 0;
            Counter counter;
            rapidjson::StringStream stream(text.c_str());
            rapidjson::Reader().Parse(stream, counter);
        },
        count_answer);
}

} // namespace

void bench::declare_rows() {
    work.resize(65536);
    declare_tree("0.2 KB", reply(3, ""), 0.25);
    declare_tree("1 KB", reply(18, ""), 0.25);
    declare_tree("8 KB", deep_reply(), 0.30);
    declare_tree("2 KB indented", reply(18, kIndent), 0.40);
    declare_tree("one text of 8 KB", long_text(), 0.60);
    declare_look_up(reply(18, ""));
    declare_tokens("1 KB compact", reply(18, ""), 0.32);
    declare_tokens("2 KB indented", reply(18, kIndent), 0.45);
}
