#include "proc/cmdline.h"

#include <cerrno>

#include "support/lab.h"

namespace {

// The words in brackets, "> " and the redirection's path; or "E2BIG". The text ends right before an
// unreadable page: nothing is read past its terminator.
std::string split(const std::string &text, bool wants_target = true) {
    lab::Fenced command({text.c_str(), text.size() + 1});
    char *words[rk::kWordSlots];
    char *target = command.data();
    int count = rk::split_cmdline(words, wants_target ? &target : nullptr, command.data());
    if (count < 0) {
        return count == -1 && errno == E2BIG ? "E2BIG" : "?";
    }
    std::string result;
    for (int i = 0; i < count; ++i) {
        result += std::string("[") + words[i] + "]";
    }
    EXPECT_EQ(words[count], nullptr);
    return !wants_target || target == nullptr ? result : result + "> " + target;
}

void expect_splits(std::initializer_list<std::pair<const char *, const char *>> cases) {
    for (auto [text, expected] : cases) {
        EXPECT_EQ(split(text), expected) << text;
    }
}

TEST(CommandLine, SpacesAndAmpersands) {
    expect_splits({{"ls -l 'my dir' a\\ b", "[ls][-l][my dir][a b]"},
                   {"  a   b", "[a][b]"},
                   {"a b ", "[a][b]"},
                   {"a b  ", "[a][b][]"},
                   {"a\tb", "[a\tb]"},
                   {"", ""},
                   {"    ", ""},
                   {"sleep 1   &", "[sleep][1]"},
                   {"a && b", "[a][&&][b]"},
                   {"a & ", "[a][&]"},
                   {"a &&", "[a][&]"},
                   {"  &", ""},
                   {"a|b; $c *", "[a|b;][$c][*]"}});
}

TEST(CommandLine, QuotesAndBackslashes) {
    expect_splits({{"\"a b\" c'd 'e", "[a b][cd e]"},
                   {"'' \"\"", "[][]"},
                   {"\"it's\" '\"'", "[it's][\"]"},
                   {"'open to the end  ", "[open to the end  ]"},
                   {"a '", "[a][]"},
                   {R"(\\ \' \" \a)", R"([\][']["][a])"},
                   {R"('a\'b' "c\"d" 'e\\' 'f\g')", R"([a'b][c"d][e\][fg])"},
                   {"a\\", "[a\\]"},
                   {"'a\\", "[a\\]"}});
}

TEST(CommandLine, Redirections) {
    expect_splits({{"echo a>/tmp/x", "[echo][a]> /tmp/x"},
                   {"echo a   >    /tmp/x y ", "[echo][a]> /tmp/x y "},
                   {"echo a > /tmp/x &", "[echo][a]> /tmp/x"},
                   {"echo 'a b' >/tmp/x", "[echo][a b]> /tmp/x"},
                   {"echo a >", "[echo][a]> "},
                   {"echo a >> /tmp/x", "[echo][a][>]> /tmp/x"},
                   {"echo a>>/tmp/x", "[echo][a>]> /tmp/x"},
                   {"echo a 2> /tmp/x", "[echo][a][2]> /tmp/x"},
                   {"a > b > c", "[a][>][b]> c"},
                   {" > /tmp/x", "> /tmp/x"},
                   {"echo 'a>b'", "[echo][a>b]"},
                   {"echo a>b \"c\"", "[echo][a>b][c]"},
                   {"echo a\\>b", "[echo][a>b]"},
                   {"> /tmp/x", "[>][/tmp/x]"},
                   {"a > b \\> c", "[a][>][b][>][c]"}});
    EXPECT_EQ(split("echo a > /tmp/x", false), "[echo][a]") << "dropped where nobody wants it";
}

TEST(CommandLine, AtMost31Words) {
    std::string words;
    std::string expected;
    for (int i = 0; i < 31; ++i) {
        words += "w ";
        expected += "[w]";
    }
    EXPECT_EQ(split(words), expected);
    EXPECT_EQ(split(words + " "), "E2BIG") << "an empty word is a word";
    EXPECT_EQ(split(words + "w"), "E2BIG");
}

} // namespace
