#include "support/text_buffer.h"

#include <climits>
#include <cwchar>

#include "support/lab.h"

namespace {

using rk::TextBuffer;
using rk::TextWriter;

TEST(TextWriter, ExactFitIsNotCut) {
    char room[7];
    std::memset(room, '#', sizeof room);
    TextWriter text(room, 6);
    EXPECT_STREQ(room, "");
    text.append("ab").append('c').append("").append("de");
    EXPECT_FALSE(text.cut());
    EXPECT_EQ(text.view(), "abcde");
    text.append("");
    EXPECT_FALSE(text.cut());
    text.append('f');
    EXPECT_TRUE(text.cut());
    EXPECT_STREQ(text.c_str(), "abcde");
    EXPECT_EQ(room[6], '#');
}

TEST(TextWriter, NothingFollowsACut) {
    char room[7];
    std::memset(room, '#', sizeof room);
    TextWriter text(room, 6);
    text.append("abc").append("defg");
    EXPECT_TRUE(text.cut());
    EXPECT_EQ(text.size(), 5U);
    EXPECT_STREQ(room, "abcde");
    EXPECT_FALSE(text.format("%s", ""));
    text.append("");
    EXPECT_TRUE(text.cut());
    EXPECT_STREQ(room, "abcde");
    EXPECT_EQ(room[6], '#');
}

TEST(TextWriter, RoomForTheNulAlone) {
    char room[2] = {'#', '#'};
    TextWriter text(room, 1);
    EXPECT_TRUE(text.format("%s", ""));
    text.append("x");
    EXPECT_TRUE(text.cut());
    EXPECT_EQ(text.size(), 0U);
    EXPECT_EQ(std::string(room, 2), std::string("\0#", 2));
}

TEST(TextBuffer, FormatsUpToItsSize) {
    TextBuffer<8> fits;
    EXPECT_TRUE(fits.format("%d", 123));
    EXPECT_TRUE(fits.format("-%s", "abc"));
    EXPECT_EQ(fits.view(), "123-abc");
    EXPECT_FALSE(fits.cut());

    TextBuffer<8> cut;
    EXPECT_FALSE(cut.format("%s", "12345678"));
    EXPECT_TRUE(cut.cut());
    EXPECT_EQ(cut.view(), "1234567");
    EXPECT_FALSE(cut.format("x"));
    EXPECT_EQ(cut.view(), "1234567");
}

TEST(TextBuffer, FailedFormatAddsNothing) {
    TextBuffer<32> text;
    text.append("kept");
    EXPECT_FALSE(text.format("lost %lc", static_cast<wint_t>(0x7fffffff)));
    EXPECT_TRUE(text.cut()) << "a text that is not whole must not be used";
    EXPECT_STREQ(text.c_str(), "kept");
    EXPECT_EQ(text.size(), 4U);
}

TEST(TextBuffer, Decimals) {
    for (long number : {0L, 7L, -1L, 10L, LONG_MAX, LONG_MIN}) {
        TextBuffer<32> text;
        EXPECT_EQ(text.append_decimal(number).view(), std::to_string(number));
    }
}

} // namespace
