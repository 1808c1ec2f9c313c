// Firmware images, written to a partition and compared with it.
#include <routerkit/mtd.h>

#include "support/bytes.h"
#include "support/flash_files.h"

namespace {

constexpr size_t kHeader = 16;
constexpr size_t kRoom = 4096;

bool adds_up(std::string_view payload) {
    unsigned sum = 0;
    for (size_t i = 0; i < payload.size(); ++i) {
        sum += static_cast<unsigned>(static_cast<uint8_t>(payload[i])) << (i % 2 == 0 ? 8 : 0);
    }
    return payload.size() % 2 == 0 && sum % 65536 == 0;
}

} // namespace

void fuzz::run(std::string_view input) {
    bool flashes = take(input) % 2 != 0;
    std::string image(input);
    image.resize(std::max(image.size(), kHeader));
    auto *header = reinterpret_cast<uint8_t *>(image.data());
    const size_t there = image.size() - kHeader;
    // The caller vouches for the payload: only lengths that no flash has may lie.
    bool absurd = rk::load_be32(header + 12) > 256U << 20;
    uint32_t length = rk::load_be32(header + 12) % static_cast<uint32_t>(there + 1);
    if (!absurd) {
        rk::store_be32(header + 12, length);
    }
    image.resize(kHeader + (absurd ? there : length));
    lab::Fenced fenced(image);
    bool valid = !absurd && adds_up(std::string_view(image).substr(kHeader));
    require(is_mtd_image(fenced.data()) == (valid ? 1 : 0));
    if (!flashes) {
        return;
    }
    const std::string before(kRoom, '\xff');
    const std::string payload = image.substr(kHeader);
    const size_t offset = rk::load_be32(header + 8);
    bool fits = offset <= kRoom && payload.size() <= kRoom - offset;
    partition_list.put("dev:\nmtd0: 00001000 00000100 \"flash\"\n");
    partition.put(before);
    lab::on_ioctl = [](unsigned long, void *) { return 0; };
    require(mtd_write("flash", fenced.data()) == (valid && fits ? 0 : -1));
    std::string wanted = before;
    if (valid && fits) {
        wanted.replace(offset, payload.size(), payload);
    }
    require(partition.get() == wanted);
    bool same = !absurd && wanted.substr(std::min(offset, kRoom), payload.size()) == payload;
    int result = same ? 0 : 1;
    bool is_place = static_cast<off_t>(offset) >= 0; // one of 32 bits is not, from 2 GB on
    require(mtd_same("flash", fenced.data()) == (is_place ? result : -1));
}
