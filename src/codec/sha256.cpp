#include <routerkit/digests.h>

#include <algorithm>
#include <bit>
#include <cstddef>
#include <cstring>
#include <type_traits>
#include <utility>

#include "support/build.h"
#include "support/bytes.h"

namespace {

constexpr size_t kBlockSize = 64;
constexpr size_t kWords = 16; // of a block
constexpr size_t kRounds = 64;
constexpr size_t kLengthOffset = 56; // in the last block

using Block = rk::AlignedBlock<kBlockSize>;

static_assert(offsetof(sha256_ctx_t, state) == 64 && offsetof(sha256_ctx_t, data_length) == 104 &&
                  sizeof(sha256_ctx_t) == 108,
              "host programs own contexts");

// FIPS 180-4, 5.3.3.
constexpr uint32_t kInitial[8] = {0x6a09e667, 0xbb67ae85, 0x3c6ef372, 0xa54ff53a,
                                  0x510e527f, 0x9b05688c, 0x1f83d9ab, 0x5be0cd19};

// FIPS 180-4, 4.2.2.
constexpr uint32_t kConstants[kRounds] = {
    0x428a2f98, 0x71374491, 0xb5c0fbcf, 0xe9b5dba5, 0x3956c25b, 0x59f111f1, 0x923f82a4, 0xab1c5ed5,
    0xd807aa98, 0x12835b01, 0x243185be, 0x550c7dc3, 0x72be5d74, 0x80deb1fe, 0x9bdc06a7, 0xc19bf174,
    0xe49b69c1, 0xefbe4786, 0x0fc19dc6, 0x240ca1cc, 0x2de92c6f, 0x4a7484aa, 0x5cb0a9dc, 0x76f988da,
    0x983e5152, 0xa831c66d, 0xb00327c8, 0xbf597fc7, 0xc6e00bf3, 0xd5a79147, 0x06ca6351, 0x14292967,
    0x27b70a85, 0x2e1b2138, 0x4d2c6dfc, 0x53380d13, 0x650a7354, 0x766a0abb, 0x81c2c92e, 0x92722c85,
    0xa2bfe8a1, 0xa81a664b, 0xc24b8b70, 0xc76c51a3, 0xd192e819, 0xd6990624, 0xf40e3585, 0x106aa070,
    0x19a4c116, 0x1e376c08, 0x2748774c, 0x34b0bcb5, 0x391c0cb3, 0x4ed8aa4a, 0x5b9cca4f, 0x682e6ff3,
    0x748f82ee, 0x78a5636f, 0x84c87814, 0x8cc70208, 0x90befffa, 0xa4506ceb, 0xbef9a3f7, 0xc67178f2};

// The functions of 4.1.2. Rotations of the same word are nested: fewer registers.
inline uint32_t big_sigma0(uint32_t x) {
    return std::rotr(std::rotr(std::rotr(x, 9) ^ x, 11) ^ x, 2);
}

inline uint32_t big_sigma1(uint32_t x) {
    return std::rotr(std::rotr(std::rotr(x, 14) ^ x, 5) ^ x, 6);
}

inline uint32_t small_sigma0(uint32_t x) {
    return std::rotr(std::rotr(x, 11) ^ x, 7) ^ x >> 3;
}

inline uint32_t small_sigma1(uint32_t x) {
    return std::rotr(std::rotr(x, 2) ^ x, 17) ^ x >> 10;
}

// The eight working variables. A round leaves them where they are; their roles move on by one
// instead, so round i finds "a" at index -i.
struct Variables {
    uint32_t vars[8];
    uint32_t differed; // where b and c do, which were a and b a round before

    template <size_t I>
    [[gnu::always_inline]] uint32_t &var(size_t role) {
        return vars[(role - I) % 8];
    }

    template <size_t I>
    [[gnu::always_inline]] void round(uint32_t word, uint32_t constant) {
        uint32_t a = var<I>(0), b = var<I>(1);
        uint32_t e = var<I>(4), f = var<I>(5), g = var<I>(6);
        uint32_t sum = var<I>(7) + constant + word + big_sigma1(e) + (g ^ (e & (f ^ g)));
        var<I>(3) += sum;
        uint32_t differ = a ^ b;
        var<I>(7) = sum + big_sigma0(a) + (b ^ (differ & differed));
        differed = differ;
    }
};

// The words of the schedule in the places of the block's: round by round the next one takes the
// place of the oldest.
struct FastRounds {
    uint32_t words[kWords];

    template <size_t I>
    [[gnu::always_inline]] uint32_t extended() {
        return words[I] += small_sigma1(words[(I + 14) % kWords]) + words[(I + 9) % kWords] +
                           small_sigma0(words[(I + 1) % kWords]);
    }

    template <size_t... I>
    [[gnu::always_inline]] void first(Variables &now, const Block &block,
                                      std::index_sequence<I...>) {
        ((words[I] = block.be32(I), now.round<I>(words[I], kConstants[I])), ...);
    }

    template <size_t... I>
    [[gnu::always_inline]] void next(Variables &now, const uint32_t *constants,
                                     std::index_sequence<I...>) {
        (now.round<I>(extended<I>(), constants[I]), ...);
    }

    [[gnu::always_inline]] void run(Variables &now, const Block &block) {
        constexpr auto kSixteen = std::make_index_sequence<kWords>();
        first(now, block, kSixteen);
        for (size_t i = kWords; i < kRounds; i += kWords) {
            next(now, kConstants + i, kSixteen);
        }
    }
};

// The whole schedule first, then as many rounds at a time as the roles take to come round: a quarter
// of the code and, on the router, four instructions in place of three.
struct SmallRounds {
    uint32_t words[kRounds];

    template <size_t... I>
    [[gnu::always_inline]] void eight(Variables &now, size_t start, std::index_sequence<I...>) {
        (now.round<I>(words[start + I], kConstants[start + I]), ...);
    }

    void run(Variables &now, const Block &block) {
        for (size_t i = 0; i < kWords; ++i) {
            words[i] = block.be32(i);
        }
        for (size_t i = kWords; i < kRounds; ++i) {
            words[i] = small_sigma1(words[i - 2]) + words[i - 7] + small_sigma0(words[i - 15]) +
                       words[i - 16];
        }
        for (size_t i = 0; i < kRounds; i += 8) {
            eight(now, i, std::make_index_sequence<8>());
        }
    }
};

void compress(uint32_t (&state)[8], const uint8_t *data, size_t blocks) {
    for (; blocks != 0; --blocks, data += kBlockSize) {
        Block block(data);
        Variables now;
#pragma GCC unroll 8
        for (size_t i = 0; i < 8; ++i) {
            now.vars[i] = state[i];
        }
        now.differed = now.vars[1] ^ now.vars[2];
        std::conditional_t<rk::kForSize, SmallRounds, FastRounds> rounds;
        rounds.run(now, block);
#pragma GCC unroll 8
        for (size_t i = 0; i < 8; ++i) {
            state[i] += now.vars[i];
        }
    }
}

void add_bytes(sha256_ctx_t &context, size_t count) {
    uint64_t bits = uint64_t{count} * 8;
    auto low = static_cast<uint32_t>(bits);
    context.bit_count_low += low;
    context.bit_count_high +=
        static_cast<uint32_t>(bits >> 32) + (context.bit_count_low < low ? 1 : 0);
}

} // namespace

void sha256_init(sha256_ctx_t *context) {
    if (context == nullptr) {
        return;
    }
    std::copy_n(kInitial, 8, context->state);
    context->bit_count_low = 0;
    context->bit_count_high = 0;
    context->data_length = 0;
}

void sha256_hash(sha256_ctx_t *context, const void *data, size_t count) {
    if (context == nullptr || data == nullptr) {
        return;
    }
    const auto *bytes = static_cast<const uint8_t *>(data);
    if (context->data_length != 0) {
        size_t part = std::min(count, kBlockSize - context->data_length);
        std::memcpy(context->data + context->data_length, bytes, part);
        context->data_length += static_cast<uint32_t>(part);
        bytes += part;
        count -= part;
        if (context->data_length < kBlockSize) {
            return;
        }
        compress(context->state, context->data, 1);
        add_bytes(*context, kBlockSize);
    }
    size_t rest = count % kBlockSize;
    compress(context->state, bytes, count / kBlockSize);
    add_bytes(*context, count - rest);
    std::memcpy(context->data, bytes + (count - rest), rest);
    context->data_length = static_cast<uint32_t>(rest);
}

void sha256_done(sha256_ctx_t *context, void *digest) {
    if (context == nullptr) {
        return;
    }
    size_t held = context->data_length;
    add_bytes(*context, held);
    context->data[held++] = 0x80;
    if (held > kLengthOffset) {
        std::memset(context->data + held, 0, kBlockSize - held);
        compress(context->state, context->data, 1);
        held = 0;
    }
    std::memset(context->data + held, 0, kLengthOffset - held);
    rk::store_be32(context->data + kLengthOffset, context->bit_count_high);
    rk::store_be32(context->data + kLengthOffset + 4, context->bit_count_low);
    compress(context->state, context->data, 1);
    if (digest != nullptr) {
        for (size_t i = 0; i < 8; ++i) {
            rk::store_be32(static_cast<uint8_t *>(digest) + 4 * i, context->state[i]);
        }
    }
}

void sha256(const void *data, size_t count, void *digest) {
    sha256_ctx_t context;
    sha256_init(&context);
    sha256_hash(&context, data, count);
    sha256_done(&context, digest);
}
