#include <routerkit/json.h>

#include <cstddef>
#include <cstdlib>
#include <cstring>

#include "http/json_text.h"

static_assert(offsetof(json_node_t, value) == 2 * sizeof(void *) &&
                  sizeof(json_node_t) == (2 + JSON_MAX_CHILDREN + 1) * sizeof(void *),
              "host programs walk the tree");

namespace {

constexpr int kDigitsThatFit = 9; // of an int32_t

bool is_space(char character) {
    return character == ' ' || character == '\n' || character == '\r' || character == '\t';
}

inline char *skip_space(char *pos) {
    while (static_cast<unsigned char>(*pos) <= ' ' && is_space(*pos)) {
        ++pos;
    }
    return pos;
}

bool is_digit(char character) {
    return character >= '0' && character <= '9';
}

char *fail_at(json_ctx_t *ctx, int error, char *pos) {
    ctx->error = error;
    return pos;
}

// The rest of a string from the first character on that is not plain.
[[gnu::noinline]] char *end_escaped_string(json_ctx_t *ctx, char *pos, char *end) {
    while (*pos != '"') {
        if (pos < end && *pos == '\\') {
            ++pos; // what it escapes may be a quote
        }
        if (pos >= end || *pos == '\0') {
            return fail_at(ctx, JSON_ERROR_STRING, pos);
        }
        pos = const_cast<char *>(rk::skip_plain(pos + 1, end));
    }
    *pos = '\0';
    return pos + 1;
}

// Ends the string whose first character is at `pos`; returns the position behind its quote.
inline char *end_string(json_ctx_t *ctx, char *pos, char *end) {
    pos = const_cast<char *>(rk::skip_plain(pos, end));
    if (*pos != '"') [[unlikely]] {
        return end_escaped_string(ctx, pos, end);
    }
    *pos = '\0';
    return pos + 1;
}

// Exactly this word at `pos`, read no further than its first difference.
bool spells(const char *pos, const char *word, size_t length) {
    return std::strncmp(pos, word, length) == 0;
}

// As if the parsers were tried in their order: once there is an error, the first one, for strings,
// is the only one that still takes a value.
[[gnu::always_inline]] inline char *parse_any(json_ctx_t *ctx, json_node_t *node, char *pos,
                                              char *end) {
    pos = skip_space(pos);
    char *start = pos;
    if (*pos == '"') {
        pos = json_parse_string(ctx, node, pos, end);
    } else if (ctx->error == 0) {
        switch (*pos) {
        case '{':
            pos = json_parse_object(ctx, node, pos, end);
            break;
        case '[':
            pos = json_parse_array(ctx, node, pos, end);
            break;
        case 't':
        case 'f':
            pos = json_parse_boolean(ctx, node, pos, end);
            break;
        case 'n':
            pos = json_parse_null(ctx, node, pos, end);
            break;
        default:
            pos = json_parse_number(ctx, node, pos, end);
        }
    }
    if (ctx->error != 0) {
        return pos;
    }
    return pos != start ? skip_space(pos) : fail_at(ctx, JSON_ERROR_SYNTAX, pos);
}

// The next child of a container: parsed from `pos` on, and appended. A node that cannot be had ends
// the parse.
[[gnu::always_inline]] inline char *parse_child(json_ctx_t *ctx, json_node_t *parent, char *key,
                                                char *pos, char *end) {
    json_node_t *child = json_alloc(ctx);
    if (child == nullptr) {
        return fail_at(ctx, JSON_ERROR_NODES, pos);
    }
    child->key = key;
    pos = parse_any(ctx, child, pos, end);
    parent->value.children[parent->count++] = child;
    return skip_space(pos);
}

// The bracket or brace that closes a container.
char *close_container(json_ctx_t *ctx, char *pos, char bracket) {
    return *pos == bracket ? pos + 1 : fail_at(ctx, JSON_ERROR_SYNTAX, pos);
}

} // namespace

extern json_parser_t *const parsers[6] = {json_parse_string, json_parse_number,  json_parse_object,
                                          json_parse_array,  json_parse_boolean, json_parse_null};

json_node_t *json_alloc(json_ctx_t *ctx) {
    return ctx->used < JSON_MAX_NODES ? &ctx->nodes[ctx->used++] : nullptr;
}

json_node_t *json_parse(json_ctx_t *ctx, char *text, size_t len) {
    ctx->used = 0;
    ctx->error = 0;
    json_node_t *root = json_alloc(ctx);
    json_parse_value(ctx, root, text, text + len);
    return ctx->error == 0 ? root : nullptr;
}

char *json_parse_string(json_ctx_t *ctx, json_node_t *node, char *pos, char *end) {
    if (*pos != '"') {
        return pos;
    }
    node->type = JSON_STRING;
    node->value.string = pos + 1;
    return end_string(ctx, pos + 1, end);
}

char *json_parse_number(json_ctx_t *, json_node_t *node, char *pos, char *) {
    if (*pos != '-' && !is_digit(*pos)) {
        return pos;
    }
    char *start = pos;
    bool negative = *pos == '-';
    pos += negative ? 1 : 0;
    char *digits = pos;
    uint32_t value = 0;
    for (; is_digit(*pos); ++pos) {
        value = value * 10 + static_cast<uint32_t>(*pos - '0');
    }
    node->type = JSON_NUMBER;
    if (pos - digits > kDigitsThatFit) {
        node->value.number = std::atoi(start);
    } else {
        node->value.number = static_cast<int32_t>(negative ? 0 - value : value);
    }
    return pos;
}

char *json_parse_boolean(json_ctx_t *ctx, json_node_t *node, char *pos, char *) {
    if (*pos != 't' && *pos != 'f') {
        return pos;
    }
    node->type = JSON_BOOLEAN;
    if (spells(pos, "true", 4)) {
        node->value.number = 1;
        return pos + 4;
    }
    if (spells(pos, "false", 5)) {
        node->value.number = 0;
        return pos + 5;
    }
    return fail_at(ctx, JSON_ERROR_SYNTAX, pos);
}

char *json_parse_null(json_ctx_t *ctx, json_node_t *node, char *pos, char *) {
    if (*pos != 'n') {
        return pos;
    }
    node->type = JSON_NULL;
    return spells(pos, "null", 4) ? pos + 4 : fail_at(ctx, JSON_ERROR_SYNTAX, pos);
}

char *json_parse_array(json_ctx_t *ctx, json_node_t *node, char *pos, char *end) {
    if (*pos != '[') {
        return pos;
    }
    node->type = JSON_ARRAY;
    node->count = 0;
    pos = skip_space(pos + 1);
    while (*pos != ']') {
        if (node->count == JSON_MAX_CHILDREN) {
            return fail_at(ctx, JSON_ERROR_CHILDREN, pos);
        }
        pos = parse_child(ctx, node, nullptr, pos, end);
        if (ctx->error == JSON_ERROR_NODES) {
            return pos;
        }
        if (*pos != ',') {
            break;
        }
        pos = skip_space(pos + 1);
    }
    return close_container(ctx, pos, ']');
}

char *json_parse_object(json_ctx_t *ctx, json_node_t *node, char *pos, char *end) {
    if (*pos != '{') {
        return pos;
    }
    node->type = JSON_OBJECT;
    node->count = 0;
    pos = skip_space(pos + 1);
    if (*pos != '"') {
        return close_container(ctx, pos, '}');
    }
    for (;;) {
        if (node->count == JSON_MAX_CHILDREN) {
            return fail_at(ctx, JSON_ERROR_CHILDREN, pos);
        }
        if (*pos != '"') {
            return fail_at(ctx, JSON_ERROR_KEY, pos);
        }
        char *key = pos + 1;
        pos = skip_space(end_string(ctx, key, end));
        if (*pos != ':') {
            return fail_at(ctx, JSON_ERROR_KEY, pos);
        }
        pos = parse_child(ctx, node, key, pos + 1, end);
        if (ctx->error == JSON_ERROR_NODES) {
            return pos;
        }
        if (*pos != ',') {
            return close_container(ctx, pos, '}');
        }
        pos = skip_space(pos + 1);
    }
}

char *json_parse_value(json_ctx_t *ctx, json_node_t *node, char *pos, char *end) {
    return parse_any(ctx, node, pos, end);
}

json_node_t *json_getChildByKey(const json_node_t *node, const char *key) {
    if (node == nullptr || node->type != JSON_OBJECT) {
        return nullptr;
    }
    for (int i = 0; i < node->count; ++i) {
        if (std::strcmp(node->value.children[i]->key, key) == 0) {
            return node->value.children[i];
        }
    }
    return nullptr;
}

json_node_t *json_getArrayElementByIndex(const json_node_t *node, int index) {
    return index >= 0 && index < node->count ? node->value.children[index] : nullptr;
}

int json_getInt(const json_node_t *node) {
    return node->value.number;
}

char *json_enscape(char *str) {
    static constexpr char kEscapes[] = "\"\\/bfnrt";
    static constexpr char kMeanings[] = "\"\\/\b\f\n\r\t";
    char *out = str;
    for (const char *in = str; *in != '\0'; ++in) {
        if (*in != '\\') {
            *out++ = *in;
            continue;
        }
        ++in;
        const void *known = std::memchr(kEscapes, *in, sizeof kEscapes - 1);
        if (known == nullptr) {
            return nullptr;
        }
        *out++ = kMeanings[static_cast<const char *>(known) - kEscapes];
    }
    *out = '\0';
    return str;
}
