#include "proc/cmdline.h"

#include <cerrno>
#include <random>

#include "support/lab.h"

using lab::FailsWith;

namespace {

struct Split {
    int count = 0;
    std::vector<std::string> words;
    std::string target; // "none" without one
};

// The text ends right before an unreadable page: nothing is read past its terminator.
Split split(const std::string &text, bool wants_target = true) {
    lab::Fenced command({text.c_str(), text.size() + 1});
    char *words[rk::kWordSlots];
    char *target = command.data();
    Split result;
    result.count = rk::split_cmdline(words, wants_target ? &target : nullptr, command.data());
    for (int i = 0; i < result.count; ++i) {
        result.words.emplace_back(words[i]);
    }
    EXPECT_TRUE(result.count < 0 || words[result.count] == nullptr);
    result.target = target == nullptr ? "none" : target;
    return result;
}

TEST(CommandLine, Words) {
    struct Case {
        const char *text;
        std::vector<std::string> words;
    };
    const Case cases[] = {
        {"ls -l 'my dir' a\\ b", {"ls", "-l", "my dir", "a b"}},
        {"  a   b", {"a", "b"}},
        {"a b ", {"a", "b"}},
        {"a b  ", {"a", "b", ""}},
        {"a b     ", {"a", "b", ""}},
        {"a\tb", {"a\tb"}},
        {"", {}},
        {" ", {}},
        {"    ", {}},
        // Quotes hold words together, anywhere in a word, and may be empty.
        {"\"a b\" c'd 'e", {"a b", "cd e"}},
        {"'' \"\"", {"", ""}},
        {"\"it's\" '\"'", {"it's", "\""}},
        {"'open to the end  ", {"open to the end  "}},
        {"a '", {"a", ""}},
        // A backslash works outside and inside of quotes, and stays at the very end.
        {R"(\\ \' \" \a)", {"\\", "'", "\"", "a"}},
        {R"('a\'b' "c\"d" 'e\\' 'f\g')", {"a'b", "c\"d", "e\\", "fg"}},
        {"a\\", {"a\\"}},
        {"'a\\", {"a\\"}},
        // The ampersand means nothing, at the end; elsewhere it is a character.
        {"sleep 1 &", {"sleep", "1"}},
        {"sleep 1   &", {"sleep", "1"}},
        {"sleep 1&", {"sleep", "1"}},
        {"a && b", {"a", "&&", "b"}},
        {"a & ", {"a", "&"}},
        {"a &&", {"a", "&"}},
        {"&", {}},
        {"  &", {}},
        // No shell.
        {"a|b; $c *", {"a|b;", "$c", "*"}},
    };
    for (const Case &one : cases) {
        SCOPED_TRACE(one.text);
        Split result = split(one.text);
        EXPECT_EQ(result.words, one.words);
        EXPECT_EQ(result.count, static_cast<int>(one.words.size()));
        EXPECT_EQ(result.target, "none");
    }
}

TEST(CommandLine, Redirections) {
    struct Case {
        const char *text;
        std::vector<std::string> words;
        const char *target;
    };
    const Case cases[] = {
        {"echo a > /tmp/x", {"echo", "a"}, "/tmp/x"},
        {"echo a>/tmp/x", {"echo", "a"}, "/tmp/x"},
        {"echo a   >    /tmp/x y ", {"echo", "a"}, "/tmp/x y "},
        {"echo a > /tmp/x &", {"echo", "a"}, "/tmp/x"},
        {"echo 'a b' >/tmp/x", {"echo", "a b"}, "/tmp/x"},
        {"echo a >", {"echo", "a"}, ""},
        {"echo a >> /tmp/x", {"echo", "a", ">"}, "/tmp/x"},
        {"echo a>>/tmp/x", {"echo", "a>"}, "/tmp/x"},
        {"echo a 2> /tmp/x", {"echo", "a", "2"}, "/tmp/x"},
        {"a > b > c", {"a", ">", "b"}, "c"},
        {" > /tmp/x", {}, "/tmp/x"},
        // Not redirections.
        {"echo 'a>b'", {"echo", "a>b"}, "none"},
        {"echo a>b \"c\"", {"echo", "a>b", "c"}, "none"},
        {"echo a\\>b", {"echo", "a>b"}, "none"},
        {"> /tmp/x", {">", "/tmp/x"}, "none"},
        {"a > b \\> c", {"a", ">", "b", ">", "c"}, "none"},
    };
    for (const Case &one : cases) {
        SCOPED_TRACE(one.text);
        Split result = split(one.text);
        EXPECT_EQ(result.words, one.words);
        EXPECT_EQ(result.target, one.target);
    }
    EXPECT_THAT(split("echo a > /tmp/x", false).words, testing::ElementsAre("echo", "a"))
        << "dropped where nobody wants it";
}

TEST(CommandLine, AtMost31Words) {
    std::string words;
    for (int i = 0; i < 31; ++i) {
        words += "w ";
    }
    EXPECT_EQ(split(words).count, 31);
    EXPECT_THAT(split(words + " ").count, FailsWith(-1, E2BIG)) << "an empty word is a word";
    EXPECT_THAT(split(words + "w").count, FailsWith(-1, E2BIG));
    EXPECT_EQ(split("'" + words + words + "'").count, 1);
}

// Words never hold more characters than the text did, whatever the text is.
TEST(CommandLine, AnyTextStaysInItsPlace) {
    std::mt19937 random(7);
    const std::string alphabet = "ab  '\"\\>&";
    for (int round = 0; round < 3000; ++round) {
        std::string text;
        for (unsigned length = random() % 24; length != 0; --length) {
            text += alphabet[random() % alphabet.size()];
        }
        SCOPED_TRACE(text);
        Split result = split(text);
        size_t characters = 0;
        for (const std::string &word : result.words) {
            characters += word.size();
        }
        EXPECT_LE(characters, text.size());
    }
}

} // namespace
