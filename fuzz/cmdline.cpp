// Command texts, against a splitter that copies words.
#include "proc/cmdline.h"

#include <algorithm>
#include <optional>
#include <vector>

#include "support/fuzz.h"

namespace {

constexpr size_t kNone = std::string::npos;

std::string without_last_spaces(const std::string &text) {
    return text.substr(0, text.find_last_not_of(' ') + 1);
}

std::optional<std::string> take_target(std::string &text) {
    size_t sign = text.rfind('>');
    if (sign == kNone || sign == 0 || text[sign - 1] == '\\' ||
        text.find_first_of("'\"", sign) != kNone) {
        return {};
    }
    size_t path = text.find_first_not_of(' ', sign + 1);
    std::string target = path != kNone ? text.substr(path) : "";
    text = without_last_spaces(text.substr(0, sign));
    return target;
}

std::string word_at(const std::string &text, size_t &at) {
    std::string word;
    char quote = '\0';
    for (; at < text.size() && (quote != '\0' || text[at] != ' '); ++at) {
        char next = text[at];
        if (next == '\\' && at + 1 < text.size()) {
            word += text[++at];
        } else if (quote != '\0' ? next == quote : next == '\'' || next == '"') {
            quote = quote != '\0' ? '\0' : next;
        } else {
            word += next;
        }
    }
    return word;
}

// Nothing for too many words.
std::optional<std::vector<std::string>> split(const std::string &text) {
    std::vector<std::string> words;
    if (text.find_first_not_of(' ') == kNone) {
        return words;
    }
    for (size_t at = 0; at < text.size(); ++at) { // over the space that ended a word
        if (words.size() == rk::kWordSlots - 1) {
            return {};
        }
        at = std::min(text.find_first_not_of(' ', at), text.size());
        words.push_back(word_at(text, at));
    }
    return words;
}

} // namespace

void fuzz::run(std::string_view input) {
    std::string text = text_of(input);
    lab::Fenced command = lab::Fenced::terminated(text);
    char *words[rk::kWordSlots];
    char *target = nullptr;
    int count = rk::split_cmdline(words, &target, command.data());

    text = text.ends_with('&') ? without_last_spaces(text.substr(0, text.size() - 1)) : text;
    std::optional<std::string> path = take_target(text);
    require(path ? target != nullptr && *path == target : target == nullptr);
    auto wanted = split(text);
    require(count == (wanted ? static_cast<int>(wanted->size()) : -1));
    for (int i = 0; i < count; ++i) {
        require((*wanted)[static_cast<size_t>(i)] == words[i]);
    }
    require(count < 0 || words[count] == nullptr);
}
