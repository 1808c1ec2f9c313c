#include <routerkit/conversions.h>
#include <routerkit/files.h>

#include <algorithm>
#include <cctype>
#include <climits>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <random>

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
        char digits[3];
        std::snprintf(digits, sizeof digits, "%02X", static_cast<unsigned char>(byte));
        text += digits;
    }
    return text;
}

TEST(Hex, WritesWholeBytesThatFit) {
    for (size_t count = 0; count <= 40; ++count) {
        std::string bytes = some_bytes(count);
        lab::Fenced input(bytes);
        for (size_t size = 1; size <= 90; ++size) {
            std::string wanted = hex(bytes.substr(0, (size - 1) / 2));
            std::string room(size + 1, '#');
            ASSERT_EQ(hex_ntostr(room.data(), size, input.data(), count),
                      static_cast<int>(wanted.size()));
            ASSERT_STREQ(room.c_str(), wanted.c_str()) << count << " bytes, room for " << size;
            ASSERT_EQ(room[size], '#');
        }
    }
    std::string all;
    for (int byte = 0; byte < 256; ++byte) {
        all += static_cast<char>(byte);
    }
    char text[513];
    EXPECT_EQ(hex_ntostr(text, sizeof text, all.data(), all.size()), 512);
    EXPECT_EQ(text, hex(all));
    char untouched = '#';
    EXPECT_EQ(hex_ntostr(&untouched, 0, all.data(), 1), 0);
    EXPECT_EQ(untouched, '#');
}

TEST(Hex, LongTextsEndInDotsInTheRing) {
    std::string bytes = some_bytes(64);
    EXPECT_STREQ(hex_ntoa(bytes.data(), 0), "");
    EXPECT_EQ(hex_ntoa(bytes.data(), 1), hex(bytes.substr(0, 1)));
    for (size_t shown_whole : {19, 20, 21}) {
        EXPECT_EQ(hex_ntoa(bytes.data(), shown_whole), hex(bytes.substr(0, 19))) << shown_whole;
    }
    for (size_t cut : {22, 23, 64}) {
        EXPECT_EQ(hex_ntoa(bytes.data(), cut), hex(bytes.substr(0, 18)) + "...") << cut;
    }
}

// The obvious way to read it: the bytes stored, and the result.
int model(size_t count, const std::string &text, std::string &bytes) {
    for (size_t i = 0; i < count; ++i) {
        if (2 * i == text.size()) {
            return static_cast<int>(2 * i);
        }
        std::string pair = text.substr(2 * i, 2);
        if (pair.size() != 2 || std::isxdigit(static_cast<unsigned char>(pair[0])) == 0 ||
            std::isxdigit(static_cast<unsigned char>(pair[1])) == 0) {
            return 0;
        }
        bytes += static_cast<char>(std::strtoul(pair.c_str(), nullptr, 16));
    }
    return static_cast<int>(2 * count);
}

void expect_read(size_t count, const std::string &text, char *fenced_text) {
    SCOPED_TRACE(testing::PrintToString(text) + " for " + std::to_string(count));
    std::string stored;
    int result = model(count, text, stored);
    std::string room(count + 1, '#');
    ASSERT_EQ(hex_aton(room.data(), count, fenced_text), result);
    stored.resize(count + 1, '#');
    ASSERT_EQ(room, stored);

    bool long_enough = result == static_cast<int>(2 * count);
    ASSERT_EQ(hex_check(count, fenced_text), long_enough ? 1 : 0);
}

TEST(Hex, ReadsPairsUpToTheEndOfTheText) {
    std::mt19937 random(7);
    lab::Fenced room(std::string(32, 'x'));
    const std::string digits = "0123456789abcdefABCDEF";
    const std::string others = std::string(":-gG@`/ \n\x80\xff\xb0") + std::string(1, '\x01');
    for (int i = 0; i < 200000 && !HasFatalFailure(); ++i) {
        std::string text;
        for (size_t length = random() % 14; text.size() < length;) {
            text += random() % 20 == 0 ? others[random() % others.size()]
                                       : digits[random() % digits.size()];
        }
        char *start = room.data() + room.size() - text.size() - 1;
        std::memcpy(start, text.c_str(), text.size() + 1);
        expect_read(1 + random() % 7, text, start);

        std::string unused;
        bool whole = text.empty() || model(SIZE_MAX, text, unused) == static_cast<int>(text.size());
        ASSERT_EQ(hex_check(0, start), whole ? 1 : 0) << text;
    }
}

TEST(Hex, TwentyTwoCharactersAreDigits) {
    for (int character = 1; character < 256; ++character) {
        int digit = std::isxdigit(character) != 0 ? 1 : 0;
        const char first[] = {static_cast<char>(character), '0', '\0'};
        const char second[] = {'0', static_cast<char>(character), '\0'};
        EXPECT_EQ(hex_check(1, first), digit) << character;
        EXPECT_EQ(hex_check(0, second), digit) << character;
    }
}

TEST(Hex, LooksAtNothingBehindWhatItNeeds) {
    uint8_t bytes[4] = {};
    lab::Fenced pairs("0a0B"); // without a NUL
    EXPECT_EQ(hex_aton(bytes, 2, pairs.data()), 4);
    EXPECT_EQ(bytes[0] << 8 | bytes[1], 0x0a0b);
    EXPECT_EQ(hex_check(2, pairs.data()), 1);
    EXPECT_EQ(hex_check(2, "abcdZZ"), 1);
    EXPECT_EQ(hex_aton(bytes, 4, "0a0B"), 4);
    EXPECT_EQ(hex_aton(bytes, SIZE_MAX, "0a0B"), 4) << "as much as the text holds";
    EXPECT_EQ(hex_aton(bytes, 4, "0a0"), 0);
    EXPECT_EQ(hex_aton(bytes, 0, "zz"), 0);
    lab::Fenced end(std::string(1, '\0'));
    EXPECT_EQ(hex_aton(bytes, 4, end.data()), 0);
    EXPECT_EQ(hex_check(0, end.data()), 1);
    EXPECT_EQ(hex_check(1, end.data()), 0);
    EXPECT_EQ(mac_aton(bytes, end.data()), 0);
}

TEST(HexFiles, KeepBytesAsText) {
    lab::Census census;
    std::string bytes = some_bytes(3000);
    ASSERT_EQ(writeHexToFile("/tmp/key", bytes.data(), bytes.size()), 0);
    EXPECT_EQ(lab::get("/tmp/key"), hex(bytes));
    std::string back(bytes.size() + 1, '#');
    EXPECT_EQ(readHexFromFile("/tmp/key", back.data(), back.size()), 6000);
    EXPECT_EQ(back, bytes + "#");

    ASSERT_EQ(writeHexToFile("/tmp/key", nullptr, 0), 0);
    EXPECT_TRUE(lab::exists("/tmp/key"));
    EXPECT_EQ(lab::get("/tmp/key"), "");
    EXPECT_EQ(readHexFromFile("/tmp/key", back.data(), 4), 0);

    lab::put("/tmp/key", "0aFF\n");
    EXPECT_EQ(readHexFromFile("/tmp/key", back.data(), 2), 4);
    EXPECT_EQ(back.substr(0, 2), "\x0a\xff");
    EXPECT_EQ(readHexFromFile("/tmp/key", back.data(), 3), 0) << "the newline is a bad digit";
    EXPECT_THAT(readHexFromFile("/tmp/missing", back.data(), 3), FailsWith(-1, ENOENT));
}

TEST(HexFiles, FailuresLeaveTheFileAlone) {
    lab::Census census;
    lab::put("/tmp/key", "old");
    const uint8_t byte = 1;
    EXPECT_THAT(writeHexToFile("/tmp/key", &byte, SIZE_MAX / 2 + 1), FailsWith(-1, EOVERFLOW));
    EXPECT_THAT(writeHexToFile("/tmp/key", &byte, SIZE_MAX), FailsWith(-1, EOVERFLOW));
    EXPECT_THAT(writeHexToFile("/tmp/key", &byte, SIZE_MAX / 2), FailsWith(-1, ENOMEM));
    EXPECT_THAT(writeHexToFile("/tmp/key", &byte, SIZE_MAX / 4), FailsWith(-1, ENOMEM));
    EXPECT_EQ(lab::get("/tmp/key"), "old");
    EXPECT_EQ(writeHexToFile("/tmp/missing/key", &byte, 1), 0) << "the write itself may fail";
}

} // namespace
