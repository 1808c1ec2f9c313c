/* Flash partitions of the kernel's MTD layer: finding one by name, checking, writing and comparing
 * firmware images.
 *
 * A partition's name is any part of the name in the kernel's list (/proc/mtd); the first match in
 * the list's order wins: of "rootfs" and "rootfs2", "rootfs" finds the first. The list's first 2047
 * bytes and the first 31 characters of each name count. Where there is no such list, that of the
 * router's standard flash stands in for it, with erase blocks of 0x1000 bytes:
 *   0  boot+cfg+linux   0x2c0000 bytes
 *   1  rootfs           0x4e0000
 *   2  jffs2 file       0x60000
 *   3  boot+cfg+linux2  0x2c0000
 *   4  rootfs2          0x4e0000
 *   5  jffs2 file2      0x60000
 *
 * An image starts with a header of 16 bytes, numbers big-endian:
 *   0   8 bytes that nothing here looks at
 *   8   where in the partition the payload belongs, in bytes
 *   12  length of the payload in bytes
 *   16  the payload, whose 16-bit big-endian words add up to 0 modulo 65536
 * The caller vouches that the payload is there: compare its length with what you hold first. Only
 * lengths that no such flash holds are noticed, above 16 MB.
 *
 * Results are -1 on failure, with errno as the failing call left it or as a line says.
 */
#ifndef ROUTERKIT_MTD_H
#define ROUTERKIT_MTD_H

#include <stdint.h>

#include <routerkit/export.h>

ROUTERKIT_BEGIN_DECLS

/* One line of the kernel's list. */
typedef struct {
    uint32_t size;      /* of the partition, in bytes */
    uint32_t erasesize; /* of one erase block, in bytes */
} mtd_partition_t;

/* The partition's index (0 or more); fills `info` unless it is null. ENOENT: no name matches. */
ROUTERKIT_API int mtd_getinfo(const char *name, mtd_partition_t *info);

/* Open the character device /dev/mtdN or the block device /dev/mtdblockN of a partition; the path
 * takes one slot of strf.
 *   flags  as for open; the descriptor is close-on-exec besides
 *   info   filled unless null, also when the device cannot be opened
 * Return a descriptor that the caller closes, or -1. */
ROUTERKIT_API int mtd_open(const char *name, int flags, mtd_partition_t *info);
ROUTERKIT_API int mtd_block_open(const char *name, int flags, mtd_partition_t *info);

/* 1 if the payload's length is even and its checksum right, else 0. A length above 16 MB is taken
 * for no image. */
ROUTERKIT_API int is_mtd_image(const void *image);

/* Writes an image's payload to its place and waits until the flash has it; the block device's
 * buffers are dropped, so that the next read sees the flash itself. An image that is none (EINVAL)
 * or that reaches past the partition's end (ENOSPC; EINVAL where it begins behind the device's end)
 * writes nothing. 0 or -1; a failing fsync or flush is logged at LOG_ERR. */
ROUTERKIT_API int mtd_write(const char *name, const void *image);

/* 0 if the partition holds the payload at its place; 1 if it differs, which it also does where the
 * device ends first; -1 on failure, also (EINVAL) for a place behind the device's end. The checksum
 * is not looked at. Opens the device for writing, too, and takes one erase block from the heap. */
ROUTERKIT_API int mtd_same(const char *name, const void *image);

ROUTERKIT_END_DECLS

#endif
