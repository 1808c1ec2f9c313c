#include <routerkit/conversions.h>

#include <cctype>
#include <cstdint>
#include <cstring>

#include "support/lab.h"

// So that an impossible allocation fails under the address sanitizer as it does elsewhere.
extern "C" const char *__asan_default_options();
extern "C" const char *__asan_default_options() {
    return "allocator_may_return_null=1";
}

namespace {

using lab::FailsWith;

std::string some_bytes(size_t count) {
    std::string bytes;
    for (size_t i = 0; i < count; ++i) {
        bytes += static_cast<char>(i * 37 + 9);
    }
    return bytes;
}

// The obvious way to write hex.
std::string hex(const std::string &bytes) {
    std::string text;
    for (char byte : bytes) {
        text += "0123456789ABCDEF"[static_cast<unsigned char>(byte) / 16];
        text += "0123456789ABCDEF"[static_cast<unsigned char>(byte) % 16];
    }
    return text;
}

TEST(Hex, WritesWholeBytesThatFit) {
    for (size_t count : {0, 1, 3, 4, 5, 7, 8, 9, 19, 256}) {
        const std::string bytes = some_bytes(count);
        lab::Fenced input(bytes);
        for (size_t size = 1; size <= 2 * count + 2; ++size) {
            const std::string wanted = hex(bytes.substr(0, (size - 1) / 2));
            std::string room(size + 1, '#');
            ASSERT_EQ(hex_ntostr(room.data(), size, input.data(), count),
                      static_cast<int>(wanted.size()));
            ASSERT_STREQ(room.c_str(), wanted.c_str()) << count << " bytes, room for " << size;
            ASSERT_EQ(room[size], '#');
        }
    }
}

TEST(Hex, LongTextsEndInDotsInTheRing) {
    const std::string bytes = some_bytes(64);
    EXPECT_STREQ(hex_ntoa(bytes.data(), 0), "");
    for (size_t shown_whole : {1, 19, 20, 21}) {
        EXPECT_EQ(hex_ntoa(bytes.data(), shown_whole),
                  hex(bytes).substr(0, 2 * shown_whole).substr(0, 38));
    }
    for (size_t cut : {22, 64}) {
        EXPECT_EQ(hex_ntoa(bytes.data(), cut), hex(bytes).substr(0, 36) + "...");
    }
}

TEST(Hex, ReadsPairsAndLooksAtNothingBehindThem) {
    struct Case {
        std::string_view text; // up to an unreadable page: a NUL only where it is shown
        size_t count;
        int aton;
        std::string stored;
        int check; // of as many pairs
    };
    using std::string_view_literals::operator""sv;
    const Case cases[] = {
        {"0a0B", 2, 4, "\x0a\x0b", 1},
        {"0a0B\0"sv, 4, 4, "\x0a\x0b", 0},
        {"0a0B\0"sv, SIZE_MAX, 4, "\x0a\x0b", 0},
        {"0a0\0"sv, 4, 0, "\x0a", 0},
        {"fFzz\0"sv, 1, 2, "\xff", 1},
        {"fFzz\0"sv, 2, 0, "\xff", 0},
        {"\0"sv, 4, 0, "", 0},
        {"0a0bg1", 3, 0, "\x0a\x0b", 0},
    };
    for (const Case &one : cases) {
        SCOPED_TRACE(testing::PrintToString(one.text));
        lab::Fenced text(one.text);
        char bytes[] = "####";
        EXPECT_EQ(hex_aton(bytes, one.count, text.data()), one.aton);
        EXPECT_EQ(std::string(bytes), one.stored + std::string(4 - one.stored.size(), '#'));
        EXPECT_EQ(hex_check(one.count, text.data()), one.check);
    }
    EXPECT_EQ(hex_check(0, ""), 1) << "the whole text";
    EXPECT_EQ(hex_check(0, "abcd"), 1);
    EXPECT_EQ(hex_check(0, "abc"), 0);
    for (int character = 1; character < 256; ++character) {
        int digit = std::isxdigit(character) != 0 ? 1 : 0;
        const char first[] = {static_cast<char>(character), '0', '\0'};
        const char second[] = {'0', static_cast<char>(character), '\0'};
        EXPECT_EQ(hex_check(1, first), digit) << character;
        EXPECT_EQ(hex_check(0, second), digit) << character;
    }
}

TEST(HexFiles, KeepBytesAsText) {
    lab::Census census;
    const std::string bytes = some_bytes(3000);
    ASSERT_EQ(writeHexToFile("/tmp/key", bytes.data(), bytes.size()), 0);
    EXPECT_EQ(lab::get("/tmp/key"), hex(bytes));
    std::string back(bytes.size() + 1, '#');
    EXPECT_EQ(readHexFromFile("/tmp/key", back.data(), back.size()), 6000);
    EXPECT_EQ(back, bytes + "#");
    lab::put("/tmp/key", "0aFF\n");
    EXPECT_EQ(readHexFromFile("/tmp/key", back.data(), 2), 4);
    EXPECT_EQ(readHexFromFile("/tmp/key", back.data(), 3), 0) << "the newline is a bad digit";
    EXPECT_THAT(readHexFromFile("/tmp/missing", back.data(), 3), FailsWith(-1, ENOENT));
}

TEST(HexFiles, FailuresLeaveTheFileAlone) {
    lab::Census census;
    lab::put("/tmp/key", "old");
    EXPECT_THAT(writeHexToFile("/tmp/key", "x", SIZE_MAX / 2 + 1), FailsWith(-1, EOVERFLOW));
    EXPECT_THAT(writeHexToFile("/tmp/key", "x", SIZE_MAX / 2), FailsWith(-1, ENOMEM));
    EXPECT_EQ(lab::get("/tmp/key"), "old");
    EXPECT_EQ(writeHexToFile("/tmp/missing/key", "x", 1), 0) << "the write itself may fail";
}

} // namespace
