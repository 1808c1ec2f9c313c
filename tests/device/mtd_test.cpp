// Flash as the simulator's plain files, and as real block devices with the kernel's own ends, cache
// and flush.
#include <routerkit/mtd.h>

#include <cstdlib>
#include <filesystem>
#include <functional>

#include <fcntl.h>
#include <linux/loop.h>
#include <sys/ioctl.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <sys/sysmacros.h>
#include <unistd.h>

#include "support/bytes.h"
#include "support/lab.h"

using lab::FailsWith;
using testing::ElementsAre;
using testing::IsEmpty;

namespace {

constexpr uint32_t kSize = 0x60000; // of "jffs2 file", the standard partition 2
const char *const kStore = "/tmp/sim/flash/mtd2";

std::string be32(uint32_t value) {
    uint8_t bytes[4];
    rk::store_be32(bytes, value);
    return {reinterpret_cast<char *>(bytes), 4};
}

std::string header(uint32_t offset, uint32_t length) {
    return "whatever" + be32(offset) + be32(length);
}

// Bytes that look random, with a last word that makes the checksum right.
std::string payload(size_t length) {
    std::string bytes(length, '\0');
    unsigned sum = 0;
    for (size_t i = 0; i + 2 < length; ++i) {
        bytes[i] = static_cast<char>(i * 2654435761U >> 13);
        sum += static_cast<unsigned char>(bytes[i]) << (i % 2 == 0 ? 8 : 0);
    }
    if (length >= 2) {
        rk::store_be16(reinterpret_cast<uint8_t *>(bytes.data()) + length - 2,
                       static_cast<uint16_t>(0 - sum));
    }
    return bytes;
}

std::string image(uint32_t offset, size_t length) {
    return header(offset, static_cast<uint32_t>(length)) + payload(length);
}

class Flash : public testing::Test {
  protected:
    Flash() {
        ::setenv("ROUTERKIT_SIM", "/tmp/sim", 1);
        std::filesystem::remove_all("/tmp/sim");
        lab::put("/tmp/sim/flash/mtd2", std::string(kSize, '\xff'));
    }
    ~Flash() override { ::unsetenv("ROUTERKIT_SIM"); }

    static void fail(const std::string &call, const std::string &text) {
        lab::put("/tmp/sim/fail/" + call, text);
    }

    lab::Census census_;
};

TEST_F(Flash, PartitionsByAnyPartOfTheirNames) {
    struct Case {
        const char *name;
        int index;
        uint32_t size;
    };
    const Case standard[] = {{"linux", 0, 0x2c0000},   {"rootfs", 1, 0x4e0000},
                             {"jffs2", 2, kSize},      {"linux2", 3, 0x2c0000},
                             {"rootfs2", 4, 0x4e0000}, {"file2", 5, kSize}};
    for (const Case &one : standard) {
        mtd_partition_t info = {};
        EXPECT_EQ(mtd_getinfo(one.name, &info), one.index) << one.name;
        EXPECT_TRUE(info.size == one.size && info.erasesize == 0x1000) << one.name;
    }
    EXPECT_THAT(mtd_getinfo("nvram", nullptr), FailsWith(-1, ENOENT));

    lab::put("/tmp/sim/flash/partitions",
             "mtd9: 00000001 00000002 \"heading\"\n"
             "mtd8: 00000001 \"two fields\"\nmtd7\n\njunk\n"
             "mtd12: fffffff0 00010000 \"0123456789012345678901234567890CUT\"\n"
             "mtd6: 00000010 00000000 \"last\"");
    mtd_partition_t info = {1, 1};
    for (const char *none : {"heading", "two", "0C", "CUT", "rootfs"}) {
        EXPECT_THAT(mtd_getinfo(none, &info), FailsWith(-1, ENOENT)) << none;
    }
    EXPECT_EQ(info.size + info.erasesize, 2U);
    EXPECT_EQ(mtd_getinfo("67890", &info), 12);
    EXPECT_TRUE(info.size == 0xfffffff0 && info.erasesize == 0x10000);
    EXPECT_EQ(mtd_getinfo("last", nullptr), 6);
    lab::put("/tmp/sim/flash/partitions",
             std::string(2020, '\n') + "mtd1: 1 1 \"near\"\nmtd2: 1 1 \"far\"\n");
    EXPECT_EQ(mtd_getinfo("near", nullptr), 1);
    EXPECT_THAT(mtd_getinfo("far", nullptr), FailsWith(-1, ENOENT)) << "behind 2047 bytes";
    fail("open", "1 EACCES");
    EXPECT_THAT(mtd_getinfo("rootfs", nullptr), FailsWith(-1, EACCES));
    EXPECT_THAT(lab::without_descriptors([] { return mtd_getinfo("rootfs", nullptr); }),
                FailsWith(-1, EMFILE));
}

TEST_F(Flash, OpensTheCharacterAndTheBlockDevice) {
    lab::put("/tmp/sim/calls", "");
    for (auto open : {mtd_open, mtd_block_open}) {
        mtd_partition_t info = {};
        int fd = open("jffs2", O_RDONLY, &info);
        EXPECT_EQ(info.size, kSize);
        EXPECT_EQ(::fcntl(fd, F_GETFD), FD_CLOEXEC);
        EXPECT_EQ(::close(fd), 0);
        EXPECT_THAT(open("rootfs", O_RDWR, nullptr), FailsWith(-1, ENOENT));
        EXPECT_THAT(open("nvram", O_RDWR, nullptr), FailsWith(-1, ENOENT));
        fail("open", "2 EBUSY"); // the list, then the device
        EXPECT_THAT(open("jffs2", O_RDWR, nullptr), FailsWith(-1, EBUSY));
    }
    EXPECT_EQ(lab::get("/tmp/sim/calls"), "open /dev/mtd2\nopen /dev/mtd1\nopen /dev/mtd2\n"
                                          "open /dev/mtdblock2\nopen /dev/mtdblock1\n"
                                          "open /dev/mtdblock2\n");
}

TEST(Image, ChecksumOfBigEndianWords) {
    auto verdict = [](const std::string &bytes) {
        lab::Fenced fenced(bytes); // ends where the image ends
        return is_mtd_image(fenced.data());
    };
    EXPECT_EQ(verdict(header(0, 4) + "\x12\x34\xed\xcc"), 1);
    EXPECT_EQ(verdict(header(0, 4) + "\x34\x12\xcc\xed"), 0) << "little-endian";
    for (size_t length :
         {0, 2, 4, 6, 8, 10, 16, 30, 510, 512, 1022, 1030, 2046, 2048, 2050, 4096, 4110, 65536}) {
        std::string good = image(~0U, length);
        EXPECT_EQ(verdict(good), 1) << length;
        for (size_t at = 16; at < good.size(); at += 1 + good.size() / 61) {
            std::string bad = good;
            bad[at] ^= '\x80';
            EXPECT_EQ(verdict(bad), 0) << length << " " << at;
        }
    }
    EXPECT_EQ(verdict(header(0, 131072) + std::string(131072, '\xff')), 1) << "the largest sums";
    EXPECT_EQ(verdict(header(0, 3) + std::string(3, '\0')), 0) << "odd";
    EXPECT_EQ(verdict(header(0, 0xfffffffe)), 0) << "nobody holds that much";
    EXPECT_EQ(verdict(header(0, 0x01000002)), 0);
}

// --- On both kinds of devices ---

// A block device of the kernel's over a file, in place of partition 2. Its last close detaches it,
// however the test ends.
class LoopDevice {
  public:
    explicit LoopDevice(const char *file) : fd_(-1) {
        ::mknod("/dev/loop-control", S_IFCHR | 0600, makedev(10, 237));
        int control = ::open("/dev/loop-control", O_RDWR | O_CLOEXEC);
        int store = ::open(file, O_RDWR | O_CLOEXEC);
        loop_config config = {};
        config.fd = static_cast<unsigned>(store);
        config.info.lo_flags = LO_FLAGS_AUTOCLEAR;
        for (int tries = 0; control >= 0 && fd_ < 0 && tries < 20; ++tries) {
            int number = ::ioctl(control, LOOP_CTL_GET_FREE); // others may be quicker to take it
            ::unlink("/dev/mtdblock2");
            ::mknod("/dev/mtdblock2", S_IFBLK | 0600, makedev(7, static_cast<unsigned>(number)));
            fd_ = ::open("/dev/mtdblock2", O_RDWR | O_CLOEXEC);
            if (fd_ >= 0 && ::ioctl(fd_, LOOP_CONFIGURE, &config) != 0) {
                ::close(fd_);
                fd_ = -1;
            }
        }
        ::close(store);
        ::close(control);
    }
    ~LoopDevice() { ::close(fd_); }

    bool there() const { return fd_ >= 0; }

  private:
    int fd_;
};

// Runs with the simulator's device, and again with the kernel's.
class EitherFlash : public Flash, public testing::WithParamInterface<bool> {
  protected:
    EitherFlash() {
        if (GetParam()) {
            ::unsetenv("ROUTERKIT_SIM");
        }
    }

    // The partition with so many bytes of flash behind it; skips where nobody may have one.
    void with_device(const std::string &content, const std::function<void()> &test) {
        lab::put(kStore, content);
        if (!GetParam()) {
            return test();
        }
        LoopDevice device(kStore);
        if (!device.there()) {
            GTEST_SKIP() << "no loop devices here";
        }
        test();
    }
};

TEST_P(EitherFlash, ImagesLandAtTheirOffsetsAndCompareBack) {
    struct Case {
        uint32_t offset;
        size_t length;
    };
    for (const Case &one : {Case{0, 2}, Case{0, 0}, Case{4097, 0x3002}, Case{kSize - 10, 10},
                            Case{0, kSize}, Case{kSize, 0}}) {
        with_device(std::string(kSize, '\xff'), [&] {
            std::string bytes = image(one.offset, one.length);
            lab::Fenced fenced(bytes);
            EXPECT_EQ(mtd_same("jffs2", fenced.data()), one.length == 0 ? 0 : 1);
            lab::SignalStorm storm;
            EXPECT_EQ(mtd_write("jffs2", fenced.data()), 0);
            EXPECT_EQ(mtd_same("jffs2", fenced.data()), 0);
            EXPECT_TRUE(lab::get(kStore) ==
                        std::string(one.offset, '\xff') + bytes.substr(16) +
                            std::string(kSize - one.offset - one.length, '\xff'))
                << one.offset << " " << one.length;
            if (one.length != 0) { // the first and the last byte count
                for (size_t at : {size_t{16}, bytes.size() - 1}) {
                    fenced.data()[at] ^= 1;
                    EXPECT_EQ(mtd_same("jffs2", fenced.data()), 1);
                    fenced.data()[at] ^= 1;
                }
            }
        });
    }
    EXPECT_THAT(lab::take_log(), IsEmpty());
}

TEST_P(EitherFlash, NothingIsWrittenOfAnImageThatIsWrong) {
    with_device(std::string(kSize, '\xff'), [] {
        std::string wrong = image(0, 100);
        wrong[50] ^= 1;
        std::string blank(64, '\xff'); // as the flash is
        struct Case {
            std::string bytes;
            int error;
            int same; // -1: EINVAL
        };
        const Case cases[] = {
            {wrong, EINVAL, 1},
            {header(0, 63) + payload(64), EINVAL, 1},   // odd
            {header(0, 0xfffffffe) + blank, EINVAL, 1}, // no flash is so large
            {header(0, kSize + 2) + blank, ENOSPC, 1},  // the partition is not
            {image(kSize - 62, 64), ENOSPC, 1},         // reaches past the end
            {image(kSize + 1, 64), EINVAL, -1},         // begins there
            {image(0xfffffffe, 64), EINVAL, -1},
        };
        for (const Case &one : cases) {
            lab::Fenced fenced(one.bytes);
            EXPECT_THAT(mtd_write("jffs2", fenced.data()), FailsWith(-1, one.error));
            EXPECT_EQ(mtd_same("jffs2", fenced.data()), one.same);
        }
        EXPECT_THAT(mtd_write("nvram", wrong.data()), FailsWith(-1, ENOENT));
        EXPECT_THAT(mtd_same("rootfs2", wrong.data()), FailsWith(-1, ENOENT)) << "no device";
    });
    EXPECT_TRUE(lab::get(kStore) == std::string(kSize, '\xff'));
    EXPECT_THAT(lab::take_log(), IsEmpty());
}

// The kernel's list promises more flash than there is.
TEST_P(EitherFlash, DeviceThatEndsInTheMiddle) {
    std::string bytes = image(0x1800, 0x1000);
    with_device(std::string(0x2000, '\xff'), [&] {
        EXPECT_THAT(mtd_write("jffs2", bytes.data()), FailsWith(-1, ENOSPC));
        EXPECT_EQ(mtd_same("jffs2", bytes.data()), 1);
    });
    EXPECT_EQ(lab::get(kStore).size(), 0x2000U);
}

INSTANTIATE_TEST_SUITE_P(Devices, EitherFlash, testing::Bool(),
                         [](const auto &kind) { return kind.param ? "Kernels" : "Simulated"; });

// --- Failing devices ---

TEST_F(Flash, EveryFailingStepIsToldAndLeavesNothingOpen) {
    std::string bytes = image(0x100, 0x2002);
    struct Case {
        const char *call;
        const char *when;
        int error;
        std::vector<std::string> log;
    };
    const Case writes[] = {
        {"seek", "1 EIO", EIO, {}},
        {"write", "1 EIO", EIO, {}},
        {"sync", "1 EIO", EIO, {"err: mtd_write: fsync 'ffs2 f' failed: Input/output error"}},
        {"flush",
         "1 ENOTTY",
         ENOTTY,
         {"err: mtd_write: block flush buf 'ffs2 f' failed: Inappropriate ioctl for device"}},
    };
    for (const Case &one : writes) {
        fail(one.call, one.when);
        EXPECT_THAT(mtd_write("ffs2 f", bytes.data()), FailsWith(-1, one.error)) << one.call;
        EXPECT_EQ(lab::take_log(), one.log);
        EXPECT_FALSE(lab::exists(std::string("/tmp/sim/fail/") + one.call));
    }
    for (const char *call : {"open", "write", "sync", "flush"}) {
        fail(call, "1 EINTR");
    }
    EXPECT_EQ(mtd_write("jffs2", bytes.data()), 0) << "each is made again";
    fail("sync", "1 EIO");
    fail("flush", "1 EPERM");
    EXPECT_THAT(mtd_write("jffs2", bytes.data()), FailsWith(-1, EPERM)) << "flushed all the same";
    EXPECT_EQ(lab::take_log().size(), 2U);
    fail("read", "2 EIO"); // the second erase block
    EXPECT_THAT(mtd_same("jffs2", bytes.data()), FailsWith(-1, EIO));
    fail("read", "2 EINTR");
    EXPECT_EQ(mtd_same("jffs2", bytes.data()), 0);
    lab::put("/tmp/sim/flash/partitions", "\nmtd2: 00060000 00000000 \"ram\"\n");
    EXPECT_EQ(mtd_same("ram", bytes.data()), 0) << "without erase blocks";
}

// Flash that takes no more when the kernel comes to write it.
TEST(FullDevice, IsNoticedWhenItIsSynced) {
    ASSERT_EQ(::mkdir("/tmp/small", 0755), 0);
    ASSERT_EQ(::mount("lab", "/tmp/small", "tmpfs", 0, "size=64k"), 0);
    lab::put("/tmp/small/mtd2", "");
    lab::put("/tmp/small/filler", std::string(65536, '#'));
    ASSERT_EQ(::truncate("/tmp/small/mtd2", kSize), 0);
    LoopDevice device("/tmp/small/mtd2");
    if (!device.there()) {
        GTEST_SKIP() << "no loop devices here";
    }
    lab::Census census;
    EXPECT_THAT(mtd_write("jffs2", image(0, kSize).data()), testing::Eq(-1));
    EXPECT_TRUE(errno == EIO || errno == ENOSPC) << errno;
    EXPECT_THAT(lab::take_log(),
                ElementsAre(testing::StartsWith("err: mtd_write: fsync 'jffs2' failed: ")));
}

} // namespace
