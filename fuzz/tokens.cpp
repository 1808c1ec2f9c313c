// JSON tokens: read at once, counted only, and in two calls; then what the extender's readers make
// of them, whether the text was read to its end or not.
#include <routerkit/tokens.h>

#include <algorithm>
#include <vector>

#include <routerkit/extender.h>

#include "support/fuzz.h"

namespace {

using Tokens = std::vector<jsonrpc_token_t>;

int parse(jsonrpc_parser_t &parser, lab::Fenced &text, jsonrpc_token_t *tokens, size_t count) {
    return jsonrpc_parse(&parser, text.data(), text.size(), tokens, static_cast<unsigned>(count));
}

void read_report(lab::Fenced &text, const Tokens &tokens, int count) {
    lab::Fenced record(std::string(sizeof(extender_info_t), '\0'));
    auto *info = reinterpret_cast<extender_info_t *>(record.data());
    json_getKavraWiFiExtenderSlavesInfo(info, text.data(), nullptr, count, tokens.data());
    fuzz::require(strnlen(info->up_time, 16) < 16 && strnlen(info->hardware_version, 32) < 32);
    lab::Fenced log(std::string(text.size() / 4 * 3 + 2, '#'));
    json_getKavraWiFiExtenderSlavesLog(log.data(), text.data(), nullptr, count, tokens.data());
    fuzz::require(strnlen(log.data(), log.size()) < log.size());
}

} // namespace

void fuzz::run(std::string_view input) {
    size_t first_room = take(input);
    lab::Fenced text(input);
    Tokens tokens(input.size() + 1), again = tokens;
    jsonrpc_parser_t parser, counter;
    jsonrpc_init(&parser);
    jsonrpc_init(&counter);
    int count = parse(parser, text, tokens.data(), tokens.size());
    require(parser.pos <= input.size() && parser.next_token <= tokens.size());
    require(count < 0 || parse(counter, text, nullptr, 0) == count);
    for (unsigned i = 0; i < parser.next_token; ++i) {
        const jsonrpc_token_t &token = tokens[i];
        require(token.start >= 0 && token.end <= static_cast<int>(input.size()));
        require(token.end == -1 ? count < 0 : token.start <= token.end);
    }
    read_report(text, tokens, static_cast<int>(parser.next_token));

    jsonrpc_init(&parser);
    int result = parse(parser, text, again.data(), std::min(first_room, again.size()));
    if (result == JSONRPC_ERROR_TOKENS) {
        result = parse(parser, text, again.data(), again.size());
    }
    require(result == count);
    require(std::memcmp(tokens.data(), again.data(), tokens.size() * sizeof tokens[0]) == 0);
}
