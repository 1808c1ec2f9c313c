// The check of a firmware image against a copy of the same bytes: both must touch all of them.
#include <routerkit/mtd.h>

#include <cstring>
#include <vector>

#include "support/pairs.h"

namespace {

constexpr size_t kHeader = 16;
constexpr size_t kPayload = 5U << 20;

std::vector<uint8_t> image;
std::vector<uint8_t> copy;
int verdict;

// Sixteen different bytes whose eight words add up to 0, repeated.
void make_image() {
    const uint8_t pattern[] = {0x12, 0x34, 0xed, 0xcc, 0x00, 0x01, 0xff, 0xff,
                               0x80, 0x7f, 0x7f, 0x81, 0x5a, 0xa5, 0xa5, 0x5b};
    image.resize(kHeader + kPayload);
    image[13] = kPayload >> 16;
    for (size_t i = 0; i < kPayload; ++i) {
        image[kHeader + i] = pattern[i % sizeof pattern];
    }
    copy.resize(kPayload);
}

std::string is_whole(bool whole) {
    return whole ? "whole" : "broken";
}

} // namespace

void bench::declare_rows() {
    make_image();
    Row row("is_mtd_image, 5 MB");
    row.ours([](size_t) { verdict = is_mtd_image(image.data()); },
             [] { return is_whole(verdict == 1); });
    row.peer(
        "memcpy", 3.0, [](size_t) { std::memcpy(copy.data(), image.data() + kHeader, kPayload); },
        [] { return is_whole(std::memcmp(copy.data(), image.data() + kHeader, kPayload) == 0); });
}
