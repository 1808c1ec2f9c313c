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

// A word list for the length of a call.
template <size_t Count>
struct Words {
    const char *words[Count];
    operator char * const *() const { return const_cast<char *const *>(words); }
};

TEST(Commands, StreamsStatusesAndLogLines) {
    const std::string old = "much longer than what the command is going to say\n";
    const std::string all = "out\nerr\nmore\n";
    const std::string name(300, 'n');
    const std::string long_name = ": File name too long";
    const Words<3> speak = {{"speak", "3", nullptr}};
    char text[64] = "before";
    struct Case {
        std::function<int()> call;
        int status;
        std::string output, error, file, log;
    };
    const Case cases[] = {
        {[] { return cmdf("speak %d", 7); }, 7, "out\n", "err\nmore\n", old, ""},
        {[] { return cmdf("speak %d > %s", 0, "/tmp/file"); }, 0, "", "", all, ""},
        {[] { return qcmdf("/bin/speak 255"); }, 255, "out\n", "", old, ""},
        {[] { return qcmdf("speak 0 > /tmp/file"); }, 0, "", "", all, ""},
        {[&] { return execulity(speak, nullptr); }, 3, "out\n", "", old, ""},
        {[&] { return _waitpid(forkexeculity(speak, "/tmp/file")); }, 3, "", "", all, ""},
        {[&] { return sncmdf(text, 64, "speak 5 > /tmp/file"); }, 5, "", "", old, ""},
        {[] { return lcmdf("speak 0"); }, 0, "out\n", "", old, ""},
        {[] { return lcmdf("speak 2 'a b' > /tmp/file"); }, 2, "", "", "out\n",
         "err: (2)\"err\" < speak 2 a b "},
        {[] { return lcmdf("sh -c 'exit 1'"); }, 1, "", "", old, "err: (1)  sh -c exit 1"},
        {[] { return lcmdf("sh -c 'kill -9 $$'"); }, 9, "", "", old, "err: (9)  sh -c kill -9 $$"},
        {[] { return cmdf("sh -c 'exit 300'"); }, 300 & 255, "", "", old, ""},
        // Programs that cannot be run.
        {[] { return cmdf("nosuch a 'b c'"); }, ENOENT, "", "nosuch" + kMissing + "\n", old,
         "err: execvp(nosuch, [nosuch a b c])" + kMissing},
        {[] { return qcmdf("/tmp/file"); }, EACCES, "", "", old,
         "err: execvp(/tmp/file, [/tmp/file]): Permission denied"},
        {[] { return cmdf("''"); }, ENOENT, "", kMissing.substr(2) + "\n", old,
         "err: execvp(, [])" + kMissing},
        {[&] { return cmdf("%s", name.c_str()); }, ENAMETOOLONG, "", name + long_name + "\n", old,
         "err: execvp(" + name + ", [" + name.substr(0, 253) + "])" + long_name},
        {[&] { return sncmdf(text, 64, "nosuch a"); }, 1, "", "", old,
         "err: execvp(nosuch)" + kMissing},
        {[] { return lcmdf("nosuch a"); }, 1, "", "", old,
         "err: execvp(nosuch)" + kMissing + "|err: (1)\"execvp failed" + kMissing +
             "\" < nosuch a "},
        // Output files that cannot be opened.
        {[] { return cmdf("true > /tmp/no/file"); }, ENOENT, "", "/tmp/no/file" + kMissing + "\n",
         old, ""},
        {[] { return cmdf("true >"); }, ENOENT, "", kMissing.substr(2) + "\n", old, ""},
        {[&] { return execulity(speak, "/tmp"); }, EISDIR, "", "/tmp: Is a directory\n", old, ""},
        {[] { return qcmdf("true > /tmp/no/file"); }, ENOENT, "", "", old, ""},
        {[] { return lcmdf("true > /tmp/no/file"); }, ENOENT, "", "/tmp/no/file" + kMissing + "\n",
         old, "err: (2)  true"},
    };
    lab::Census census;
    lab::put_program("speak", "#!/bin/sh\necho out\necho err >&2\necho more >&2\nexit $1\n");
    ::setenv("PATH", "/usr/bin:/bin", 1); // a folder that we may not search would be another errno
    for (const Case &one : cases) {
        SCOPED_TRACE(&one - cases);
        lab::put("/tmp/file", old);
        int status = -2;
        lab::Printed printed = lab::printed([&] { status = one.call(); });
        EXPECT_EQ(status, one.status);
        EXPECT_EQ(printed.output, one.output);
        EXPECT_EQ(printed.error, one.error);
        EXPECT_EQ(get("/tmp/file"), one.file);
        std::string log;
        for (const std::string &line : lab::take_log()) {
            log += (log.empty() ? "" : "|") + line;
        }
        EXPECT_EQ(log, one.log);
    }
    EXPECT_STREQ(text, "");
}

TEST(Commands, WordLists) {
    lab::Census census;
    EXPECT_THAT(execulity(Words<1>{{nullptr}}, nullptr), FailsWith(-1, EINVAL));
    EXPECT_THAT(forkexeculity(nullptr, nullptr), FailsWith(-1, EINVAL));
    for (const char *name : {"ping", "traceroute"}) {
        lab::put_program(name, "#!/bin/sh\necho \"$0 $*\"\n");
    }
    EXPECT_EQ(pingulity("a host", "/tmp/file"), 0);
    EXPECT_EQ(get("/tmp/file"), "/bin/ping -c 4 a host\n");
    EXPECT_EQ(traceroulity("h", "/tmp/file"), 0);
    EXPECT_EQ(get("/tmp/file"), "/bin/traceroute h\n");
    EXPECT_THAT(pingulity(nullptr, nullptr), FailsWith(-1, EINVAL));
    EXPECT_THAT(traceroulity(nullptr, nullptr), FailsWith(-1, EINVAL));
    // Standard error is not merely silent: 2 is the folder that ls reads, the lowest number free.
    auto list = [] {
        ::close_range(3, ~0U, 0);
        return execulity(Words<3>{{"ls", "/proc/self/fd", nullptr}}, nullptr);
    };
    EXPECT_EQ(lab::printed([&] { lab::in_child(list); }).output, "0\n1\n2\n");
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
    EXPECT_EQ(get("/tmp/gate"), "hello\n");
    EXPECT_EQ(_waitpid(pid), 0);
    pid = forkcmdf("nosuch > /tmp/gate");
    EXPECT_EQ(get("/tmp/gate"), "nosuch" + kMissing + "\n");
    EXPECT_EQ(_waitpid(pid), ENOENT);
    EXPECT_THAT(lab::take_log(), ElementsAre("err: execvp(nosuch, [nosuch])" + kMissing));
    errno = EXDEV;
    EXPECT_EQ(_waitpid(forkcmdf("nosuch")), ENOENT);
    EXPECT_EQ(errno, EXDEV) << "not the child's";
    EXPECT_EQ(_waitpid(-1), -1);
    EXPECT_THAT(_waitpid(::getpid()), FailsWith(-1, ECHILD));
    lab::take_log();
}

TEST(Commands, CapturedText) {
    lab::Census census;
    ::signal(SIGPIPE, SIG_DFL);
    char buffer[18] = "#################";
    EXPECT_EQ(sncmdf(buffer, 16, "printf %%0100d 7"), 0);
    EXPECT_EQ(std::string(buffer, 17), std::string(15, '0') + '\0' + '#');
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

    // 511 characters of the error, 511 of the words with the space before the first.
    std::string word(600, 'w');
    EXPECT_EQ(lcmdf("sh -c 'printf %%0600d 0 >&2; exit 1' %s", word.c_str()), 1);
    std::string command = "sh -c printf %0600d 0 >&2; exit 1 " + word;
    EXPECT_THAT(lab::take_log(), ElementsAre("err: (1)\"" + std::string(511, '0') + "\" < " +
                                             command.substr(0, 510) + " "));
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
    EXPECT_THAT(lab::take_log(), ElementsAre(testing::StartsWith("err: (5)\"late\" < sh")));
}

} // namespace
