// The JSON tree: its verdict against a slow reader's, its leaves against the reader of tokens.
#include <routerkit/json.h>
#include <routerkit/tokens.h>

#include <vector>

#include "http/json_model.h"
#include "support/fuzz.h"

namespace {

json_ctx_t ctx;

// The tokens of a document, in order, are the nodes and keys of the tree.
class Walk {
  public:
    Walk(std::string_view text, const jsonrpc_token_t *token) : text_(text), token_(token) {}

    void visit(const json_node_t *node) {
        const jsonrpc_token_t &token = *token_++;
        bool object = node->type == JSON_OBJECT;
        if (object || node->type == JSON_ARRAY) {
            fuzz::require(token.type == (object ? JSONRPC_TOKEN_OBJECT : JSONRPC_TOKEN_ARRAY));
            fuzz::require(token.size == node->count);
            for (int i = 0; i < node->count; ++i) {
                const json_node_t *child = json_getArrayElementByIndex(node, i);
                fuzz::require(!object || span(*token_++) == child->key);
                fuzz::require(!object || json_getChildByKey(node, child->key) != nullptr);
                visit(child);
            }
        } else if (node->type == JSON_STRING) {
            fuzz::require(token.type == JSONRPC_TOKEN_STRING);
            fuzz::require(span(token) == node->value.string);
            json_enscape(node->value.string);
        } else {
            std::string word(span(token));
            fuzz::require(token.type == JSONRPC_TOKEN_PRIMITIVE);
            fuzz::require(node->type == JSON_NULL ? word == "null"
                          : node->type == JSON_BOOLEAN
                              ? word == (node->value.number != 0 ? "true" : "false")
                              : std::atoi(word.c_str()) == json_getInt(node));
        }
    }

  private:
    std::string_view span(const jsonrpc_token_t &token) const {
        return text_.substr(static_cast<size_t>(token.start),
                            static_cast<size_t>(token.end - token.start));
    }

    std::string_view text_;
    const jsonrpc_token_t *token_;
};

} // namespace

void fuzz::run(std::string_view input) {
    lab::Fenced text(std::string(input) + '\0');
    json_node_t *root = json_parse(&ctx, text.data(), input.size());
    require((root == nullptr) == (ctx.error != 0));
    require(ctx.error == lab::JsonModel(std::string(input)).run());

    std::vector<jsonrpc_token_t> tokens(input.size() + 1);
    jsonrpc_parser_t parser;
    jsonrpc_init(&parser);
    int count = jsonrpc_parse(&parser, input.data(), input.size(), tokens.data(),
                              static_cast<unsigned>(tokens.size()));
    if (count > 0 && root != nullptr && (root->type == JSON_OBJECT || root->type == JSON_ARRAY)) {
        Walk(input, tokens.data()).visit(root);
    }
}
