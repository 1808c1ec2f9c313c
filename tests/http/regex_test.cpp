#include <routerkit/regex.h>

#include <cstring>

#include "support/lab.h"

namespace {

char *collect(char **starts, char **ends, void *arg) {
    auto *found = static_cast<std::vector<std::string> *>(arg);
    for (int i = 0; i < REGEX_SLOTS; ++i) {
        if (starts[i] != nullptr) {
            found->emplace_back(starts[i], ends[i]);
        }
    }
    return found->size() < 6 ? ends[0] : nullptr;
}

TEST(Regex, EveryMatchGoesToTheCallback) {
    lab::Census census;
    std::vector<std::string> found;
    char text[] = "1a 22b 333c 4d";
    EXPECT_EQ(regex_find_all_cb(text, "([0-9]+)(x)?[a-z]", collect, &found), 2);
    EXPECT_THAT(found, testing::ElementsAre("1a", "1", "22b", "22", "333c", "333"));
    int calls = 0;
    auto count = [](const char **, const char **ends, void *arg) {
        ++*static_cast<int *>(arg);
        return ends[0];
    };
    EXPECT_EQ(regex_find_all_const_cb("1 22 333", "[0-9]+", count, &calls), 3);
    EXPECT_EQ(regex_find_all_const_cb("aab", "^a", count, &calls), 2)
        << "each search starts afresh";
    EXPECT_EQ(calls, 5);
    EXPECT_EQ(regex_find_all_const_cb("none", "[0-9]", count, &calls), 0);
}

TEST(Regex, GroupsAsPointers) {
    char text[] = "x key=value;";
    char *key = nullptr;
    char *key_end = nullptr;
    char *value = nullptr;
    char *end = regex_find_ref(text, "([a-z]+)=([a-z]+)", &key, &key_end, &value, nullptr, nullptr);
    EXPECT_EQ(end, text + 11);
    EXPECT_EQ(std::string(key, key_end), "key");
    EXPECT_EQ(value, text + 6);
    const char *start = "untouched";
    const char *other = start;
    EXPECT_STREQ(regex_find_const_ref("b!", "(a)|(b)", &start, &other, &start, &other, nullptr),
                 "!");
    EXPECT_STREQ(start, "untouched") << "group 1 took no part";
    EXPECT_EQ(regex_find_const_ref("c", "(a)|(b)", nullptr), nullptr);
    const char *ninth = nullptr;
    const char *unused = nullptr;
    regex_find_const_ref("abcdefghijk", "(a)(b)(c)(d)(e)(f)(g)(h)(i)(j)", &unused, &unused, &unused,
                         &unused, &unused, &unused, &unused, &unused, &unused, &unused, &unused,
                         &unused, &unused, &unused, &unused, &unused, &ninth, nullptr, nullptr);
    EXPECT_STREQ(ninth, "ijk");
}

TEST(Regex, GroupsAsCopies) {
    char major[8];
    char minor[3] = {'#', '#', '#'};
    const char text[] = "ver 12.34!";
    EXPECT_STREQ(regex_find_ex(text, "([0-9]+)\\.([0-9]+)", major, 8, minor, 2, nullptr), "!");
    EXPECT_STREQ(major, "12");
    EXPECT_EQ(std::string(minor, 3), std::string("3\0#", 3));
    EXPECT_STREQ(regex_find_ex(text, "([0-9]+)\\.([0-9]+)", minor, 0, major, 8, nullptr), "!");
    EXPECT_EQ(minor[0], '3') << "a buffer without room receives nothing";
    EXPECT_STREQ(major, "34") << "and the next group goes on";
}

TEST(Regex, ABadPatternIsLogged) {
    char text[] = "x";
    std::vector<std::string> found;
    EXPECT_EQ(regex_find_all_cb(text, "(", collect, &found), 0);
    EXPECT_EQ(regex_find_ref(text, "[", nullptr), nullptr);
    EXPECT_EQ(regex_find_ex(text, "*(", nullptr), nullptr);
    EXPECT_THAT(lab::take_log(),
                testing::ElementsAre("debug: regex error: '('", "debug: regex error: '['",
                                     "debug: regex error: '*('"));
}

} // namespace
