// Integers in wire order at any alignment, on any processor.
#pragma once

#include <bit>
#include <cstddef>
#include <cstdint>
#include <cstring>

namespace rk {

// The copies become single accesses where the processor can do that at any address, and the
// shortest replacement where it cannot (two instructions on MIPS).
template <typename Value>
Value load_native(const uint8_t *bytes) {
    Value value;
    std::memcpy(&value, bytes, sizeof value);
    return value;
}

inline constexpr bool kBigEndian = std::endian::native == std::endian::big;

// Between a word and what it is on the wire, in either direction.
constexpr uint16_t swap_be(uint16_t value) {
    return kBigEndian ? value : __builtin_bswap16(value);
}

constexpr uint32_t swap_be(uint32_t value) {
    return kBigEndian ? value : __builtin_bswap32(value);
}

constexpr uint32_t swap_le(uint32_t value) {
    return kBigEndian ? __builtin_bswap32(value) : value;
}

inline uint16_t load_be16(const uint8_t *bytes) {
    return static_cast<uint16_t>(bytes[0] << 8 | bytes[1]);
}

inline uint32_t load_be32(const uint8_t *bytes) {
    return uint32_t{bytes[0]} << 24 | uint32_t{bytes[1]} << 16 | uint32_t{bytes[2]} << 8 | bytes[3];
}

inline void store_be16(uint8_t *bytes, uint16_t value) {
    bytes[0] = static_cast<uint8_t>(value >> 8);
    bytes[1] = static_cast<uint8_t>(value);
}

inline void store_be32(uint8_t *bytes, uint32_t value) {
    store_be16(bytes, static_cast<uint16_t>(value >> 16));
    store_be16(bytes + 2, static_cast<uint16_t>(value));
}

inline void store_le32(uint8_t *bytes, uint32_t value) {
    value = swap_le(value);
    std::memcpy(bytes, &value, sizeof value);
}

// A block of 32-bit words that lies at their alignment, so that each is one load on any processor:
// where it is, or in a copy.
template <size_t Size>
class AlignedBlock {
  public:
    explicit AlignedBlock(const uint8_t *bytes) : bytes_(bytes) {
        if (reinterpret_cast<uintptr_t>(bytes) % alignof(uint32_t) != 0) {
            std::memcpy(copy_, bytes, Size);
            bytes_ = copy_;
        }
    }
    AlignedBlock(const AlignedBlock &) = delete;
    AlignedBlock &operator=(const AlignedBlock &) = delete;

    [[nodiscard]] uint32_t be32(size_t index) const { return swap_be(word(index)); }
    [[nodiscard]] uint32_t le32(size_t index) const { return swap_le(word(index)); }

  private:
    [[nodiscard]] uint32_t word(size_t index) const {
        uint32_t value;
        std::memcpy(&value,
                    __builtin_assume_aligned(bytes_ + index * sizeof value, alignof(uint32_t)),
                    sizeof value);
        return value;
    }

    const uint8_t *bytes_;
    alignas(uint32_t) uint8_t copy_[Size];
};

// Walks a received message. A read past the end fails, and everything after it fails too, so a
// record can be read field by field and judged once.
class ByteReader {
  public:
    ByteReader(const uint8_t *bytes, size_t size) : bytes_(bytes), size_(size) {}

    [[nodiscard]] bool ok() const { return ok_; }
    [[nodiscard]] size_t position() const { return position_; }
    [[nodiscard]] size_t left() const { return ok_ ? size_ - position_ : 0; }

    // Goes on reading at another place of the message.
    void seek(size_t position) {
        ok_ = ok_ && position <= size_;
        position_ = ok_ ? position : position_;
    }

    // The next `count` bytes, stepped over; null when fewer are left.
    const uint8_t *take(size_t count) {
        ok_ = ok_ && count <= size_ - position_;
        if (!ok_) {
            return nullptr;
        }
        position_ += count;
        return bytes_ + position_ - count;
    }

    uint8_t u8() {
        const uint8_t *field = take(1);
        return field != nullptr ? *field : uint8_t{0};
    }

    uint16_t be16() {
        const uint8_t *field = take(2);
        return field != nullptr ? load_be16(field) : uint16_t{0};
    }

    uint32_t be32() {
        const uint8_t *field = take(4);
        return field != nullptr ? load_be32(field) : 0;
    }

  private:
    const uint8_t *bytes_;
    size_t size_;
    size_t position_ = 0;
    bool ok_ = true;
};

} // namespace rk
