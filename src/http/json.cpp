#include <routerkit/json.h>

#include <cstddef>
#include <cstdlib>
#include <cstring>

#include "http/json_text.h"
#include "support/build.h"

static_assert(offsetof(json_node_t, value) == 2 * sizeof(void *) &&
                  sizeof(json_node_t) == (2 + JSON_MAX_CHILDREN + 1) * sizeof(void *),
              "host programs walk the tree");

namespace {

constexpr int kDigitsThatFit = 9; // of an int32_t

using rk::at;
using rk::is_space;

inline char *skip_space(char *pos) {
    while (is_space(pos)) {
        do {
            ++pos;
        } while (at(pos) == ' '); // which indents
    }
    return pos;
}

inline unsigned digit_at(const char *pos) {
    return at(pos) - unsigned{'0'};
}

inline bool is_number(const char *pos) {
    return digit_at(pos) <= 9 || at(pos) == '-';
}

// Spent nodes are the one error that no other replaces.
char *fail_at(json_ctx_t *ctx, int error, char *pos) {
    if (ctx->error != JSON_ERROR_NODES) {
        ctx->error = error;
    }
    return pos;
}

// The rest of a string from the first character on that is not plain.
[[gnu::noinline]] char *end_escaped_string(json_ctx_t *ctx, char *pos, char *end) {
    while (at(pos) != '"') {
        if (pos < end && at(pos) == '\\') {
            ++pos; // what it escapes may be a quote
        }
        if (pos >= end || at(pos) == '\0') {
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
    if (at(pos) != '"') [[unlikely]] {
        return end_escaped_string(ctx, pos, end);
    }
    *pos = '\0';
    return pos + 1;
}

// Exactly this word at `pos`, read no further than its first difference.
bool spells(const char *pos, const char *word, size_t length) {
    return std::strncmp(pos, word, length) == 0;
}

char *parse_children(json_ctx_t *ctx, json_node_t *node, char *pos, char *end);

inline char *parse_string(json_ctx_t *ctx, json_node_t *node, char *pos, char *end) {
    node->type = JSON_STRING;
    node->value.string = pos + 1;
    return end_string(ctx, pos + 1, end);
}

inline char *parse_number(json_node_t *node, char *pos) {
    char *start = pos;
    bool negative = at(pos) == '-';
    pos += negative ? 1 : 0;
    char *digits = pos;
    uint32_t value = 0;
    for (; digit_at(pos) <= 9; ++pos) {
        value = value * 10 + digit_at(pos);
    }
    node->type = JSON_NUMBER;
    node->value.number = static_cast<int32_t>(negative ? 0 - value : value);
    if (pos - digits > kDigitsThatFit) [[unlikely]] {
        node->value.number = std::atoi(start);
    }
    return pos;
}

char *parse_literal(json_ctx_t *ctx, json_node_t *node, char *pos, char *end) {
    switch (*pos) {
    case 't':
    case 'f':
        return json_parse_boolean(ctx, node, pos, end);
    case 'n':
        return json_parse_null(ctx, node, pos, end);
    default:
        return fail_at(ctx, JSON_ERROR_SYNTAX, pos);
    }
}

// The value at `pos`, as if the parsers were tried in their order: once there is an error, the first
// one, for strings, is the only one that still takes a value.
[[gnu::always_inline]] inline char *parse_here(json_ctx_t *ctx, json_node_t *node, char *pos,
                                               char *end) {
    if (at(pos) == '"') {
        return parse_string(ctx, node, pos, end);
    }
    if (ctx->error != 0) {
        return pos;
    }
    if (is_number(pos)) {
        return parse_number(node, pos);
    }
    if (at(pos) == '{' || at(pos) == '[') {
        return parse_children(ctx, node, pos, end);
    }
    return parse_literal(ctx, node, pos, end);
}

char *parse_any(json_ctx_t *ctx, json_node_t *node, char *pos, char *end) {
    return parse_here(ctx, node, pos, end);
}

// Takes the key at `pos` and the colon behind it; null, with `pos` where it ends, for none.
inline char *parse_key(json_ctx_t *ctx, char *&pos, char *end) {
    char *key = pos + 1;
    if (at(pos) == '"') {
        pos = skip_space(end_string(ctx, key, end));
        if (at(pos) == ':') {
            pos = skip_space(pos + 1);
            return key;
        }
    }
    fail_at(ctx, JSON_ERROR_KEY, pos);
    return nullptr;
}

// An object or array from its bracket on.
char *parse_children(json_ctx_t *ctx, json_node_t *node, char *pos, char *end) {
    bool object = at(pos) == '{';
    char closing = object ? '}' : ']';
    int32_t count = 0;
    node->type = object ? JSON_OBJECT : JSON_ARRAY;
    node->count = 0;
    pos = skip_space(pos + 1);
    bool more = object ? at(pos) == '"' : at(pos) != ']';
    for (; more; more = object || at(pos) != ']') {
        if (count == JSON_MAX_CHILDREN) {
            return fail_at(ctx, JSON_ERROR_CHILDREN, pos);
        }
        char *key = object ? parse_key(ctx, pos, end) : nullptr;
        if (object && key == nullptr) {
            return pos;
        }
        json_node_t *child = json_alloc(ctx);
        if (child == nullptr) {
            return fail_at(ctx, JSON_ERROR_NODES, pos);
        }
        child->key = key;
        pos = rk::kForSize ? parse_any(ctx, child, pos, end) : parse_here(ctx, child, pos, end);
        pos = skip_space(pos);
        node->value.children[count] = child;
        node->count = ++count;
        if (at(pos) != ',') {
            break;
        }
        pos = skip_space(pos + 1);
    }
    return *pos == closing ? pos + 1 : fail_at(ctx, JSON_ERROR_SYNTAX, pos);
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
    return at(pos) == '"' ? parse_string(ctx, node, pos, end) : pos;
}

char *json_parse_number(json_ctx_t *, json_node_t *node, char *pos, char *) {
    return is_number(pos) ? parse_number(node, pos) : pos;
}

char *json_parse_boolean(json_ctx_t *ctx, json_node_t *node, char *pos, char *) {
    if (at(pos) != 't' && at(pos) != 'f') {
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
    if (at(pos) != 'n') {
        return pos;
    }
    node->type = JSON_NULL;
    return spells(pos, "null", 4) ? pos + 4 : fail_at(ctx, JSON_ERROR_SYNTAX, pos);
}

char *json_parse_array(json_ctx_t *ctx, json_node_t *node, char *pos, char *end) {
    return at(pos) == '[' ? parse_children(ctx, node, pos, end) : pos;
}

char *json_parse_object(json_ctx_t *ctx, json_node_t *node, char *pos, char *end) {
    return at(pos) == '{' ? parse_children(ctx, node, pos, end) : pos;
}

char *json_parse_value(json_ctx_t *ctx, json_node_t *node, char *pos, char *end) {
    pos = parse_any(ctx, node, skip_space(pos), end);
    return ctx->error == 0 ? skip_space(pos) : pos;
}

json_node_t *json_getChildByKey(const json_node_t *node, const char *key) {
    if (node == nullptr || node->type != JSON_OBJECT) {
        return nullptr;
    }
    for (int i = 0; i < node->count; ++i) {
        json_node_t *child = node->value.children[i];
        if (*child->key == *key && std::strcmp(child->key, key) == 0) { // most differ at once
            return child;
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
