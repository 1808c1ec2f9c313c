#include <routerkit/tokens.h>

#include <algorithm>
#include <climits>
#include <cstring>

#include "http/json_text.h"
#include "support/hex_digits.h"

static_assert(sizeof(jsonrpc_token_t) == 16 && sizeof(jsonrpc_parser_t) == 12,
              "host programs own them");

namespace {

bool ends_primitive(char character) {
    switch (character) {
    case ' ':
    case '\t':
    case '\r':
    case '\n':
    case ',':
    case ']':
    case '}':
        return true;
    default:
        return false;
    }
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

// One call's work on a text and its tokens.
class Scanner {
  public:
    Scanner(jsonrpc_parser_t &parser, const char *text, size_t len, jsonrpc_token_t *tokens,
            unsigned count)
        : parser_(parser), text_(text),
          length_(static_cast<uint32_t>(std::min(len, size_t{INT_MAX}))), tokens_(tokens),
          room_(count), found_(static_cast<int>(parser.next_token)), open_(tokens) {}

    int run() {
        find_open_tokens();
        for (; !at_end(parser_.pos); ++parser_.pos) {
            int error = step(text_[parser_.pos]);
            if (error != 0) {
                return error;
            }
        }
        return open_.innermost() != -1 ? JSONRPC_ERROR_END : found_;
    }

  private:
    [[nodiscard]] bool at_end(uint32_t pos) const { return pos >= length_ || text_[pos] == '\0'; }

    int step(char character) {
        switch (character) {
        case '{':
            return open_container(JSONRPC_TOKEN_OBJECT);
        case '[':
            return open_container(JSONRPC_TOKEN_ARRAY);
        case '}':
            return close_container(JSONRPC_TOKEN_OBJECT);
        case ']':
            return close_container(JSONRPC_TOKEN_ARRAY);
        case '"':
            return scan_string();
        case ' ':
        case '\t':
        case '\r':
        case '\n':
            return 0;
        case ':':
            parser_.super = static_cast<int32_t>(parser_.next_token) - 1;
            return 0;
        case ',':
            leave_key();
            return 0;
        default:
            return scan_primitive();
        }
    }

    // Counts a token and, with an array, stores it; false when that is full.
    bool add(int type, int32_t start, int32_t end) {
        if (tokens_ != nullptr) {
            if (parser_.next_token >= room_) {
                return false;
            }
            if (parser_.super != -1) {
                ++tokens_[parser_.super].size;
            }
            tokens_[parser_.next_token++] = {type, start, end, 0};
        }
        ++found_;
        return true;
    }

    int open_container(int type) {
        if (!add(type, static_cast<int32_t>(parser_.pos), -1)) {
            return JSONRPC_ERROR_TOKENS;
        }
        if (tokens_ != nullptr) {
            parser_.super = static_cast<int32_t>(parser_.next_token) - 1;
            open_.push(parser_.super);
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
        tokens_[open].end = static_cast<int32_t>(parser_.pos) + 1;
        open_.pop();
        parser_.super = open_.innermost();
        return 0;
    }

    // Behind a member's value new tokens belong to the object again.
    void leave_key() {
        if (tokens_ != nullptr && parser_.super != -1 && !is_container(tokens_[parser_.super])) {
            int32_t open = open_.innermost();
            parser_.super = open != -1 ? open : parser_.super;
        }
    }

    int scan_string() {
        const char *start = text_ + parser_.pos + 1;
        const char *end = text_ + length_;
        for (const char *pos = start;; ++pos) {
            pos = rk::skip_plain(pos, end);
            if (pos == end || *pos == '\0') {
                return JSONRPC_ERROR_END;
            }
            if (*pos == '"') {
                return add_string(start, pos);
            }
            if (pos + 1 != end && !skip_escape(pos)) {
                return JSONRPC_ERROR_TEXT;
            }
        }
    }

    int add_string(const char *start, const char *quote) {
        auto end = static_cast<int32_t>(quote - text_);
        if (!add(JSONRPC_TOKEN_STRING, static_cast<int32_t>(start - text_), end)) {
            return JSONRPC_ERROR_TOKENS;
        }
        parser_.pos = static_cast<uint32_t>(end);
        return 0;
    }

    // Goes from a backslash, which is not the last character, to the end of its escape.
    bool skip_escape(const char *&pos) const {
        char escaped = *++pos;
        if (escaped != 'u') {
            return escaped != '\0' && std::strchr("\"/\\bfrnt", escaped) != nullptr;
        }
        const char *end = text_ + length_;
        for (int digits = 0; digits < 4 && pos + 1 != end && pos[1] != '\0'; ++digits) {
            if (rk::hex_value(*++pos) < 0) {
                return false;
            }
        }
        return true;
    }

    int scan_primitive() {
        uint32_t start = parser_.pos;
        uint32_t pos = start;
        for (; !at_end(pos) && !ends_primitive(text_[pos]); ++pos) {
            if (text_[pos] < ' ' || text_[pos] > '~') {
                return JSONRPC_ERROR_TEXT;
            }
        }
        if (!add(JSONRPC_TOKEN_PRIMITIVE, static_cast<int32_t>(start), static_cast<int32_t>(pos))) {
            return JSONRPC_ERROR_TOKENS;
        }
        parser_.pos = pos - 1;
        return 0;
    }

    // Those that an earlier call on the same text left open.
    void find_open_tokens() {
        for (uint32_t i = 0; tokens_ != nullptr && i < parser_.next_token; ++i) {
            if (is_open(tokens_[i])) {
                open_.push(static_cast<int32_t>(i));
            }
        }
    }

    jsonrpc_parser_t &parser_;
    const char *text_;
    uint32_t length_;
    jsonrpc_token_t *tokens_;
    unsigned room_;
    int found_;
    OpenTokens open_;
};

} // namespace

void jsonrpc_init(jsonrpc_parser_t *parser) {
    *parser = {0, 0, -1};
}

int jsonrpc_parse(jsonrpc_parser_t *parser, const char *text, size_t len, jsonrpc_token_t *tokens,
                  unsigned count) {
    return Scanner(*parser, text, len, tokens, count).run();
}

int jsonrpc_strncmp(const char *text, const jsonrpc_token_t *token, const char *key) {
    auto length = static_cast<size_t>(token->end - token->start);
    return token->type == JSONRPC_TOKEN_STRING && std::strlen(key) == length &&
                   std::memcmp(text + token->start, key, length) == 0
               ? 0
               : -1;
}
