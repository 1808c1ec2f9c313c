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

constexpr const char *kNowhere = "/tmp/missing/file"; // cannot be created

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
    EXPECT_THAT(upFlagFile(kNowhere), FailsWith(-1, ENOENT));
}

TEST(Files, ModesFollowTheUmask) {
    auto mode = [](const char *path) {
        struct stat status = {};
        EXPECT_EQ(::stat(path, &status), 0) << path;
        return status.st_mode & 07777U;
    };
    ::umask(02);
    createFile("/tmp/f");
    mkdirf("/tmp/%s", "made");
    char path[] = "/tmp/along";
    mkpath(path, 0);
    EXPECT_EQ(mode("/tmp/f"), 0664U);
    EXPECT_EQ(mode("/tmp/made"), 0755U);
    EXPECT_EQ(mode("/tmp/along"), 0775U);
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
        int error; // 0: success
        const char *made, *not_made;
    };
    put("/tmp/file", "");
    ASSERT_EQ(::symlink("nowhere", "/tmp/dangling"), 0);
    ASSERT_EQ(::chdir("/tmp"), 0);
    const Case cases[] = {
        {"/tmp/a/b/c", 1, 0, "/tmp/a/b", "/tmp/a/b/c"},
        {"/tmp/a/b/c", 0, 0, "/tmp/a/b/c", "/tmp/a/b/c/d"},
        {"/tmp//d///e/", 1, 0, "/tmp/d/e", "/tmp/d/e/e"},
        {"/tmp/g/h/", 0, 0, "/tmp/g/h", "/tmp/g/h/h"},
        {"relative/deep", 0, 0, "/tmp/relative/deep", "/tmp/deep"},
        {"alone", 1, 0, "/tmp", "/tmp/alone"},
        {"/tmp/file/x", 1, ENOTDIR, "/tmp/file", "/tmp/file/x"},
        {"/tmp/new/../file/x/y", 0, ENOTDIR, "/tmp/new", "/tmp/x"},
        {"/tmp/dangling", 0, EEXIST, "/tmp/dangling", "/tmp/nowhere"},
        {"", 0, ENOENT, "/tmp", "/tmp/x"},
    };
    for (const Case &one : cases) {
        SCOPED_TRACE(one.path);
        std::string path = one.path;
        int result = mkpath(path.data(), one.last_is_file);
        EXPECT_THAT(result, one.error == 0 ? testing::Matcher<int>(0) : FailsWith(-1, one.error));
        EXPECT_EQ(path, one.path);
        EXPECT_TRUE(lab::exists(one.made));
        EXPECT_FALSE(lab::exists(one.not_made));
    }
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
    EXPECT_EQ(writeFile("/tmp/f", nullptr, 5), 0);
    EXPECT_THAT(writeFile("/tmp/f", nullptr, 0), FailsWith(-1, ENOENT)) << "removed before";
    for (long number : {0L, 7L, -1L, LONG_MAX, LONG_MIN}) {
        std::string text = std::to_string(number) + "\n";
        EXPECT_EQ(writeNumToFile("/tmp/f", number), static_cast<int>(text.size()));
        EXPECT_EQ(get("/tmp/f"), text);
    }
}

TEST(Files, WritersReportFailures) {
    lab::Census census;
    EXPECT_THAT(writeNumToFile(kNowhere, 1), FailsWith(-1, ENOENT));
    EXPECT_THAT(appendLineToFile(kNowhere, "x"), FailsWith(-1, ENOENT));
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
    const std::string fits(2047, 'x');
    const std::string longer(2048, 'x');
    const char *text = longer.c_str();
    put("/tmp/f", "old");
    EXPECT_THAT(writeFmtToFile("/tmp/f", "%s", text), FailsWith(-1, ENOBUFS));
    EXPECT_THAT(writeLineToFile("/tmp/f", fits.c_str()), FailsWith(-1, ENOBUFS));
    EXPECT_THAT(appendFmtToFile("/tmp/f", "%s", text), FailsWith(-1, ENOBUFS));
    EXPECT_THAT(appendLineToFile("/tmp/f", fits.c_str()), FailsWith(-1, ENOBUFS));
    EXPECT_THAT(writeFmt(1, "%s", text), FailsWith(-1, ENOBUFS));
    EXPECT_THAT(mkdirf("%s", text), FailsWith(-1, ENOBUFS));
    EXPECT_EQ(get("/tmp/f"), "old");
    EXPECT_EQ(writeFmtToFile("/tmp/f", "%s", fits.c_str()), 2047);
    EXPECT_EQ(get("/tmp/f"), fits);
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
    EXPECT_EQ(readFile("/tmp/f", buffer + 1, 1), 1);
    EXPECT_STREQ(buffer, "uu") << "no terminator of its own";
    EXPECT_THAT(safe_read(-1, buffer, 1), FailsWith(-1, EBADF));
}

TEST(Files, NumbersAndScans) {
    bool wide = sizeof(long) > 4;
    for (const auto &[text, wanted] :
         {std::pair{"1234\n", 1234L},
          {" \t-5x", -5},
          {"junk", 0},
          {"", 0},
          {"1234567890123456789", wide ? static_cast<long>(123456789012345) : LONG_MAX}}) {
        put("/tmp/f", text);
        EXPECT_EQ(readNumFromFile("/tmp/f"), wanted) << text;
    }
    EXPECT_THAT(readNumFromFile(kNowhere), FailsWith(-1, ENOENT));
    int number = 0;
    char word[8];
    put("/tmp/f", "42 word");
    EXPECT_EQ(readFmtFromFile("/tmp/f", "%d %7s", &number, word), 2);
    EXPECT_EQ(number, 42);
    EXPECT_STREQ(word, "word");
    EXPECT_THAT(readFmtFromFile(kNowhere, "%d", &number), FailsWith(-1, ENOENT));
    put("/tmp/f", std::string(2047, ' ') + "7");
    EXPECT_EQ(readFmtFromFile("/tmp/f", "%d", &number), EOF) << "only 2047 bytes are read";
}

TEST(Files, OneTransferIsThreeSystemCalls) {
    using testing::ElementsAre;
    EXPECT_THAT(lab::system_calls([] { writeNumToFile("/tmp/number", 7); }),
                ElementsAre(SYS_openat, SYS_write, SYS_close));
    EXPECT_THAT(lab::system_calls([] { readNumFromFile("/tmp/number"); }),
                ElementsAre(SYS_openat, SYS_read, SYS_close));
}

TEST(Files, LoadFileOwnsItsBlock) {
    lab::Census census;
    const std::string content(100000, 'z');
    put("/tmp/f", content);
    size_t length = 0;
    char *block = loadFile("/tmp/f", &length);
    ASSERT_NE(block, nullptr);
    EXPECT_EQ(block, content);
    EXPECT_EQ(length, content.size());
    std::free(block);
    block = loadFile("/proc/version", nullptr);
    EXPECT_STREQ(block, "") << "files that report no size load as empty";
    std::free(block);
    EXPECT_THAT(loadFile(kNowhere, &length), FailsWith(nullptr, ENOENT));
    EXPECT_THAT(loadFile("/tmp", &length), FailsWith(nullptr, EISDIR));
    EXPECT_EQ(length, content.size());
}

TEST(Files, CopyReplacesTheDestination) {
    lab::Census census;
    const std::string content(300000, 'c');
    put("/tmp/from", content);
    put("/tmp/to", std::string(400000, 'o'));
    EXPECT_EQ(copyFile("/tmp/to", "/tmp/from"), 300000);
    EXPECT_THAT(copyFile("/tmp/to", kNowhere), FailsWith(-1, ENOENT));
    EXPECT_EQ(get("/tmp/to"), content) << "the source is opened first";
    EXPECT_THAT(copyFile(kNowhere, "/tmp/from"), FailsWith(-1, ENOENT));
}

TEST(Files, WholeBufferGoesOutThroughSignalsAndShortWrites) {
    constexpr size_t kLength = 1000000;
    int ends[2];
    ASSERT_EQ(::pipe2(ends, O_CLOEXEC), 0);
    pid_t pid = ::fork();
    if (pid == 0) { // counts slowly
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
    const std::string content(kLength, 'w');
    {
        lab::SignalStorm storm;
        EXPECT_EQ(safe_write(ends[1], content.data(), kLength), static_cast<int>(kLength));
        EXPECT_GT(lab::SignalStorm::count(), 5);
    }
    EXPECT_EQ(safe_write(-1, content.data(), 0), 0) << "no system call for no bytes";
    ::close(ends[1]);
    int status = -1;
    ::waitpid(pid, &status, 0);
    EXPECT_EQ(status, 0) << "every byte came";
}

} // namespace
