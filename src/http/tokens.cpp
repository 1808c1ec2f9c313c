#include <routerkit/tokens.h>

#include <algorithm>
#include <climits>
#include <cstring>

#include "http/json_text.h"
#include "support/hex_digits.h"

static_assert(sizeof(jsonrpc_token_t) == 16 && sizeof(jsonrpc_parser_t) == 12,
              "host programs own them");

namespace {

using rk::at;

bool is_printable(const char *pos) {
    return at(pos) >= ' ' && at(pos) <= '~';
}

bool ends_primitive(const char *pos) {
    return at(pos) == ',' || at(pos) == '}' || at(pos) == ']' || rk::is_space(pos);
}

bool is_container(const jsonrpc_token_t &token) {
    return token.type == JSONRPC_TOKEN_OBJECT || token.type == JSONRPC_TOKEN_ARRAY;
}

bool is_open(const jsonrpc_token_t &token) {
    return token.start != -1 && token.end == -1;
}

// The open containers of a token array, by index. The innermost ones are remembered, so that
// closing one does not search through all the tokens since its start; deeper nesting than there is
// room for is found by that search.
class OpenTokens {
  public:
    explicit OpenTokens(const jsonrpc_token_t *tokens) : tokens_(tokens) {}

    [[nodiscard]] int32_t innermost() const {
        return depth_ != 0 ? remembered_[depth_ % kRoom] : -1;
    }

    void push(int32_t token) {
        remembered_[++depth_ % kRoom] = token;
        known_ = std::min(known_ + 1, kRoom);
    }

    void pop() {
        int32_t closed = innermost();
        --depth_;
        if (--known_ == 0 && depth_ != 0) {
            do {
                --closed;
            } while (!is_open(tokens_[closed]));
            remembered_[depth_ % kRoom] = closed;
            known_ = 1;
        }
    }

  private:
    static constexpr size_t kRoom = 32;

    const jsonrpc_token_t *tokens_;
    size_t depth_ = 0;
    size_t known_ = 0; // how many of the innermost are remembered
    int32_t remembered_[kRoom];
};

// One call's work on a text and its tokens. The state is the parser's, in registers meanwhile.
class Scanner {
  public:
    Scanner(const jsonrpc_parser_t &parser, const char *text, size_t len, jsonrpc_token_t *tokens,
            unsigned count, OpenTokens &open)
        : text_(text), pos_(text + parser.pos), end_(text + std::min(len, size_t{INT_MAX})),
          tokens_(tokens), next_(parser.next_token), room_(count), super_(parser.super),
          found_(static_cast<int>(parser.next_token)), open_(open) {}

    int run() {
        find_open_tokens();
        for (; !at_end(pos_); ++pos_) {
            int error = step();
            if (error != 0) {
                return error;
            }
        }
        return open_.innermost() != -1 ? JSONRPC_ERROR_END : found_;
    }

    [[nodiscard]] jsonrpc_parser_t state() const {
        return {static_cast<uint32_t>(pos_ - text_), next_, super_};
    }

  private:
    [[nodiscard]] bool at_end(const char *pos) const { return pos >= end_ || at(pos) == '\0'; }

    [[nodiscard]] int32_t offset(const char *pos) const {
        return static_cast<int32_t>(pos - text_);
    }

    // The more frequent first.
    int step() {
        switch (at(pos_)) {
        case '"':
            return scan_string();
        case ',':
            leave_key();
            return 0;
        case ':':
            super_ = static_cast<int32_t>(next_) - 1;
            return 0;
        default:
            return rk::is_space(pos_) ? skip_indent() : scan_other();
        }
    }

    // To the last one of some spaces.
    int skip_indent() {
        while (end_ - pos_ > 1 && pos_[1] == ' ') {
            ++pos_;
        }
        return 0;
    }

    int scan_other() {
        switch (at(pos_)) {
        case '{':
            return open_container(JSONRPC_TOKEN_OBJECT);
        case '[':
            return open_container(JSONRPC_TOKEN_ARRAY);
        case '}':
            return close_container(JSONRPC_TOKEN_OBJECT);
        case ']':
            return close_container(JSONRPC_TOKEN_ARRAY);
        default:
            return scan_primitive();
        }
    }

    // Counts a token and, with an array, stores it; false when that is full.
    bool add(int type, int32_t start, int32_t end) {
        if (tokens_ != nullptr) {
            if (next_ >= room_) {
                return false;
            }
            if (super_ != -1) {
                ++tokens_[super_].size;
            }
            tokens_[next_++] = {type, start, end, 0};
        }
        ++found_;
        return true;
    }

    int open_container(int type) {
        if (!add(type, offset(pos_), -1)) {
            return JSONRPC_ERROR_TOKENS;
        }
        if (tokens_ != nullptr) {
            super_ = static_cast<int32_t>(next_) - 1;
            open_.push(super_);
        }
        return 0;
    }

    int close_container(int type) {
        if (tokens_ == nullptr) {
            return 0;
        }
        int32_t open = open_.innermost();
        if (open == -1 || tokens_[open].type != type) {
            return JSONRPC_ERROR_TEXT;
        }
        tokens_[open].end = offset(pos_) + 1;
        open_.pop();
        super_ = open_.innermost();
        return 0;
    }

    // Behind a member's value new tokens belong to the object again.
    void leave_key() {
        if (tokens_ != nullptr && super_ != -1 && !is_container(tokens_[super_])) {
            int32_t open = open_.innermost();
            super_ = open != -1 ? open : super_;
        }
    }

    int scan_string() {
        const char *start = pos_ + 1;
        for (const char *pos = start;; ++pos) {
            pos = rk::skip_plain(pos, end_);
            if (pos < end_ && *pos == '"') {
                return add_span(JSONRPC_TOKEN_STRING, start, pos, pos);
            }
            if (at_end(pos)) {
                return JSONRPC_ERROR_END;
            }
            if (pos + 1 != end_ && !skip_escape(pos)) {
                return JSONRPC_ERROR_TEXT;
            }
        }
    }

    // A token from `start` to `end`; `last` is the last character of its text.
    int add_span(int type, const char *start, const char *end, const char *last) {
        if (!add(type, offset(start), offset(end))) {
            return JSONRPC_ERROR_TOKENS;
        }
        pos_ = last;
        return 0;
    }

    // Goes from a backslash, which is not the last character, to the end of its escape.
    bool skip_escape(const char *&pos) const {
        char escaped = *++pos;
        if (escaped != 'u') {
            return escaped != '\0' && std::strchr("\"/\\bfrnt", escaped) != nullptr;
        }
        for (int digits = 0; digits < 4 && pos + 1 != end_ && pos[1] != '\0'; ++digits) {
            if (rk::hex_value(*++pos) < 0) {
                return false;
            }
        }
        return true;
    }

    int scan_primitive() {
        const char *pos = pos_;
        for (; !at_end(pos) && !ends_primitive(pos); ++pos) {
            if (!is_printable(pos)) {
                return JSONRPC_ERROR_TEXT;
            }
        }
        return add_span(JSONRPC_TOKEN_PRIMITIVE, pos_, pos, pos - 1);
    }

    // Those that an earlier call on the same text left open.
    void find_open_tokens() {
        for (uint32_t i = 0; tokens_ != nullptr && i < next_; ++i) {
            if (is_open(tokens_[i])) {
                open_.push(static_cast<int32_t>(i));
            }
        }
    }

    const char *text_;
    const char *pos_;
    const char *end_;
    jsonrpc_token_t *tokens_;
    uint32_t next_; // the next free token
    unsigned room_;
    int32_t super_;
    int found_;
    OpenTokens &open_;
};

} // namespace

void jsonrpc_init(jsonrpc_parser_t *parser) {
    *parser = {0, 0, -1};
}

int jsonrpc_parse(jsonrpc_parser_t *parser, const char *text, size_t len, jsonrpc_token_t *tokens,
                  unsigned count) {
    if (tokens != nullptr && parser->next_token > count) {
        return JSONRPC_ERROR_TOKENS; // fewer than an earlier call has filled
    }
    OpenTokens open(tokens);
    Scanner scanner(*parser, text, len, tokens, count, open);
    int result = scanner.run();
    *parser = scanner.state();
    return result;
}

int jsonrpc_strncmp(const char *text, const jsonrpc_token_t *token, const char *key) {
    auto length = static_cast<size_t>(token->end - token->start);
    return token->type == JSONRPC_TOKEN_STRING && std::strlen(key) == length &&
                   std::memcmp(text + token->start, key, length) == 0
               ? 0
               : -1;
}
