#include <routerkit/digests.h>

#include <algorithm>
#include <bit>
#include <cstddef>
#include <cstring>

#include "support/build.h"
#include "support/bytes.h"

namespace {

constexpr size_t kBlockSize = 64;
constexpr size_t kWords = 16;        // of a block
constexpr size_t kLengthOffset = 56; // in the last block
constexpr int kDigestSize = 16;

using Block = rk::AlignedBlock<kBlockSize>;

static_assert(offsetof(md5_ctx_t, abcd) == 8 && offsetof(md5_ctx_t, buf) == 24 &&
                  sizeof(md5_ctx_t) == 88,
              "host programs own contexts");

// RFC 1321, 3.3.
constexpr uint32_t kInitial[4] = {0x67452301, 0xefcdab89, 0x98badcfe, 0x10325476};

// RFC 1321, 3.4: the integer part of 4294967296 times abs(sin(i + 1)).
constexpr uint32_t kConstants[64] = {
    0xd76aa478, 0xe8c7b756, 0x242070db, 0xc1bdceee, 0xf57c0faf, 0x4787c62a, 0xa8304613, 0xfd469501,
    0x698098d8, 0x8b44f7af, 0xffff5bb1, 0x895cd7be, 0x6b901122, 0xfd987193, 0xa679438e, 0x49b40821,
    0xf61e2562, 0xc040b340, 0x265e5a51, 0xe9b6c7aa, 0xd62f105d, 0x02441453, 0xd8a1e681, 0xe7d3fbc8,
    0x21e1cde6, 0xc33707d6, 0xf4d50d87, 0x455a14ed, 0xa9e3e905, 0xfcefa3f8, 0x676f02d9, 0x8d2a4c8a,
    0xfffa3942, 0x8771f681, 0x6d9d6122, 0xfde5380c, 0xa4beea44, 0x4bdecfa9, 0xf6bb4b60, 0xbebfbc70,
    0x289b7ec6, 0xeaa127fa, 0xd4ef3085, 0x04881d05, 0xd9d4d039, 0xe6db99e5, 0x1fa27cf8, 0xc4ac5665,
    0xf4292244, 0x432aff97, 0xab9423a7, 0xfc93a039, 0x655b59c3, 0x8f0ccc92, 0xffeff47d, 0x85845dd1,
    0x6fa87e4f, 0xfe2ce6e0, 0xa3014314, 0x4e0811a1, 0xf7537e82, 0xbd3af235, 0x2ad7d2bb, 0xeb86d391};

// How far the sum of each step turns, by round and by step within four.
constexpr int kTurns[4][4] = {{7, 12, 17, 22}, {5, 9, 14, 20}, {4, 11, 16, 23}, {6, 10, 15, 21}};

// Larger processors work on several instructions at once and wait for the longest chain of them; the
// router's takes one after the other.
constexpr bool kManyUnits = sizeof(void *) == 8;

// How many times four steps are laid out one after the other.
constexpr int kFours = rk::kForSize ? 1 : kWords / 4;

// Which word of the block a step takes, by round.
constexpr size_t kFactor[] = {1, 5, 3, 7};
constexpr size_t kOffset[] = {0, 1, 5, 0};

// The chaining value on its way through one block.
struct Chain {
    uint32_t v0, v1, v2, v3;

    // One of the 64 steps.
    template <size_t Round, size_t I>
    [[gnu::always_inline]] void step(uint32_t &a, uint32_t b, uint32_t c, uint32_t d,
                                     const Block &block, size_t i) {
        size_t word = (kFactor[Round] * (i + I) + kOffset[Round]) % kWords;
        a += block.le32(word) + kConstants[Round * kWords + i + I];
        if constexpr (Round == 0) {
            a += d ^ (b & (c ^ d));
        } else if constexpr (Round == 1 && kManyUnits) {
            a += c & ~d; // has no bit in common with the other half, which alone waits for b
            a += b & d;
        } else if constexpr (Round == 1) {
            a += c ^ (d & (b ^ c));
        } else if constexpr (Round == 2) {
            a += b ^ (c ^ d);
        } else {
            a += c ^ (b | ~d);
        }
        a = std::rotl(a, kTurns[Round][I]) + b;
    }

    // The variables stay where they are; their roles move on by one at each step instead.
    template <size_t Round>
    [[gnu::always_inline]] void round(const Block &block) {
#pragma GCC unroll kFours
        for (size_t i = 0; i < kWords; i += 4) {
            step<Round, 0>(v0, v1, v2, v3, block, i);
            step<Round, 1>(v3, v0, v1, v2, block, i);
            step<Round, 2>(v2, v3, v0, v1, block, i);
            step<Round, 3>(v1, v2, v3, v0, block, i);
        }
    }
};

void compress(uint32_t (&state)[4], const uint8_t *data, size_t blocks) {
    Chain sum = {state[0], state[1], state[2], state[3]};
    for (; blocks != 0; --blocks, data += kBlockSize) {
        Block block(data);
        Chain now = sum;
        now.round<0>(block);
        now.round<1>(block);
        now.round<2>(block);
        now.round<3>(block);
        sum = {sum.v0 + now.v0, sum.v1 + now.v1, sum.v2 + now.v2, sum.v3 + now.v3};
    }
    state[0] = sum.v0;
    state[1] = sum.v1;
    state[2] = sum.v2;
    state[3] = sum.v3;
}

size_t bytes_held(const md5_ctx_t &context) {
    return context.count[0] / 8 % kBlockSize;
}

void append(md5_ctx_t &context, const uint8_t *bytes, size_t count) {
    size_t held = bytes_held(context);
    auto bits = static_cast<uint64_t>(count) * 8;
    auto low = static_cast<uint32_t>(bits);
    context.count[0] += low;
    context.count[1] += static_cast<uint32_t>(bits >> 32) + (context.count[0] < low ? 1 : 0);
    if (held != 0) {
        size_t part = std::min(count, kBlockSize - held);
        std::memcpy(context.buf + held, bytes, part);
        if (held + part < kBlockSize) {
            return;
        }
        compress(context.abcd, context.buf, 1);
        bytes += part;
        count -= part;
    }
    compress(context.abcd, bytes, count / kBlockSize);
    std::memcpy(context.buf, bytes + count / kBlockSize * kBlockSize, count % kBlockSize);
}

} // namespace

void md5_init(md5_ctx_t *context) {
    context->count[0] = 0;
    context->count[1] = 0;
    std::copy_n(kInitial, 4, context->abcd);
}

void md5_append(md5_ctx_t *context, const void *data, int count) {
    if (count > 0) {
        append(*context, static_cast<const uint8_t *>(data), static_cast<size_t>(count));
    }
}

int md5_finish(md5_ctx_t *context, void *digest) {
    size_t held = bytes_held(*context);
    context->buf[held++] = 0x80;
    if (held > kLengthOffset) {
        std::memset(context->buf + held, 0, kBlockSize - held);
        compress(context->abcd, context->buf, 1);
        held = 0;
    }
    std::memset(context->buf + held, 0, kLengthOffset - held);
    rk::store_le32(context->buf + kLengthOffset, context->count[0]);
    rk::store_le32(context->buf + kLengthOffset + 4, context->count[1]);
    compress(context->abcd, context->buf, 1);
    for (size_t i = 0; i < 4; ++i) {
        rk::store_le32(static_cast<uint8_t *>(digest) + 4 * i, context->abcd[i]);
    }
    return kDigestSize;
}

int md5(void *digest, const void *data, size_t count) {
    md5_ctx_t context;
    md5_init(&context);
    if (count != 0) {
        append(context, static_cast<const uint8_t *>(data), count);
    }
    return md5_finish(&context, digest);
}

int is_md5(const void *digest) {
    const auto *bytes = static_cast<const uint8_t *>(digest);
    return std::any_of(bytes, bytes + kDigestSize, [](uint8_t byte) { return byte != 0; }) ? 1 : 0;
}
