#include <routerkit/digests.h>

#include <cstring>
#include <functional>

#include <routerkit/base64.h>
#include <routerkit/conversions.h>

#include "support/lab.h"

namespace {

std::string hex(const uint8_t *bytes, size_t count) {
    std::string text(2 * count + 1, '\0');
    text.resize(static_cast<size_t>(hex_ntostr(text.data(), text.size(), bytes, count)));
    return text;
}

std::string sha256_of(const std::string &text) {
    uint8_t digest[32];
    sha256(text.data(), text.size(), digest);
    return hex(digest, 32);
}

std::string md5_of(const std::string &text) {
    uint8_t digest[16];
    EXPECT_EQ(md5(digest, text.data(), text.size()), 16);
    return hex(digest, 16);
}

TEST(Digests, PublishedVectors) {
    const std::string two_blocks = "abcdbcdecdefdefgefghfghighijhijkijkljklmklmnlmnomnopnopq";
    EXPECT_EQ(sha256_of(""), "E3B0C44298FC1C149AFBF4C8996FB92427AE41E4649B934CA495991B7852B855");
    EXPECT_EQ(sha256_of("abc"), "BA7816BF8F01CFEA414140DE5DAE2223B00361A396177A9CB410FF61F20015AD");
    EXPECT_EQ(sha256_of(two_blocks),
              "248D6A61D20638B8E5C026930C3E6039A33CE45964FF2167F6ECEDD419DB06C1");
    EXPECT_EQ(sha256_of(std::string(1000000, 'a')),
              "CDC76E5C9914FB9281A1C7E284D73E67F1809A48A497200E046D39CCC7112CD0");
    EXPECT_EQ(md5_of(""), "D41D8CD98F00B204E9800998ECF8427E");
    EXPECT_EQ(md5_of("abc"), "900150983CD24FB0D6963F7D28E17F72");
    EXPECT_EQ(md5_of("message digest"), "F96B697D7CB7938D525A2F31AAF161D0");
    EXPECT_EQ(
        md5_of("12345678901234567890123456789012345678901234567890123456789012345678901234567890"),
        "57EDF4A22BE3C955AC49DA2E2107B67A");
}

// Every length up to 300 in every two-way split, against one shot; and those against the machine's
// own programs.
TEST(Digests, LengthsAndSplits) {
    std::string message;
    std::string lines;
    for (size_t length = 0; length <= 300; ++length) {
        std::string sha = sha256_of(message);
        std::string md = md5_of(message);
        for (size_t split = 0; split <= length; ++split) {
            uint8_t digest[32];
            sha256_ctx_t sha_context;
            sha256_init(&sha_context);
            sha256_hash(&sha_context, message.data(), split);
            sha256_hash(&sha_context, message.data() + split, length - split);
            sha256_done(&sha_context, digest);
            ASSERT_EQ(hex(digest, 32), sha) << length << " at " << split;
            md5_ctx_t md_context;
            md5_init(&md_context);
            md5_append(&md_context, message.data(), static_cast<int>(split));
            md5_append(&md_context, message.data() + split, static_cast<int>(length - split));
            md5_finish(&md_context, digest);
            ASSERT_EQ(hex(digest, 16), md) << length << " at " << split;
        }
        lab::put("/tmp/m" + std::to_string(1000 + length), message);
        lines += sha + "\n" + md + "\n";
        message += static_cast<char>(length * 7 + 1);
    }
    EXPECT_EQ(lab::sh("cd /tmp; for m in m*; do sha256sum $m; md5sum $m; done | "
                      "sed 's/ .*//' | tr a-f A-F"),
              lines);
}

TEST(Digests, TheHighWordOfTheBitCount) {
    sha256_ctx_t context;
    sha256_init(&context);
    context.bit_count_low = 0xffffff00; // as after 512 MB less 32 bytes
    const std::string text(100, 'x');
    sha256_hash(&context, text.data(), text.size());
    EXPECT_EQ(context.bit_count_high, 1U);
    EXPECT_EQ(context.bit_count_low, 0x100U);
    md5_ctx_t md_context;
    md5_init(&md_context);
    md_context.count[0] = 0xffffff00 + 0x100 - 512;
    md5_append(&md_context, text.data(), 100);
    EXPECT_EQ(md_context.count[1], 1U);
    EXPECT_EQ(md_context.count[0], 100U * 8 - 512);
}

TEST(Digests, NullsAreIgnoredWhereStated) {
    uint8_t digest[32] = {};
    sha256_init(nullptr);
    sha256_hash(nullptr, "x", 1);
    sha256_done(nullptr, digest);
    EXPECT_EQ(hex(digest, 32), std::string(64, '0'));
    sha256_ctx_t context;
    sha256_init(&context);
    sha256_hash(&context, nullptr, 5);
    EXPECT_EQ(context.data_length, 0U);
    sha256_done(&context, nullptr);
    EXPECT_EQ(context.state[0], 0xe3b0c442U) << "padded and compressed all the same";
    md5_ctx_t md_context;
    md5_init(&md_context);
    md5_append(&md_context, "x", -1);
    md5_append(&md_context, "x", 0);
    EXPECT_EQ(md_context.count[0], 0U);
    EXPECT_EQ(is_md5(digest), 0);
    digest[15] = 1;
    EXPECT_EQ(is_md5(digest), 1);
}

// --- Base64 ---

std::string encode(const std::string &bytes, size_t size) {
    lab::Fenced fenced(bytes);
    std::string text(size + 1, '#');
    int length = b64_encode(text.data(), size, fenced.data(), bytes.size());
    EXPECT_EQ(text[static_cast<size_t>(length)], '\0');
    EXPECT_EQ(text[size], '#');
    return text.c_str();
}

std::string decode(const std::string &text, size_t capacity) {
    lab::Fenced fenced(std::string_view(text.c_str(), text.size() + 1));
    std::string bytes(capacity + 1, '#');
    auto length = static_cast<size_t>(b64_decode(bytes.data(), capacity, fenced.data()));
    EXPECT_EQ(bytes[length], '#');
    return bytes.substr(0, length);
}

TEST(Base64, PublishedVectors) {
    const std::pair<const char *, const char *> cases[] = {
        {"", ""},
        {"f", "Zg=="},
        {"fo", "Zm8="},
        {"foo", "Zm9v"},
        {"foob", "Zm9vYg=="},
        {"fooba", "Zm9vYmE="},
        {"foobar", "Zm9vYmFy"},
        {"\xfb\xff", "+/8="},
    };
    for (const auto &[bytes, text] : cases) {
        EXPECT_EQ(encode(bytes, std::strlen(text) + 1), text);
        EXPECT_EQ(decode(text, b64_decoded_len(std::strlen(text))), bytes);
        EXPECT_EQ(b64_encoded_len(std::strlen(bytes)), std::strlen(text));
    }
    EXPECT_EQ(b64_decoded_len(0), 1U);
    EXPECT_EQ(b64_decoded_len(8), 7U);
}

TEST(Base64, WhatDoesNotFitOrFollow) {
    for (size_t size = 1; size <= 9; ++size) {
        EXPECT_EQ(encode("foobar", size), std::string("Zm9vYmFy").substr(0, (size - 1) / 4 * 4));
    }
    for (size_t capacity = 0; capacity <= 7; ++capacity) {
        EXPECT_EQ(decode("Zm9vYmFy", capacity), std::string("foobar").substr(0, capacity));
    }
    const std::pair<const char *, std::string> cases[] = {
        {"Zm9v!!!!", std::string("foo\0\0\0", 6)},
        {"Zm9vY", "foo"},
        {"Zm9vYg", "foob"},
        {"Zm9vYmE", "fooba"},
        {"Zg==Zg==", "f"},
        {"=m9v", "\x02oo"},
        {"Zm9v\x80"
         "Zm9",
         std::string("foo\x01\x99\xbd", 6)},
    };
    for (const auto &[text, bytes] : cases) {
        EXPECT_EQ(decode(text, 16), bytes) << text;
    }
}

TEST(Base64, AgreesWithTheMachinesOwn) {
    std::string bytes;
    for (int i = 0; i < 5000; ++i) {
        bytes += static_cast<char>(i * 131 + i / 200);
    }
    lab::put("/tmp/bytes", bytes);
    std::string text = lab::sh("base64 -w0 /tmp/bytes");
    EXPECT_EQ(encode(bytes, text.size() + 1), text);
    EXPECT_EQ(decode(text, b64_decoded_len(text.size())), bytes);
    for (size_t length = 0; length < 80; ++length) {
        std::string part = encode(bytes.substr(0, length), b64_encoded_len(length) + 1);
        EXPECT_EQ(part.substr(0, length / 3 * 4), text.substr(0, length / 3 * 4));
        EXPECT_EQ(decode(part, b64_decoded_len(part.size())), bytes.substr(0, length));
    }
}

} // namespace
