#include <routerkit/files.h>

#include <climits>
#include <cstdlib>
#include <fcntl.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/time.h>
#include <sys/wait.h>
#include <unistd.h>

#include "support/lab.h"
#include "support/syscalls.h"

using lab::FailsWith;
using lab::get;
using lab::put;

namespace {

const std::string kFits(2047, 'x');
const std::string kTooLong(2048, 'x');

// A path that cannot be created.
constexpr const char *kNowhere = "/tmp/missing/file";

TEST(Files, ExistenceAndFlags) {
    lab::Census census;
    EXPECT_EQ(isFileExist("/tmp/f"), 0);
    EXPECT_THAT(isFileEmpty("/tmp/f"), FailsWith(-1, ENOENT));
    EXPECT_THAT(flagFile("/tmp/f", 0), FailsWith(-1, ENOENT));
    EXPECT_EQ(upFlagFile("/tmp/f"), 1);
    EXPECT_EQ(isFileEmpty("/tmp/f"), 1);
    put("/tmp/f", "content");
    EXPECT_EQ(upFlagFile("/tmp/f"), 0);
    EXPECT_EQ(get("/tmp/f"), "content") << "a flag that is up is not touched";
    EXPECT_EQ(isFileEmpty("/tmp/f"), 0);
    EXPECT_EQ(flagFile("/tmp/f", 2), 0);
    EXPECT_EQ(get("/tmp/f"), "");
    EXPECT_EQ(flagFile("/tmp/f", 0), 0);
    EXPECT_EQ(isFileExist("/tmp/f"), 0);
    EXPECT_THAT(createFile(kNowhere), FailsWith(-1, ENOENT));
    EXPECT_THAT(upFlagFile(kNowhere), FailsWith(-1, ENOENT));
    EXPECT_EQ(isFileExist("/tmp"), 1);
}

TEST(Files, ModesFollowTheUmask) {
    ::umask(027);
    createFile("/tmp/f");
    mkdirf("/tmp/%s", "made");
    char path[] = "/tmp/along/way";
    mkpath(path, 0);
    struct stat status;
    ::stat("/tmp/f", &status);
    EXPECT_EQ(status.st_mode & 07777U, 0640U);
    ::stat("/tmp/made", &status);
    EXPECT_EQ(status.st_mode & 07777U, 0750U);
    ::umask(02);
    char again[] = "/tmp/other";
    mkpath(again, 0);
    ::stat("/tmp/other", &status);
    EXPECT_EQ(status.st_mode & 07777U, 0775U);
}

TEST(Files, ModificationTimeIsPacked) {
    put("/tmp/f", "");
    timeval times[2] = {{1772533230, 0}, {1772533230, 0}}; // 2026-03-03 10:20:30 UTC
    ::utimes("/tmp/f", times);
    ::setenv("TZ", "Asia/Tokyo", 1);
    EXPECT_EQ(getFileTime("/tmp/f"), 8824094);
    EXPECT_THAT(getFileTime(kNowhere), FailsWith(-1, ENOENT));
}

TEST(Files, MkpathMakesWhatIsMissingAndRestoresItsText) {
    struct Case {
        const char *path;
        int last_is_file;
        int result;
        const char *made;
        const char *not_made;
    };
    put("/tmp/file", "");
    const Case cases[] = {
        {"/tmp/a/b/c", 1, 0, "/tmp/a/b", "/tmp/a/b/c"},
        {"/tmp/a/b/c", 0, 0, "/tmp/a/b/c", "/tmp/a/b/c/d"},
        {"/tmp//d///e/", 1, 0, "/tmp/d/e", "/tmp/d/e/e"},
        {"/tmp/g/h/", 0, 0, "/tmp/g/h", "/tmp/g/h/h"},
        {"relative/deep", 0, 0, "/tmp/relative/deep", "/tmp/deep"},
        {"alone", 1, 0, "/tmp", "/tmp/alone"},
        {"/tmp/file/x", 0, -1, "/tmp/file", "/tmp/file/x"},
        {"/tmp/new/../file/x/y", 0, -1, "/tmp/new", "/tmp/x"},
        {"/tmp/file", 0, -1, "/tmp/file", "/tmp/file/x"},
        {"", 0, -1, "/tmp", "/tmp/x"},
    };
    ASSERT_EQ(::chdir("/tmp"), 0);
    for (const Case &one : cases) {
        SCOPED_TRACE(one.path);
        std::string path = one.path;
        EXPECT_EQ(mkpath(path.data(), one.last_is_file), one.result);
        EXPECT_EQ(path, one.path);
        EXPECT_TRUE(lab::exists(one.made));
        EXPECT_FALSE(lab::exists(one.not_made));
    }
    char through_file[] = "/tmp/file/x";
    EXPECT_THAT(mkpath(through_file, 1), FailsWith(-1, ENOTDIR));
    ASSERT_EQ(::symlink("nowhere", "/tmp/dangling"), 0);
    char dangling[] = "/tmp/dangling";
    EXPECT_THAT(mkpath(dangling, 0), FailsWith(-1, EEXIST)) << "as mkdir said";
}

TEST(Files, WritersReplaceAndAppendersAdd) {
    lab::Census census;
    EXPECT_EQ(writeFile("/tmp/f", "a\0b", 3), 3);
    EXPECT_EQ(get("/tmp/f"), std::string("a\0b", 3));
    EXPECT_EQ(writeStrToFile("/tmp/f", "up"), 2);
    EXPECT_EQ(appendFile("/tmp/f", "12", 2), 2);
    EXPECT_EQ(appendStrToFile("/tmp/f", "!"), 1);
    EXPECT_EQ(appendFmtToFile("/tmp/f", "%s=%d", "n", 7), 3);
    EXPECT_EQ(appendLineToFile("/tmp/f", "line"), 5);
    EXPECT_EQ(get("/tmp/f"), "up12!n=7line\n");
    EXPECT_EQ(writeFmtToFile("/tmp/f", "<%02x>", 10), 4);
    EXPECT_EQ(get("/tmp/f"), "<0a>");
    EXPECT_EQ(writeLineToFile("/tmp/f", ""), 1);
    EXPECT_EQ(get("/tmp/f"), "\n");
    EXPECT_EQ(writeFile("/tmp/f", "", 0), 0);
    EXPECT_EQ(get("/tmp/f"), "");
    EXPECT_EQ(writeFile("/tmp/f", nullptr, 5), 0);
    EXPECT_FALSE(lab::exists("/tmp/f"));
    EXPECT_THAT(writeFile("/tmp/f", nullptr, 0), FailsWith(-1, ENOENT));
    for (long number : {0L, 7L, -1L, LONG_MAX, LONG_MIN}) {
        std::string text = std::to_string(number) + "\n";
        EXPECT_EQ(writeNumToFile("/tmp/f", number), static_cast<int>(text.size()));
        EXPECT_EQ(get("/tmp/f"), text);
    }
}

TEST(Files, WritersReportFailures) {
    lab::Census census;
    EXPECT_THAT(writeStrToFile(kNowhere, "x"), FailsWith(-1, ENOENT));
    EXPECT_THAT(writeNumToFile(kNowhere, 1), FailsWith(-1, ENOENT));
    EXPECT_THAT(appendLineToFile(kNowhere, "x"), FailsWith(-1, ENOENT));
    EXPECT_THAT(writeStrToFile("/tmp", "x"), FailsWith(-1, EISDIR));
    EXPECT_THAT(writeStrToFile("/dev/full", "x"), FailsWith(-1, ENOSPC));
    EXPECT_THAT(writeFmt(-1, "x"), FailsWith(-1, EBADF));
    EXPECT_THAT(mkdirf("/tmp"), FailsWith(-1, EEXIST));
    EXPECT_THAT(appendFile("/tmp/f", nullptr, 1), FailsWith(-1, EINVAL));
    EXPECT_EQ(appendStrToFile("/tmp/f", nullptr), 0);
    EXPECT_EQ(appendLineToFile("/tmp/f", nullptr), 0);
    EXPECT_THAT(writeStrToFile("/tmp/f", nullptr), FailsWith(-1, EINVAL));
    EXPECT_THAT(writeLineToFile("/tmp/f", nullptr), FailsWith(-1, EINVAL));
    EXPECT_FALSE(lab::exists("/tmp/f"));
}

TEST(Files, TooMuchFormattedTextIsRefusedWhole) {
    put("/tmp/f", "old");
    int fd = ::open("/tmp/g", O_WRONLY | O_CREAT | O_CLOEXEC, 0600);
    const char *text = kTooLong.c_str();
    EXPECT_THAT(writeFmtToFile("/tmp/f", "%s", text), FailsWith(-1, ENOBUFS));
    EXPECT_THAT(writeLineToFile("/tmp/f", kFits.c_str()), FailsWith(-1, ENOBUFS));
    EXPECT_THAT(appendFmtToFile("/tmp/f", "%s", text), FailsWith(-1, ENOBUFS));
    EXPECT_THAT(appendLineToFile("/tmp/f", kFits.c_str()), FailsWith(-1, ENOBUFS));
    EXPECT_THAT(writeFmt(fd, "%s", text), FailsWith(-1, ENOBUFS));
    EXPECT_THAT(mkdirf("%s", text), FailsWith(-1, ENOBUFS));
    EXPECT_EQ(get("/tmp/f"), "old");
    EXPECT_EQ(get("/tmp/g"), "");
    EXPECT_EQ(writeFmt(fd, "%s", kFits.c_str()), 2047);
    EXPECT_EQ(writeFmtToFile("/tmp/f", "%s", kFits.c_str()), 2047);
    EXPECT_EQ(get("/tmp/f"), kFits);
    ::close(fd);
}

TEST(Files, ReadersStopAtTheirBuffer) {
    lab::Census census;
    put("/tmp/f", "up\n");
    char buffer[16] = "untouched";
    EXPECT_THAT(readStrFromFile(kNowhere, buffer, sizeof buffer), FailsWith(-1, ENOENT));
    EXPECT_THAT(readStrFromFile("/tmp", buffer, sizeof buffer), FailsWith(-1, EISDIR));
    EXPECT_THAT(readStrFromFile("/tmp/f", buffer, 0), FailsWith(-1, EINVAL));
    EXPECT_STREQ(buffer, "untouched");
    EXPECT_EQ(readStrFromFile("/tmp/f", buffer, sizeof buffer), 3);
    EXPECT_STREQ(buffer, "up\n");
    EXPECT_EQ(readStrFromFile("/tmp/f", buffer, 3), 2);
    EXPECT_STREQ(buffer, "up");
    buffer[1] = '#';
    EXPECT_EQ(readStrFromFile("/tmp/f", buffer, 1), 0);
    EXPECT_EQ(std::string(buffer, 2), std::string("\0#", 2));
    EXPECT_EQ(readFile("/tmp/f", buffer, 2), 2);
    EXPECT_EQ(readFile("/dev/null", buffer, sizeof buffer), 0);
    EXPECT_THAT(readFile(kNowhere, buffer, 1), FailsWith(-1, ENOENT));
    EXPECT_THAT(safe_read(-1, buffer, 1), FailsWith(-1, EBADF));
}

TEST(Files, NumbersAndScans) {
    struct Case {
        const char *text;
        long number;
    };
    const Case cases[] = {{"1234\n", 1234},     {" \t-5x", -5},
                          {"junk", 0},          {"", 0},
                          {"20 connected", 20}, {"1234567890123456789", 123456789012345}};
    for (const Case &one : cases) {
        put("/tmp/f", one.text);
        EXPECT_EQ(readNumFromFile("/tmp/f"), one.number) << one.text;
    }
    EXPECT_THAT(readNumFromFile(kNowhere), FailsWith(-1, ENOENT));

    int number = 0;
    char word[8];
    put("/tmp/f", "42 word");
    EXPECT_EQ(readFmtFromFile("/tmp/f", "%d %7s", &number, word), 2);
    EXPECT_EQ(number, 42);
    EXPECT_STREQ(word, "word");
    EXPECT_EQ(readFmtFromFile("/tmp/f", "%d %d", &number, &number), 1);
    EXPECT_EQ(readFmtFromFile("/dev/null", "%d", &number), EOF);
    EXPECT_THAT(readFmtFromFile(kNowhere, "%d", &number), FailsWith(-1, ENOENT));
    put("/tmp/f", std::string(2047, ' ') + "7");
    EXPECT_EQ(readFmtFromFile("/tmp/f", "%d", &number), EOF) << "only 2047 bytes are read";
}

TEST(Files, OneTransferIsThreeSystemCalls) {
    using testing::ElementsAre;
    lab::put("/tmp/number", "42\n");
    EXPECT_THAT(lab::system_calls([] { readNumFromFile("/tmp/number"); }),
                ElementsAre(SYS_openat, SYS_read, SYS_close));
    EXPECT_THAT(lab::system_calls([] { writeNumToFile("/tmp/number", 7); }),
                ElementsAre(SYS_openat, SYS_write, SYS_close));
    EXPECT_THAT(lab::system_calls([] { readNumFromFile("/tmp/missing"); }),
                ElementsAre(SYS_openat));
}

TEST(Files, LoadFileOwnsItsBlock) {
    lab::Census census;
    std::string content(100000, 'z');
    put("/tmp/f", content);
    size_t length = 0;
    char *block = loadFile("/tmp/f", &length);
    ASSERT_NE(block, nullptr);
    EXPECT_EQ(std::string(block), content);
    EXPECT_EQ(length, content.size());
    std::free(block);
    block = loadFile("/proc/version", nullptr);
    ASSERT_NE(block, nullptr);
    EXPECT_STREQ(block, "") << "files that report no size load as empty";
    std::free(block);
    length = 77;
    EXPECT_EQ(loadFile(kNowhere, &length), nullptr);
    EXPECT_EQ(errno, ENOENT);
    EXPECT_EQ(loadFile("/tmp", &length), nullptr);
    EXPECT_EQ(errno, EISDIR);
    EXPECT_EQ(length, 77U);
}

TEST(Files, CopyReplacesTheDestination) {
    lab::Census census;
    std::string content(300000, 'c');
    put("/tmp/from", content);
    put("/tmp/to", std::string(400000, 'o'));
    EXPECT_EQ(copyFile("/tmp/to", "/tmp/from"), 300000);
    EXPECT_EQ(get("/tmp/to"), content);
    EXPECT_THAT(copyFile("/tmp/to", kNowhere), FailsWith(-1, ENOENT));
    EXPECT_EQ(get("/tmp/to"), content) << "the source is opened first";
    EXPECT_THAT(copyFile(kNowhere, "/tmp/from"), FailsWith(-1, ENOENT));
    put("/tmp/from", "");
    EXPECT_EQ(copyFile("/tmp/to", "/tmp/from"), 0);
    EXPECT_EQ(get("/tmp/to"), "");
}

TEST(Files, WholeBufferGoesOutThroughSignalsAndShortWrites) {
    int ends[2];
    ASSERT_EQ(::pipe2(ends, O_CLOEXEC), 0);
    constexpr size_t kLength = 1000000;
    pid_t pid = ::fork();
    if (pid == 0) {
        ::close(ends[1]);
        char block[10000];
        size_t total = 0;
        for (ssize_t count; (count = ::read(ends[0], block, sizeof block)) > 0;) {
            total += static_cast<size_t>(count);
            ::usleep(1000);
        }
        std::_Exit(total == kLength ? 0 : 1);
    }
    ::close(ends[0]);
    std::string content(kLength, 'w');
    {
        lab::SignalStorm storm;
        EXPECT_EQ(safe_write(ends[1], content.data(), kLength), static_cast<int>(kLength));
        EXPECT_GT(lab::SignalStorm::count(), 5);
    }
    EXPECT_EQ(safe_write(ends[1], content.data(), 0), 0);
    EXPECT_EQ(safe_write(-1, content.data(), 0), 0) << "no system call for no bytes";
    ::close(ends[1]);
    int status = 0;
    ::waitpid(pid, &status, 0);
    EXPECT_EQ(status, 0) << "the reader counted every byte";
}

} // namespace
