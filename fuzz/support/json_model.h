// A second reader of JSON documents, to compare the first one's verdicts with.
#pragma once

#include <cstring>
#include <string>

#include <routerkit/json.h>

namespace fuzz {

// The rules once more, slowly and without a tree: the position reached, and the error so far.
class JsonModel {
  public:
    explicit JsonModel(const std::string &text) : text_(text) {}

    int run() {
        value();
        return error_;
    }

  private:
    char at() const { return pos_ < text_.size() ? text_[pos_] : '\0'; }

    bool is_digit() const { return at() >= '0' && at() <= '9'; }

    void space() {
        while (at() != '\0' && std::strchr(" \t\r\n", at()) != nullptr) {
            ++pos_;
        }
    }

    void value() {
        if (++nodes_ > JSON_MAX_NODES) {
            error_ = JSON_ERROR_NODES;
            return;
        }
        space();
        size_t start = pos_;
        string();
        if (error_ != 0) {
            return;
        }
        for (void (JsonModel::*part)() :
             {&JsonModel::number, &JsonModel::object, &JsonModel::array, &JsonModel::literals}) {
            if (pos_ == start && error_ == 0) {
                (this->*part)();
            }
        }
        if (error_ == 0 && pos_ == start) {
            error_ = JSON_ERROR_SYNTAX;
        }
        if (error_ == 0) {
            space();
        }
    }

    void string() {
        if (at() != '"') {
            return;
        }
        for (++pos_; at() != '"'; ++pos_) {
            pos_ += at() == '\\' ? 1 : 0;
            if (at() == '\0') {
                error_ = JSON_ERROR_STRING;
                return;
            }
        }
        ++pos_;
    }

    void number() {
        if (at() == '-' || is_digit()) {
            do {
                ++pos_;
            } while (is_digit());
        }
    }

    void literals() {
        for (const char *word : {"true", "false", "null"}) {
            if (at() == *word) {
                if (text_.compare(pos_, std::strlen(word), word) == 0) {
                    pos_ += std::strlen(word);
                    return;
                }
                error_ = JSON_ERROR_SYNTAX;
                return;
            }
        }
    }

    bool key() {
        bool found = at() == '"';
        string();
        space();
        found = found && at() == ':';
        pos_ += found ? 1 : 0;
        error_ = found ? error_ : JSON_ERROR_KEY;
        return found;
    }

    void object() { container('{', '}'); }

    void array() { container('[', ']'); }

    void container(char open, char close) {
        if (at() != open) {
            return;
        }
        bool object = open == '{';
        ++pos_;
        space();
        int count = 0;
        for (bool more = object ? at() == '"' : at() != close; more;) {
            if (count++ == JSON_MAX_CHILDREN) {
                error_ = JSON_ERROR_CHILDREN;
                return;
            }
            if (object && !key()) {
                return;
            }
            value();
            if (error_ == JSON_ERROR_NODES) {
                return;
            }
            space();
            more = at() == ',';
            if (more) {
                ++pos_;
                space();
                more = object || at() != close;
            }
        }
        if (at() == close) {
            ++pos_;
        } else {
            error_ = JSON_ERROR_SYNTAX;
        }
    }

    std::string text_;
    size_t pos_ = 0;
    int nodes_ = 0;
    int error_ = 0;
};

} // namespace fuzz
