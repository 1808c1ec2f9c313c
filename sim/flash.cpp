#include "flash.h"

#include <algorithm>
#include <array>
#include <cstdlib>
#include <cstring>

#include <sys/stat.h>

#include "support/errno.h"

using rk::ErrnoSaver;

namespace sim {
namespace {

constexpr char kDevice[] = "/dev/mtd";

// A device's file, whatever descriptor it is open under.
struct Device {
    dev_t file_system;
    ino_t inode;
    unsigned long number; // of its partition

    [[nodiscard]] bool is(const struct stat &status) const {
        return file_system == status.st_dev && inode == status.st_ino;
    }

    // A file that is gone may have left its inode to a plain one.
    [[nodiscard]] bool still_there() const {
        Path path;
        struct stat status;
        return state_path(path, "flash/mtd%lu", number) && ::stat(path.c_str(), &status) == 0 &&
               is(status);
    }
};

constinit std::array<Device, 32> devices = {};
constinit size_t devices_used = 0; // 0 in most programs: they pay nothing for a write

void forget_missing_devices() {
    auto *end = devices.data() + devices_used;
    auto *kept = std::remove_if(devices.data(), end,
                                [](const Device &device) { return !device.still_there(); });
    devices_used = static_cast<size_t>(kept - devices.data());
}

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

void remember_device(int fd, const char *path) {
    ErrnoSaver keep;
    struct stat status;
    forget_missing_devices();
    if (device_size(fd) < 0 && devices_used < devices.size() && ::fstat(fd, &status) == 0) {
        const char *number = path + std::strcspn(path, "0123456789");
        devices[devices_used++] = {status.st_dev, status.st_ino, std::strtoul(number, nullptr, 10)};
    }
}

int64_t device_size(int fd) {
    struct stat status;
    ErrnoSaver keep;
    if (devices_used == 0 || ::fstat(fd, &status) != 0) {
        return -1;
    }
    for (size_t i = 0; i < devices_used; ++i) {
        if (devices[i].is(status)) {
            return devices[i].still_there() ? status.st_size : -1;
        }
    }
    return -1;
}

} // namespace sim
