// The JSON tree: its verdict against a slow reader's, its leaves against the reader of tokens.
#include <routerkit/json.h>
#include <routerkit/tokens.h>

#include <vector>

#include "support/fuzz.h"
#include "support/json_model.h"

namespace {

// A node as its token has it; the tokens of a document, in order, are the tree's nodes and keys.
void compare(const json_node_t *node, std::string_view text, const jsonrpc_token_t *&token) {
    auto span = [text](const jsonrpc_token_t &of) {
        return std::string(
            text.substr(static_cast<size_t>(of.start), static_cast<size_t>(of.end - of.start)));
    };
    const std::string word = span(*token);
    int type = token->type == JSONRPC_TOKEN_PRIMITIVE ? 0 : token->type;
    fuzz::require(type == (node->type <= JSON_STRING ? static_cast<int>(node->type) : 0));
    fuzz::require(type == 0 || type == JSONRPC_TOKEN_STRING || token->size == node->count);
    fuzz::require(type != JSONRPC_TOKEN_STRING || word == node->value.string);
    fuzz::require(node->type != JSON_NUMBER || json_getInt(node) == std::atoi(word.c_str()));
    fuzz::require(node->type != JSON_BOOLEAN || json_getInt(node) == (word == "true" ? 1 : 0));
    ++token;
    bool container = node->type == JSON_OBJECT || node->type == JSON_ARRAY;
    for (int i = 0; container && i < node->count; ++i) {
        const json_node_t *child = json_getArrayElementByIndex(node, i);
        fuzz::require(node->type == JSON_ARRAY || span(*token++) == child->key);
        compare(child, text, token);
    }
}

} // namespace

void fuzz::run(std::string_view input) {
    static json_ctx_t ctx;
    lab::Fenced text(std::string(input) + '\0');
    const json_node_t *root = json_parse(&ctx, text.data(), input.size());
    require((root == nullptr) == (ctx.error != 0));
    require(ctx.error == JsonModel(std::string(input)).run());

    std::vector<jsonrpc_token_t> tokens(input.size() + 1);
    jsonrpc_parser_t parser;
    jsonrpc_init(&parser);
    int count = jsonrpc_parse(&parser, input.data(), input.size(), tokens.data(),
                              static_cast<unsigned>(tokens.size()));
    // What follows the document is the token reader's alone, and its ":" may reach back.
    bool same_end = count > 0 && tokens[0].end >= tokens[static_cast<size_t>(count) - 1].end;
    if (root != nullptr && same_end && (root->type == JSON_OBJECT || root->type == JSON_ARRAY)) {
        const jsonrpc_token_t *token = tokens.data();
        compare(root, input, token);
    }
}
