// The flash: /proc/mtd, /dev/mtdN and /dev/mtdblockN over plain files.
#pragma once

#include <cstdint>

#include "state.h"

namespace sim {

// Where a path of the flash leads to; false for every other path, and without a simulated flash.
bool flash_path(const char *path, Path &file);

// Whether a file is a partition's device rather than the list of partitions.
bool is_device_path(const char *path);

// Remembers an opened device, so that its descriptors are known for devices, copies of them too.
void remember_device(int fd, const char *path);

// The size of the device behind a descriptor, or -1 when it is none.
int64_t device_size(int fd);

} // namespace sim
