// What the parts of src/support promise beyond what their users' tests show.
#include <climits>
#include <cwchar>

#include <fcntl.h>
#include <unistd.h>

#include "support/bytes.h"
#include "support/lab.h"
#include "support/lines.h"
#include "support/text_buffer.h"

using testing::ElementsAre;

namespace {

TEST(TextWriter, ExactFitIsNotCutAndNothingFollowsACut) {
    char room[] = "#######";
    rk::TextWriter text(room, 6);
    EXPECT_STREQ(room, "");
    text.append("ab").append('c').append("de").append("");
    EXPECT_FALSE(text.cut());
    EXPECT_EQ(text.view(), "abcde");
    EXPECT_TRUE(text.format("%s", "")) << "nothing still fits";
    text.append('f');
    EXPECT_TRUE(text.cut());
    EXPECT_FALSE(text.append("").format("%s", ""));
    EXPECT_EQ(std::string(room, 7), std::string("abcde\0#", 7));
}

TEST(TextBuffer, FormatsUpToItsSize) {
    rk::TextBuffer<8> fits;
    EXPECT_TRUE(fits.format("%d", 123) && fits.format("-%s", "abc"));
    EXPECT_EQ(fits.view(), "123-abc");
    rk::TextBuffer<8> cut;
    EXPECT_FALSE(cut.format("%s", "12345678"));
    EXPECT_EQ(cut.append("x").view(), "1234567");
    rk::TextBuffer<32> failed;
    failed.append("kept");
    EXPECT_FALSE(failed.format("lost %lc", static_cast<wint_t>(-2)));
    EXPECT_TRUE(failed.cut()) << "a text that is not whole must not be used";
    EXPECT_STREQ(failed.c_str(), "kept");
    for (long number : {0L, -1L, 10L, LONG_MAX, LONG_MIN}) {
        rk::TextBuffer<32> text;
        EXPECT_EQ(text.append_decimal(number).view(), std::to_string(number));
    }
}

TEST(Bytes, WireOrderUpToTheEnd) {
    lab::Fenced room("########");
    auto *bytes = reinterpret_cast<uint8_t *>(room.data());
    rk::store_be32(bytes + 1, 0x81020384);
    rk::store_be16(bytes + 5, 0xfe01);
    EXPECT_EQ(std::string(room.data(), 8), std::string("#\x81\x02\x03\x84\xfe\x01#"));
    rk::ByteReader reader(bytes, 8);
    EXPECT_EQ(reader.u8(), '#');
    EXPECT_EQ(reader.be32(), 0x81020384U);
    EXPECT_EQ(reader.be16(), 0xfe01);
    EXPECT_EQ(reader.left(), 1U);
    EXPECT_EQ(reader.be16(), 0) << "one byte of the two is there";
    EXPECT_FALSE(reader.ok());
    EXPECT_EQ(reader.left() + reader.u8(), 0U) << "everything fails from then on";
    EXPECT_EQ(reader.take(0), nullptr);
    EXPECT_EQ(rk::ByteReader(bytes + 1, 7).take(SIZE_MAX), nullptr);
}

TEST(Lines, EndAtNewlinesOrTheTextsEnd) {
    auto lines_of = [](std::string_view text) {
        lab::Fenced fenced(text);
        std::vector<std::string> all;
        for (rk::Lines lines({fenced.data(), fenced.size()}); lines.next();) {
            all.emplace_back(lines.line());
        }
        return all;
    };
    EXPECT_THAT(lines_of(""), ElementsAre());
    EXPECT_THAT(lines_of("\n"), ElementsAre(""));
    EXPECT_THAT(lines_of("a\n\nb"), ElementsAre("a", "", "b"));
    EXPECT_THAT(lines_of("a\nb\n"), ElementsAre("a", "b"));
}

TEST(LineReader, SplitsLongLinesAndReadsBlockAfterBlock) {
    auto lines_of = [](const std::string &text) {
        lab::put("/tmp/lines", text);
        int fd = ::open("/tmp/lines", O_RDONLY | O_CLOEXEC);
        std::vector<std::string> all;
        for (rk::LineReader<10> reader(fd); reader.next();) {
            all.emplace_back(reader.line());
        }
        ::close(fd);
        return all;
    };
    EXPECT_THAT(lines_of("12345678\n123456789\n1234567890\n\nlast"),
                ElementsAre("12345678\n", "123456789", "\n", "123456789", "0\n", "\n", "last"));
    std::string text;
    std::vector<std::string> wanted;
    for (int i = 0; i < 500; ++i) {
        wanted.push_back(std::to_string(i * 1000) + "\n");
        text += wanted.back();
    }
    EXPECT_EQ(lines_of(text), wanted);
}

} // namespace
