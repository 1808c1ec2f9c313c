#include <routerkit/mtd.h>

#include <algorithm>
#include <cerrno>
#include <cstddef>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include <fcntl.h>
#include <sys/ioctl.h>
#include <sys/mount.h>
#include <unistd.h>

#include <routerkit/files.h>
#include <routerkit/strings.h>

#include "foundation/io.h"
#include "support/build.h"
#include "support/bytes.h"
#include "support/chars.h"
#include "support/log.h"
#include "support/owning.h"
#include "support/words.h"

using rk::fail;
using rk::retry_eintr;
using rk::UniqueFd;
using rk::Word;

namespace {

constexpr char kPartitionList[] = "/proc/mtd";

// What is flashed where no kernel tells: the list without its heading.
constexpr char kStandardPartitions[] = "\n"
                                       "mtd0: 2c0000 1000 \"boot+cfg+linux\"\n"
                                       "mtd1: 4e0000 1000 \"rootfs\"\n"
                                       "mtd2: 60000 1000 \"jffs2 file\"\n"
                                       "mtd3: 2c0000 1000 \"boot+cfg+linux2\"\n"
                                       "mtd4: 4e0000 1000 \"rootfs2\"\n"
                                       "mtd5: 60000 1000 \"jffs2 file2\"\n";

struct Partition {
    int index;
    unsigned size;
    unsigned erasesize;
    rk::Chars<32> name;
};

// The first line whose name contains `wanted`; the list's first line is a heading.
bool find_partition(const char *list, const char *wanted, Partition *found) {
    while ((list = std::strchr(list, '\n')) != nullptr) {
        ++list;
        int fields = std::sscanf(list, "mtd%d: %x %x \"%31[^\"]\"\n", &found->index, &found->size,
                                 &found->erasesize, found->name.data());
        bool is_line = fields == 4 && found->index >= 0; // negative: too large a number, wrapped
        if (is_line && std::strstr(found->name, wanted) != nullptr) {
            return true;
        }
    }
    return false;
}

int open_partition(const char *kind, const char *name, int flags, mtd_partition_t *info) {
    int index = mtd_getinfo(name, info);
    if (index < 0) {
        return index;
    }
    return rk::open_file(strf("/dev/mtd%s%d", kind, index), flags);
}

struct Image {
    uint32_t offset;
    uint32_t length;
    const uint8_t *payload;
};

Image read_header(const void *image) {
    const auto *bytes = static_cast<const uint8_t *>(image);
    return {rk::load_be32(bytes + 8), rk::load_be32(bytes + 12), bytes + 16};
}

// The first and the second bytes of 16-bit words are summed apart, several at once: one in each
// 16-bit lane of a machine word. A block has so few that the lanes' total still fits one of them.
constexpr Word kLowBytes = ~Word{0} / 0xffff * 0xff;
constexpr Word kLanes = ~Word{0} / 0xffff;
constexpr size_t kBlock = 512;

uint32_t sum_lanes(Word lanes) {
    return static_cast<uint32_t>(lanes * kLanes >> (8 * sizeof(Word) - 16));
}

uint32_t sum_block(const uint8_t *bytes, size_t length) {
    Word low = 0;
    Word high = 0;
    for (size_t i = 0; i != length; i += sizeof(Word)) {
        auto word = rk::load_native<Word>(bytes + i);
        low += word & kLowBytes;
        high += word >> 8 & kLowBytes;
    }
    uint32_t first = sum_lanes(rk::kBigEndian ? high : low);
    uint32_t second = sum_lanes(rk::kBigEndian ? low : high);
    return first * 256 + second;
}

// More than the flash of any such router: a header that says so is no header, and the memory that
// it speaks of is not the caller's.
constexpr uint32_t kLongestPayload = 16U << 20;

bool has_image_length(const Image &image) {
    return image.length % 2 == 0 && image.length <= kLongestPayload;
}

// The compact instruction set has no loads at any address, so a small library adds byte by byte:
// that is faster there as well.
bool has_right_checksum(const Image &image) {
    uint32_t sum = 0;
    size_t in_words = rk::kForSize ? 0 : image.length - image.length % sizeof(Word);
    size_t i = 0;
    while (i != in_words) {
        size_t length = std::min(in_words - i, kBlock);
        sum += sum_block(image.payload + i, length);
        i += length;
    }
    for (; i != image.length; i += 2) {
        sum += rk::load_be16(image.payload + i);
    }
    return sum % 65536 == 0;
}

bool seek(const UniqueFd &device, uint32_t offset) {
    return ::lseek(device.get(), static_cast<off_t>(offset), SEEK_SET) >= 0;
}

// Refuses whatever is wrong with an image before the first byte is written: half of one would not
// start. Its length is judged first, since a false one leads past the caller's memory.
int write_payload(const UniqueFd &device, const mtd_partition_t &partition, const Image &image) {
    if (!has_image_length(image)) {
        return fail(EINVAL);
    }
    if (image.length > partition.size) {
        return fail(ENOSPC);
    }
    if (!has_right_checksum(image)) {
        return fail(EINVAL);
    }
    if (!seek(device, image.offset)) {
        return -1;
    }
    if (image.offset > partition.size - image.length) {
        return fail(ENOSPC);
    }
    return safe_write(device.get(), image.payload, image.length) < 0 ? -1 : 0;
}

// Always fails: for `return failed(step, name);`, straight after the call that failed.
int failed(const char *step, const char *name) {
    rk::log_at(LOG_ERR, "mtd_write: %s '%s' failed: %m", step, name);
    return -1;
}

// Waits until the flash has what was written and drops the buffers, also after a failed wait.
int flush(const UniqueFd &device, const char *name) {
    const int synced = retry_eintr([&] { return ::fsync(device.get()); });
    if (synced != 0) {
        failed("fsync", name);
    }
    const int error = errno;
    if (retry_eintr([&] { return ::ioctl(device.get(), BLKFLSBUF); }) != 0) {
        return failed("block flush buf", name);
    }
    errno = error;
    return synced;
}

// 0 if the device goes on with these bytes, 1 if not, -1 when it cannot be read.
int compare(const UniqueFd &device, const uint8_t *bytes, uint32_t length, uint32_t block) {
    rk::MallocPtr<char> room(static_cast<char *>(std::malloc(block)));
    if (!room) {
        return -1;
    }
    while (length != 0) {
        int count = safe_read(device.get(), room.get(), length < block ? length : block);
        if (count < 0) {
            return -1;
        }
        if (count == 0 || std::memcmp(room.get(), bytes, static_cast<size_t>(count)) != 0) {
            return 1;
        }
        bytes += count;
        length -= static_cast<uint32_t>(count);
    }
    return 0;
}

} // namespace

int mtd_getinfo(const char *name, mtd_partition_t *info) {
    rk::Chars<2048> text;
    const char *list = text;
    if (readStrFromFile(kPartitionList, text, sizeof text) < 0) {
        if (errno != ENOENT) {
            return -1;
        }
        list = kStandardPartitions;
    }
    Partition found;
    if (!find_partition(list, name, &found)) {
        return fail(ENOENT);
    }
    if (info != nullptr) {
        *info = {found.size, found.erasesize};
    }
    return found.index;
}

int mtd_open(const char *name, int flags, mtd_partition_t *info) {
    return open_partition("", name, flags, info);
}

int mtd_block_open(const char *name, int flags, mtd_partition_t *info) {
    return open_partition("block", name, flags, info);
}

int is_mtd_image(const void *image) {
    Image header = read_header(image);
    return has_image_length(header) && has_right_checksum(header) ? 1 : 0;
}

int mtd_write(const char *name, const void *image) {
    mtd_partition_t partition;
    UniqueFd device(mtd_block_open(name, O_RDWR, &partition));
    if (!device || write_payload(device, partition, read_header(image)) != 0) {
        return -1;
    }
    return flush(device, name);
}

int mtd_same(const char *name, const void *image) {
    mtd_partition_t partition;
    UniqueFd device(mtd_block_open(name, O_RDWR, &partition));
    Image wanted = read_header(image);
    if (!device || !seek(device, wanted.offset)) {
        return -1;
    }
    if (wanted.length > partition.size) {
        return 1; // and such a payload need not be there to be compared
    }
    uint32_t block = partition.erasesize != 0 ? partition.erasesize : 4096; // RAM is not erased
    return compare(device, wanted.payload, wanted.length, block);
}
