// The runners: where the streams go, what the status is, what is logged.
#include <routerkit/commands.h>

#include <csignal>
#include <cstdlib>

#include <sys/stat.h>
#include <unistd.h>

#include "support/lab.h"

using lab::FailsWith;
using lab::get;
using testing::ElementsAre;
using testing::IsEmpty;

namespace {

using Runner = int (*)(const char *, ...); // without the format check: bad formats are tested

const std::string kMissing = ": No such file or directory";

// speak STATUS: "out" to standard output, two lines to standard error.
void put_speaker() {
    lab::put_program("speak", "#!/bin/sh\necho out\necho err >&2\necho more >&2\nexit $1\n");
}

TEST(Commands, StreamsAreInheritedOrGoToTheFile) {
    lab::Census census;
    put_speaker();
    int status = -2;
    lab::Printed both = lab::printed([&] { status = cmdf("speak %d", 7); });
    EXPECT_EQ(status, 7);
    EXPECT_EQ(both.output, "out\n");
    EXPECT_EQ(both.error, "err\nmore\n");

    lab::Printed quiet = lab::printed([&] { status = qcmdf("/bin/speak 255"); });
    EXPECT_EQ(status, 255);
    EXPECT_EQ(quiet.output, "out\n");
    EXPECT_EQ(quiet.error, "");

    for (Runner runner : {Runner(cmdf), Runner(qcmdf)}) {
        lab::put("/tmp/file", "much longer than what the command is going to say\n");
        lab::Printed none = lab::printed([&] { status = runner("speak %d > %s", 0, "/tmp/file"); });
        EXPECT_EQ(status, 0);
        EXPECT_EQ(none.output + none.error, "");
        EXPECT_EQ(get("/tmp/file"), "out\nerr\nmore\n");
    }
    EXPECT_THAT(lab::take_log(), IsEmpty());
}

TEST(Commands, WordListsNeedAFileToSpeak) {
    lab::Census census;
    put_speaker();
    char program[] = "speak";
    char argument[] = "3";
    char *words[] = {program, argument, nullptr};
    int status = -2;
    lab::Printed closed = lab::printed([&] { status = execulity(words, nullptr); });
    EXPECT_EQ(status, 3);
    EXPECT_EQ(closed.output, "out\n");
    EXPECT_EQ(closed.error, "");
    EXPECT_EQ(_waitpid(forkexeculity(words, "/tmp/file")), 3);
    EXPECT_EQ(get("/tmp/file"), "out\nerr\nmore\n");
    words[0] = nullptr;
    EXPECT_THAT(execulity(words, nullptr), FailsWith(-1, EINVAL));
    EXPECT_THAT(forkexeculity(nullptr, nullptr), FailsWith(-1, EINVAL));

    const std::string words_seen = "#!/bin/sh\necho \"$0 $*\"\n";
    lab::put_program("ping", words_seen);
    lab::put_program("traceroute", words_seen);
    EXPECT_EQ(pingulity("a host", "/tmp/file"), 0);
    EXPECT_EQ(get("/tmp/file"), "/bin/ping -c 4 a host\n");
    EXPECT_EQ(traceroulity("h", "/tmp/file"), 0);
    EXPECT_EQ(get("/tmp/file"), "/bin/traceroute h\n");
    EXPECT_THAT(pingulity(nullptr, nullptr), FailsWith(-1, EINVAL));
    EXPECT_THAT(traceroulity(nullptr, nullptr), FailsWith(-1, EINVAL));
}

// Standard error is not merely silent: the descriptor is not there.
TEST(Commands, WithoutAFileStandardErrorIsClosed) {
    char program[] = "ls";
    char argument[] = "/proc/self/fd";
    char *words[] = {program, argument, nullptr};
    EXPECT_EQ(lab::printed([&] {
                  lab::in_child([&] {
                      ::close_range(3, ~0U, 0);
                      return execulity(words, nullptr);
                  });
              }).output,
              "0\n1\n2\n"); // 2 is the folder that ls reads, the lowest number free
}

TEST(Commands, ForkingReturnsAtOnce) {
    lab::Census census;
    ::mkfifo("/tmp/gate", 0600);
    pid_t pid = forkcmdf("sh -c 'read line < /tmp/gate; exit $line'");
    ASSERT_GT(pid, 0);
    lab::put("/tmp/gate", "9\n");
    EXPECT_EQ(_waitpid(pid), 9);

    // The child waits for a reader of its output file, the host does not.
    pid = forkcmdf("echo hello > /tmp/gate");
    ASSERT_GT(pid, 0);
    EXPECT_EQ(get("/tmp/gate"), "hello\n");
    EXPECT_EQ(_waitpid(pid), 0);
    pid = forkcmdf("nosuch > /tmp/gate");
    EXPECT_EQ(get("/tmp/gate"), "nosuch" + kMissing + "\n");
    EXPECT_EQ(_waitpid(pid), ENOENT);
    EXPECT_THAT(lab::take_log(), ElementsAre("err: execvp(nosuch, [nosuch])" + kMissing));
}

TEST(Commands, CapturedOutput) {
    lab::Census census;
    put_speaker();
    ::signal(SIGPIPE, SIG_DFL);
    char buffer[18] = "#################";
    EXPECT_EQ(sncmdf(buffer, 16, "printf %%0100d 7"), 0);
    EXPECT_EQ(std::string(buffer, 17), std::string(15, '0') + '\0' + '#');
    lab::Printed printed =
        lab::printed([&] { EXPECT_EQ(sncmdf(buffer, 16, "speak 5 > /tmp/dropped"), 5); });
    EXPECT_STREQ(buffer, "out\n");
    EXPECT_EQ(printed.output + printed.error, "");
    EXPECT_FALSE(lab::exists("/tmp/dropped"));
    EXPECT_EQ(sncmdf(buffer, 16, "true"), 0);
    EXPECT_STREQ(buffer, "");
    EXPECT_EQ(sncmdf(buffer, 3, "printf abc"), 0);
    EXPECT_STREQ(buffer, "ab");
    EXPECT_EQ(sncmdf(buffer, sizeof buffer, "yes"), SIGPIPE) << "the pipe closes when full";
    EXPECT_EQ(sncmdf(buffer, 1, "sh -c 'exit 4'"), 4);
    EXPECT_STREQ(buffer, "");
    EXPECT_THAT(sncmdf(buffer, 0, "true"), FailsWith(-1, EINVAL));

    // Full long before the end, and still waited for.
    EXPECT_EQ(sncmdf(buffer, 2, "sh -c 'echo long; exec >&-; sleep 0.05; exit 6'"), 6);
    std::string large(1 << 20, '#');
    EXPECT_EQ(sncmdf(large.data(), large.size(), "head -c 1000000 /dev/zero"), 0);
    EXPECT_EQ(large.find('#'), 1000001U) << "the output and its terminator";
}

TEST(Commands, FailuresAreLoggedWithTheirFirstErrorLine) {
    lab::Census census;
    put_speaker();
    lab::Printed printed = lab::printed([&] {
        EXPECT_EQ(lcmdf("speak %d 'a b'", 2), 2);
        EXPECT_EQ(lcmdf("speak 0"), 0);
        EXPECT_EQ(lcmdf("sh -c 'exit 1'"), 1);
        EXPECT_EQ(lcmdf("sh -c 'kill -9 $$'"), SIGKILL);
        EXPECT_EQ(lcmdf("speak 4 > /tmp/file"), 4);
    });
    EXPECT_EQ(printed.output, "out\nout\n");
    EXPECT_EQ(printed.error, "");
    EXPECT_EQ(get("/tmp/file"), "out\n");
    EXPECT_THAT(lab::take_log(), ElementsAre("err: (2)\"err\" < speak 2 a b ", //
                                             "err: (1)  sh -c exit 1",         //
                                             "err: (9)  sh -c kill -9 $$",     //
                                             "err: (4)\"err\" < speak 4 "));

    // 511 characters of the error, 511 of the words with the space before the first.
    std::string word(600, 'w');
    EXPECT_EQ(lcmdf("sh -c 'printf %%0600d 0 >&2; exit 1' %s", word.c_str()), 1);
    std::string command = "sh -c printf %0600d 0 >&2; exit 1 " + word;
    EXPECT_THAT(lab::take_log(), ElementsAre("err: (1)\"" + std::string(511, '0') + "\" < " +
                                             command.substr(0, 510) + " "));
}

TEST(Commands, ProgramsThatCannotBeRun) {
    lab::Census census;
    lab::put("/tmp/text", "not a program");
    ::setenv("PATH", "/usr/bin:/bin", 1); // a folder that we may not search would be another errno
    char buffer[64] = "before";
    lab::Printed printed = lab::printed([&] {
        EXPECT_EQ(cmdf("nosuch a 'b c'"), ENOENT);
        EXPECT_EQ(qcmdf("/tmp/text"), EACCES);
        EXPECT_EQ(cmdf("''"), ENOENT);
        EXPECT_EQ(cmdf("%s", std::string(300, 'n').c_str()), ENAMETOOLONG);
        EXPECT_EQ(sncmdf(buffer, sizeof buffer, "nosuch a"), 1);
        EXPECT_EQ(lcmdf("nosuch a"), 1);
    });
    EXPECT_STREQ(buffer, "");
    std::string name(300, 'n');
    EXPECT_EQ(printed.error, "nosuch" + kMissing + "\nNo such file or directory\n" + name +
                                 ": File name too long\n");
    EXPECT_THAT(
        lab::take_log(),
        ElementsAre("err: execvp(nosuch, [nosuch a b c])" + kMissing,
                    "err: execvp(/tmp/text, [/tmp/text]): Permission denied",
                    "err: execvp(, [])" + kMissing,
                    "err: execvp(" + name + ", [" + name.substr(0, 253) + "]): File name too long",
                    "err: execvp(nosuch)" + kMissing, "err: execvp(nosuch)" + kMissing,
                    "err: (1)\"execvp failed" + kMissing + "\" < nosuch a "));
}

TEST(Commands, OutputFilesThatCannotBeOpened) {
    lab::Census census;
    char program[] = "true";
    char *words[] = {program, nullptr};
    lab::Printed printed = lab::printed([&] {
        EXPECT_EQ(cmdf("true > /tmp/no/file"), ENOENT);
        EXPECT_EQ(cmdf("true >"), ENOENT);
        EXPECT_EQ(execulity(words, "/tmp"), EISDIR);
        EXPECT_EQ(lcmdf("true > /tmp/no/file"), ENOENT);
        EXPECT_EQ(qcmdf("true > /tmp/no/file"), ENOENT);
    });
    EXPECT_EQ(printed.error, "/tmp/no/file" + kMissing + "\nNo such file or directory\n" +
                                 "/tmp: Is a directory\n" + "/tmp/no/file" + kMissing + "\n");
    EXPECT_THAT(lab::take_log(), ElementsAre("err: (2)  true"));
}

TEST(Commands, RefusedBeforeAnythingRuns) {
    lab::Census census;
    char buffer[8];
    std::string room(2033, ' '); // makes 2048 characters below
    std::string words = "touch /tmp/made";
    for (int i = 2; i < 31; ++i) {
        words += " /tmp/made";
    }
    struct Case {
        const char *format;
        std::string text;
        int error;
    };
    const Case cases[] = {{nullptr, "", EINVAL},
                          {"", "", EINVAL},
                          {"%s", "", EINVAL},
                          {"%s", "    ", EINVAL},
                          {"%s", " > /tmp/made", EINVAL},
                          {"touch /tmp/made%s", room, ENOBUFS},
                          {"%s x", words, E2BIG}};
    auto *captured = reinterpret_cast<int (*)(char *, size_t, const char *, ...)>(sncmdf);
    for (const Case &one : cases) {
        SCOPED_TRACE(one.text);
        for (Runner runner : {Runner(cmdf), Runner(qcmdf), Runner(forkcmdf), Runner(lcmdf)}) {
            EXPECT_THAT(runner(one.format, one.text.c_str()), FailsWith(-1, one.error));
        }
        buffer[0] = '#';
        EXPECT_THAT(captured(buffer, sizeof buffer, one.format, one.text.c_str()),
                    FailsWith(-1, one.error));
        EXPECT_STREQ(buffer, "");
    }
    EXPECT_FALSE(lab::exists("/tmp/made"));
    EXPECT_EQ(cmdf("%s", words.c_str()), 0) << "31 words";
    EXPECT_EQ(cmdf("/bin///////true%s", room.c_str() + 1), 0) << "2047 characters";
    EXPECT_THAT(lab::without_descriptors([&] { return sncmdf(buffer, 8, "true"); }),
                FailsWith(-1, EMFILE));
    EXPECT_THAT(lab::without_descriptors([] { return lcmdf("true"); }), FailsWith(-1, EMFILE));
    EXPECT_THAT(lab::take_log(), IsEmpty());
}

TEST(Commands, WaitingThroughSignals) {
    lab::Census census;
    char buffer[8];
    lab::SignalStorm storm;
    EXPECT_EQ(cmdf("sh -c 'sleep 0.05; exit 3'"), 3);
    EXPECT_EQ(sncmdf(buffer, sizeof buffer, "sh -c 'sleep 0.05; echo late; exit 5'"), 5);
    EXPECT_STREQ(buffer, "late\n");
    EXPECT_EQ(lcmdf("sh -c 'sleep 0.05; echo late >&2; exit 5'"), 5);
    EXPECT_GE(lab::SignalStorm::count(), 15);
    EXPECT_THAT(lab::take_log(), testing::Contains(testing::StartsWith("err: (5)\"late\" < sh")));
}

TEST(Commands, ExitStatuses) {
    lab::Census census;
    errno = 0;
    EXPECT_EQ(_waitpid(-1), -1);
    EXPECT_EQ(_waitpid(-7), -1);
    EXPECT_THAT(_waitpid(::getpid()), FailsWith(-1, ECHILD));
    EXPECT_EQ(cmdf("sh -c 'kill -9 $$'"), 9);
    EXPECT_EQ(cmdf("sh -c 'exit 300'"), 300 & 255);
    errno = EXDEV;
    EXPECT_EQ(_waitpid(forkcmdf("nosuch")), ENOENT);
    EXPECT_EQ(errno, EXDEV) << "not the child's";
}

} // namespace
