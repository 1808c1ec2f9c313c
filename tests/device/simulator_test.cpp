// The simulator seen by the switch driver's callers and, preloaded, by ordinary programs.
#include <cerrno>
#include <cstdio>
#include <cstdlib>

#include <fcntl.h>
#include <net/if.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <unistd.h>

#include <routerkit/link-layer.h>
#include <routerkit/wan.h>

#include "support/lab.h"
#include "support/owning.h"

using lab::FailsWith;
using lab::sh;

namespace {

const std::string kPreload = "ROUTERKIT_SIM=/tmp/sim LD_PRELOAD=" ROUTERKIT_SIM_LIBRARY " ";

TEST(Simulator, SwitchTellsItsLinkAndItsOwnAnswers) {
    ::setenv("ROUTERKIT_SIM", "/tmp/sim", 1);
    EXPECT_EQ(wan_getLinkStatus(), 0) << "no switch yet: the kernel knows no eth1";
    lab::put("/tmp/sim/eth1/link", "down\n");
    EXPECT_EQ(wan_getLinkStatus(), 0);
    lab::put("/tmp/sim/eth1/link", "up\n");
    lab::put("/tmp/sim/calls", "");
    EXPECT_EQ(wan_getLinkStatus(), 1);
    EXPECT_THAT(lab::get("/tmp/sim/calls"), testing::StartsWith("switch eth1 2000 0 0 0x"));
    lab::put("/tmp/sim/fail/switch", "1 EIO");
    EXPECT_EQ(wan_getLinkStatus(), 0) << "down while the driver does not answer";

    EXPECT_THAT(re865xIoctl("eth1", 3000, 1, 2, 3), FailsWith(-1, EOPNOTSUPP));
    EXPECT_THAT(re865xIoctl("eth1", 2000, 0, 0, 0), FailsWith(-1, EFAULT));
    lab::put("/tmp/sim/eth1/3000", "-2\n");
    EXPECT_EQ(re865xIoctl("eth1", 3000, 1, 2, 3), 0xfffe);
    EXPECT_THAT(re865xIoctl("lo", 3000, 1, 2, 3), FailsWith(-1, EOPNOTSUPP)) << "the kernel's word";
    ifreq record = {"eth1", {}};
    EXPECT_THAT(::ioctl(0, SIOCDEVPRIVATE, &record), testing::Eq(-1)) << "no socket";
    rk::UniqueFd control(::socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0));
    EXPECT_THAT(::ioctl(control.get(), SIOCDEVPRIVATE, &record), FailsWith(-1, EFAULT));
    int index = 0;
    EXPECT_EQ(dev_getAddrs(nullptr, nullptr, nullptr, &index, "lo"), 0);
    EXPECT_EQ(index, 1) << "other requests are the kernel's";
    ::unsetenv("ROUTERKIT_SIM");
}

TEST(Simulator, AFileThatIsNoDeviceAnyMoreIsAPlainOne) {
    ::setenv("ROUTERKIT_SIM", "/tmp/sim", 1);
    lab::put("/tmp/sim/flash/mtd2", "1234");
    rk::UniqueFd device(::open("/dev/mtdblock2", O_RDWR | O_CLOEXEC));
    EXPECT_EQ(::write(device.get(), "12345", 5), 4);
    EXPECT_THAT(::write(device.get(), "5", 1), FailsWith(-1, ENOSPC));
    ASSERT_EQ(::rename("/tmp/sim/flash/mtd2", "/tmp/plain"), 0); // with the same inode
    EXPECT_EQ(::write(device.get(), "5", 1), 1);
    EXPECT_EQ(lab::get("/tmp/plain"), "12345");
    ::unsetenv("ROUTERKIT_SIM");
}

TEST(Simulator, OrdinaryProgramsSeeFlashOfAFixedSize) {
    lab::put("/tmp/sim/flash/partitions", "dev:\nmtd3: 00001000 00000100 \"boot\"\n");
    lab::put("/tmp/sim/flash/mtd3", std::string(4096, '\xff'));
    EXPECT_EQ(sh(kPreload + "cat /proc/mtd"), lab::get("/tmp/sim/flash/partitions"));
    std::string text(600, 'x');
    lab::put("/tmp/image", text);
    sh(kPreload + "dd if=/tmp/image of=/dev/mtdblock3 bs=512 seek=1 status=none");
    std::string flash = std::string(512, '\xff') + text + std::string(4096 - 512 - 600, '\xff');
    EXPECT_TRUE(lab::get("/tmp/sim/flash/mtd3") == flash) << "neither emptied nor cut";
    sh(kPreload + "cat /dev/mtd3 > /tmp/copy && cmp /tmp/copy /tmp/sim/flash/mtd3");
    EXPECT_THAT(sh("! " + kPreload + "dd if=/tmp/image of=/dev/mtd3 bs=512 seek=7"),
                testing::HasSubstr("No space left on device"));
    EXPECT_EQ(lab::get("/tmp/sim/flash/mtd3").substr(3584), text.substr(0, 512));
    sh("! cmp /proc/mtd /tmp/sim/flash/partitions"); // not preloaded, not simulated
    sh("LD_PRELOAD=" ROUTERKIT_SIM_LIBRARY
       " sh -c 'echo plain > /tmp/file && grep plain /tmp/file'");
}

} // namespace
