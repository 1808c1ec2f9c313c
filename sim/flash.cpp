#include "flash.h"

#include <array>
#include <cstring>

#include <sys/stat.h>

#include "support/errno.h"

using rk::ErrnoSaver;

namespace sim {
namespace {

constexpr char kDevice[] = "/dev/mtd";

// A device's file, whatever descriptor it is open under.
struct FileId {
    dev_t device;
    ino_t inode;

    bool operator==(const FileId &) const = default;
};

constinit std::array<FileId, 32> devices = {};
constinit size_t devices_used = 0; // 0 in most programs: they pay nothing for a write

} // namespace

bool is_device_path(const char *path) {
    return std::strncmp(path, kDevice, sizeof kDevice - 1) == 0;
}

bool flash_path(const char *path, Path &file) {
    if (path == nullptr || path[0] != '/') {
        return false;
    }
    if (std::strcmp(path, "/proc/mtd") == 0) {
        return has_device("flash") && state_path(file, "flash/partitions");
    }
    if (!is_device_path(path)) {
        return false;
    }
    const char *number = path + sizeof kDevice - 1;
    number += std::strncmp(number, "block", 5) == 0 ? 5 : 0;
    size_t digits = std::strspn(number, "0123456789");
    return digits != 0 && number[digits] == '\0' && has_device("flash") &&
           state_path(file, "flash/mtd%s", number);
}

void remember_device(int fd) {
    struct stat status;
    if (device_size(fd) < 0 && devices_used < devices.size() && ::fstat(fd, &status) == 0) {
        devices[devices_used++] = {status.st_dev, status.st_ino};
    }
}

int64_t device_size(int fd) {
    struct stat status;
    ErrnoSaver keep;
    if (devices_used == 0 || ::fstat(fd, &status) != 0) {
        return -1;
    }
    for (size_t i = 0; i < devices_used; ++i) {
        if (devices[i] == FileId{status.st_dev, status.st_ino}) {
            return status.st_size;
        }
    }
    return -1;
}

} // namespace sim
