// JSON tokens: read at once, counted only, and in two calls; then what the extender's readers make
// of them, whether the text was read to its end or not.
#include <routerkit/tokens.h>

#include <algorithm>
#include <cstring>
#include <vector>

#include <routerkit/extender.h>

#include "support/fuzz.h"

namespace {

using Tokens = std::vector<jsonrpc_token_t>;

int parse(jsonrpc_parser_t &parser, lab::Fenced &text, Tokens &tokens, size_t count) {
    return jsonrpc_parse(&parser, text.data(), text.size(), tokens.data(),
                         static_cast<unsigned>(count));
}

bool same(const Tokens &left, const Tokens &right) {
    return std::memcmp(left.data(), right.data(), left.size() * sizeof left[0]) == 0;
}

bool has_end(const char *field, size_t size) {
    return std::memchr(field, '\0', size) != nullptr;
}

} // namespace

void fuzz::run(std::string_view input) {
    size_t first_room = take(input);
    lab::Fenced text(input);
    const Tokens unset(input.size() + 1, {0, -1, -1, 0});
    Tokens tokens = unset;
    jsonrpc_parser_t parser, counter;
    jsonrpc_init(&parser);
    counter = parser;
    int count = parse(parser, text, tokens, tokens.size());
    require(parser.pos <= input.size() && parser.next_token <= tokens.size());
    require(count < 0 || jsonrpc_parse(&counter, text.data(), text.size(), nullptr, 0) == count);
    for (unsigned i = 0; i < parser.next_token; ++i) {
        const jsonrpc_token_t &token = tokens[i];
        require(token.start >= 0 && token.end <= static_cast<int>(input.size()));
        require(token.end == -1 ? count < 0 : token.start <= token.end);
    }

    Tokens again = unset;
    jsonrpc_init(&parser);
    int result = parse(parser, text, again, std::min(first_room, again.size()));
    result = result == JSONRPC_ERROR_TOKENS ? parse(parser, text, again, again.size()) : result;
    require(result == count && same(tokens, again));

    lab::Fenced record(std::string(sizeof(extender_info_t), '\0'));
    auto *info = reinterpret_cast<extender_info_t *>(record.data());
    int seen = static_cast<int>(count < 0 ? parser.next_token : static_cast<unsigned>(count));
    json_getKavraWiFiExtenderSlavesInfo(info, text.data(), nullptr, seen, tokens.data());
    require(has_end(info->up_time, 16) && has_end(info->hardware_version, 32));
    lab::Fenced log(std::string(input.size() / 4 * 3 + 2, '#'));
    require(json_getKavraWiFiExtenderSlavesLog(log.data(), text.data(), nullptr, seen,
                                               tokens.data()) == 0);
    require(has_end(log.data(), log.size()));
}
