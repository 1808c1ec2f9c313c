#include <fcntl.h>
#include <sys/wait.h>
#include <unistd.h>

#include "support/bytes.h"
#include "support/lab.h"
#include "support/lines.h"
#include "support/ring.h"

namespace {

using rk::ByteReader;

TEST(Bytes, WireOrderAtAnyPlace) {
    uint8_t room[8] = {0xa5, 0, 0, 0, 0, 0, 0, 0xa5};
    rk::store_be32(room + 1, 0x81020384);
    EXPECT_EQ(std::memcmp(room, "\xa5\x81\x02\x03\x84\x00\x00\xa5", 8), 0);
    EXPECT_EQ(rk::load_be32(room + 1), 0x81020384);
    rk::store_be16(room + 5, 0xfe01);
    EXPECT_EQ(room[5], 0xfe);
    EXPECT_EQ(rk::load_be16(room + 5), 0xfe01);
    EXPECT_EQ(room[7], 0xa5);
}

TEST(ByteReader, ReadsFieldByField) {
    lab::Fenced bytes("\x01\x02\x03\x04\x05\x06\x07\x08");
    ByteReader reader(reinterpret_cast<uint8_t *>(bytes.data()), bytes.size());
    EXPECT_EQ(reader.u8(), 1);
    EXPECT_EQ(reader.be16(), 0x0203);
    EXPECT_EQ(reader.be32(), 0x04050607U);
    EXPECT_EQ(reader.position(), 7U);
    EXPECT_EQ(reader.left(), 1U);
    EXPECT_EQ(reader.u8(), 8);
    EXPECT_TRUE(reader.ok());
    EXPECT_NE(reader.take(0), nullptr);
    EXPECT_TRUE(reader.ok()) << "nothing wanted, nothing missing";
}

TEST(ByteReader, EverythingFailsBehindAReadPastTheEnd) {
    lab::Fenced bytes("\x01\x02\x03");
    for (size_t wanted : {size_t{3}, SIZE_MAX}) {
        ByteReader reader(reinterpret_cast<uint8_t *>(bytes.data()), bytes.size());
        EXPECT_EQ(reader.u8(), 1);
        EXPECT_EQ(reader.take(wanted), nullptr);
        EXPECT_FALSE(reader.ok());
        EXPECT_EQ(reader.left(), 0U);
        EXPECT_EQ(reader.u8(), 0);
        EXPECT_EQ(reader.take(0), nullptr);
        EXPECT_FALSE(reader.ok());
    }
    ByteReader reader(reinterpret_cast<uint8_t *>(bytes.data()), bytes.size());
    EXPECT_EQ(reader.be16(), 0x0102);
    EXPECT_EQ(reader.be16(), 0) << "one byte of the two is there";
    EXPECT_FALSE(reader.ok());
    ByteReader nothing(nullptr, 0);
    EXPECT_EQ(nothing.be32(), 0U);
    EXPECT_FALSE(nothing.ok());
}

std::vector<std::string> lines_of(std::string_view text) {
    std::vector<std::string> all;
    for (rk::Lines lines(text); lines.next();) {
        all.emplace_back(lines.line());
    }
    return all;
}

TEST(Lines, EndAtNewlinesOrTheTextsEnd) {
    using testing::ElementsAre;
    EXPECT_THAT(lines_of(""), ElementsAre());
    EXPECT_THAT(lines_of("\n"), ElementsAre(""));
    EXPECT_THAT(lines_of("a\n\nb"), ElementsAre("a", "", "b"));
    EXPECT_THAT(lines_of("a\nb\n"), ElementsAre("a", "b"));
    EXPECT_THAT(lines_of(std::string_view("a\0b\n", 4)), ElementsAre(std::string("a\0b", 3)));
    lab::Fenced fenced("one\ntwo");
    EXPECT_THAT(lines_of({fenced.data(), fenced.size()}), ElementsAre("one", "two"));
}

// The lines of a descriptor in 9 characters each.
std::vector<std::string> read_lines(int fd) {
    std::vector<std::string> all;
    for (rk::LineReader<10> reader(fd); reader.next();) {
        all.emplace_back(reader.line());
    }
    return all;
}

TEST(LineReader, KeepsNewlinesAndSplitsLongLines) {
    lab::put("/tmp/lines", "short\n12345678\n123456789\n1234567890\n\nlast");
    int fd = ::open("/tmp/lines", O_RDONLY | O_CLOEXEC);
    EXPECT_THAT(read_lines(fd), testing::ElementsAre("short\n", "12345678\n", "123456789", "\n",
                                                     "123456789", "0\n", "\n", "last"));
    EXPECT_THAT(read_lines(fd), testing::ElementsAre()) << "the end stays the end";
    ::close(fd);
    EXPECT_THAT(read_lines(fd), testing::ElementsAre()) << "an unreadable file has no lines";
}

TEST(LineReader, LinesMayComeInPieces) {
    // Longer than the block that is read at once, and written a few bytes at a time.
    std::string text;
    std::vector<std::string> wanted;
    for (int i = 0; i < 500; ++i) {
        wanted.push_back(std::to_string(i * 1000) + "\n");
        text += wanted.back();
    }
    int ends[2];
    ASSERT_EQ(::pipe2(ends, O_CLOEXEC), 0);
    pid_t writer = ::fork();
    if (writer == 0) {
        for (size_t at = 0; at < text.size(); at += 3) {
            size_t count = std::min<size_t>(3, text.size() - at);
            if (::write(ends[1], text.data() + at, count) < 0) {
                std::_Exit(1);
            }
        }
        std::_Exit(0);
    }
    ::close(ends[1]);
    {
        lab::SignalStorm storm(1);
        EXPECT_EQ(read_lines(ends[0]), wanted);
    }
    ::close(ends[0]);
    ::waitpid(writer, nullptr, 0);
}

TEST(Ring, HandsItsSlotsOutInTurn) {
    static constinit rk::Ring<4, 8> ring;
    char *slots[4];
    for (char *&slot : slots) {
        slot = ring.next();
        EXPECT_STREQ(slot, "") << "zero at the start";
        std::memset(slot, 'x', 8);
    }
    for (int i = 0; i < 8; ++i) {
        EXPECT_EQ(ring.next(), slots[i % 4]);
    }
    for (int i = 1; i < 4; ++i) {
        EXPECT_EQ(slots[i], slots[0] + i * 8);
    }
}

} // namespace
