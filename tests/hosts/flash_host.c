/* A host program of the flash functions, for the test machine: its kernel has real partitions (see
 * tests/vm/init). Without an argument it lists its tests, with one it runs that test. */
#include <routerkit/mtd.h>

#include <errno.h>
#include <fcntl.h>
#include <stddef.h>
#include <stdint.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include <linux/fs.h>
#include <mtd/mtd-user.h>

#define EXPECT(what)                                                                               \
    do {                                                                                           \
        if (!(what)) {                                                                             \
            printf("%s:%d: not so: %s (errno %d)\n", __FILE__, __LINE__, #what, errno);            \
            ++failures;                                                                            \
        }                                                                                          \
    } while (0)

enum { kHeader = 16 };

static int failures;

static void store_be32(uint8_t *bytes, uint32_t value) {
    for (int i = 0; i < 4; ++i) {
        bytes[i] = (uint8_t)(value >> (24 - 8 * i));
    }
}

/* An image with a right checksum, its payload another one for each seed; the caller frees it. */
static uint8_t *new_image(uint32_t offset, uint32_t length, unsigned seed) {
    uint8_t *image = calloc(kHeader + (size_t)length, 1);
    uint8_t *payload = image + kHeader;
    unsigned sum = 0;
    store_be32(image + 8, offset);
    store_be32(image + 12, length);
    for (uint32_t i = 0; i + 2 < length; ++i) {
        payload[i] = (uint8_t)((i + seed) * 2654435761U >> 13);
        sum += (unsigned)payload[i] << (i % 2 == 0 ? 8 : 0);
    }
    payload[length - 2] = (uint8_t)((0 - sum) >> 8);
    payload[length - 1] = (uint8_t)(0 - sum);
    return image;
}

/* What the flash itself holds, past the block device and its cache; the caller frees it. */
static uint8_t *flash_content(const char *name, uint32_t *size) {
    mtd_partition_t partition = {0, 0};
    int fd = mtd_open(name, O_RDONLY, &partition);
    uint8_t *content = malloc(partition.size);
    *size = partition.size;
    EXPECT(fd >= 0 && read(fd, content, partition.size) == (ssize_t)partition.size);
    close(fd);
    return content;
}

/* Writes an image of a partition and finds it, and nothing else, changed. */
static void write_and_compare(const char *name, uint32_t offset, uint32_t length, unsigned seed) {
    uint32_t size = 0;
    uint8_t *image = new_image(offset, length, seed);
    uint8_t *expected = flash_content(name, &size);
    EXPECT(mtd_same(name, image) == 1);
    EXPECT(is_mtd_image(image) == 1);
    EXPECT(mtd_write(name, image) == 0);
    EXPECT(mtd_same(name, image) == 0);
    memcpy(expected + offset, image + kHeader, length);
    uint8_t *content = flash_content(name, &size);
    EXPECT(memcmp(content, expected, size) == 0);
    image[kHeader + length - 1] ^= 1;
    EXPECT(mtd_same(name, image) == 1);
    free(content);
    free(expected);
    free(image);
}

/* Refuses an image and leaves the flash as it was. */
static void refuse(const char *name, uint8_t *image, int error) {
    uint32_t size = 0;
    uint8_t *before = flash_content(name, &size);
    errno = 0;
    EXPECT(mtd_write(name, image) == -1 && errno == error);
    uint8_t *after = flash_content(name, &size);
    EXPECT(memcmp(before, after, size) == 0);
    free(before);
    free(after);
    free(image);
}

static void partitions_are_the_kernels(void) {
    static const struct {
        const char *name;
        int index;
    } kExpected[] = {{"linux", 0},
                     {"rootfs", 1},
                     {"jffs2", 2},
                     {"linux2", 3},
                     {"rootfs2", 4},
                     {"file2", 5},
                     {"simulator partition 0", 6},
                     {"simulator partition 1", 7}};
    for (size_t i = 0; i < sizeof kExpected / sizeof kExpected[0]; ++i) {
        mtd_partition_t partition = {0, 0};
        struct mtd_info_user kernels;
        uint64_t block_size = 0;
        int index = mtd_getinfo(kExpected[i].name, &partition);
        EXPECT(index == kExpected[i].index);
        int flash = mtd_open(kExpected[i].name, O_RDONLY, NULL);
        int block = mtd_block_open(kExpected[i].name, O_RDONLY, NULL);
        EXPECT(ioctl(flash, MEMGETINFO, &kernels) == 0);
        EXPECT(ioctl(block, BLKGETSIZE64, &block_size) == 0);
        EXPECT(kernels.size == partition.size && kernels.erasesize == partition.erasesize);
        EXPECT(block_size == partition.size);
        close(flash);
        close(block);
    }
    errno = 0;
    EXPECT(mtd_getinfo("nvram", NULL) == -1 && errno == ENOENT);
}

static void images_land_at_their_offsets(void) {
    mtd_partition_t rootfs;
    mtd_getinfo("rootfs2", &rootfs);
    write_and_compare("rootfs2", 0, rootfs.size, 1);
    write_and_compare("rootfs2", 0x1002, 0x3004, 2); /* neither begins nor ends with a block */
    write_and_compare("rootfs2", rootfs.size - 2, 2, 3);
}

/* Erased a block of 16 KiB at a time, with the rest of the block kept. */
static void images_land_on_nand(void) {
    write_and_compare("simulator partition 1", 0x4ffe, 0x8006, 1);
    write_and_compare("simulator partition 1", 0x5000, 0x200, 2);
}

static void wrong_images_change_nothing(void) {
    mtd_partition_t jffs2;
    mtd_getinfo("jffs2", &jffs2);
    uint8_t *flipped = new_image(0, 100, 1);
    flipped[50] ^= 1;
    refuse("jffs2", flipped, EINVAL);
    uint8_t *odd = new_image(0, 100, 1);
    odd[15] = 99;
    refuse("jffs2", odd, EINVAL);
    refuse("jffs2", new_image(jffs2.size - 98, 100, 1), ENOSPC);
    refuse("jffs2", new_image(0, jffs2.size + 2, 1), ENOSPC);
    uint8_t *beyond = new_image(jffs2.size - 98, 100, 1);
    EXPECT(mtd_same("jffs2", beyond) == 1);
    free(beyond);
}

/* Its 11th block cannot be erased, which shows when the write reaches the flash. */
static void worn_flash_is_told(void) {
    uint8_t *image = new_image(10 * 0x4000, 0x4000, 1);
    errno = 0;
    EXPECT(mtd_write("simulator partition 0", image) == -1 && errno == EIO);
    store_be32(image + 8, 9 * 0x4000);
    EXPECT(mtd_write("simulator partition 0", image) == 0);
    EXPECT(mtd_same("simulator partition 0", image) == 0);
    free(image);
}

static const struct {
    const char *name;
    void (*run)(void);
} kTests[] = {{"RealFlash.PartitionsAreTheKernels", partitions_are_the_kernels},
              {"RealFlash.ImagesLandAtTheirOffsets", images_land_at_their_offsets},
              {"RealFlash.ImagesLandOnNand", images_land_on_nand},
              {"RealFlash.WrongImagesChangeNothing", wrong_images_change_nothing},
              {"RealFlash.WornFlashIsTold", worn_flash_is_told}};

int main(int argc, char **argv) {
    int ran = 0;
    for (size_t i = 0; i < sizeof kTests / sizeof kTests[0]; ++i) {
        if (argc < 2) {
            puts(kTests[i].name);
        } else if (strcmp(argv[1], kTests[i].name) == 0) {
            kTests[i].run();
            ++ran;
        }
    }
    return argc < 2 || (ran == 1 && failures == 0) ? 0 : 1;
}
