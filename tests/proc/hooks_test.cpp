// Commands served by a function, commands through the shell, and events for the daemon.
#include <routerkit/commands.h>

#include <cstdlib>

#include <sys/stat.h>
#include <unistd.h>

#include "support/lab.h"

using lab::FailsWith;
using lab::get;

namespace {

std::string seen;

int remember(int argc, char **argv, const char *outPath) {
    seen.clear();
    for (int i = 0; i < argc; ++i) {
        seen += std::string(argv[i]) + " ";
    }
    seen += argv[argc] == nullptr && outPath != nullptr ? outPath : "?";
    return 77;
}

// The result of RunSystemCmd with these words, and what is in its file then.
template <typename... Words>
std::string ran(Words... words) {
    lab::put("/tmp/x", "old and longer");
    std::string result = std::to_string(RunSystemCmd("/tmp/x", words..., ""));
    return result + ": " + get("/tmp/x");
}

TEST(Hooks, EchoIsBuiltIn) {
    lab::Census census;
    auto print = [] { EXPECT_EQ(RunSystemCmd(nullptr, "echo", "1", ""), 2); };
    EXPECT_EQ(lab::printed(print).output, "1\n");
    EXPECT_EQ(ran("echo", "-n", "a", "b"), "2: ab");
    EXPECT_EQ(ran("echo", "a", "-nope"), "1: a");
    EXPECT_EQ(ran("echo"), "1: \n");
    EXPECT_EQ(ran("echo", "-n"), "0: ");
    EXPECT_THAT(RunSystemCmd("/tmp/no/x", "echo", "a", ""), FailsWith(-1, ENOENT));
    std::string fits(1022, 'x');
    EXPECT_EQ(ran("echo", fits.c_str()), "1023: " + fits + "\n");
    EXPECT_EQ(ran("echo", fits.c_str(), "x"), "-1: old and longer");
    EXPECT_THAT(RunSystemCmd(nullptr, "echo", fits.c_str(), "x", ""), FailsWith(-1, ENOBUFS));
}

TEST(Hooks, ReplacedAndSwitchedOff) {
    lab::Census census;
    lab::put_program("echo", "#!/bin/sh\nprintf 'program %s' \"$*\"\n");
    command_hooks_t kept = hooks;
    hooks = {"filter", remember};
    EXPECT_EQ(ran("filter", "on"), "77: old and longer");
    EXPECT_EQ(seen, "filter on /tmp/x");
    EXPECT_EQ(ran("echo", "-n", "a"), "0: program -n a");
    hooks = {"echo", nullptr};
    EXPECT_EQ(ran("echo", "b"), "0: program b");
    hooks = kept;
}

TEST(Hooks, WordsOfASystemCommand) {
    lab::Census census;
    EXPECT_THAT(RunSystemCmd(nullptr, ""), FailsWith(-1, EINVAL));
    EXPECT_THAT(RunSystemCmd(nullptr, "true", static_cast<char *>(nullptr)), FailsWith(-1, EINVAL));
    char *none[] = {nullptr};
    EXPECT_THAT(DoCmd(none, nullptr), FailsWith(-1, EINVAL));
#define FIVE "1", "2", "3", "4", "5"
    EXPECT_EQ(ran("sh", "-c", "exit $#", "0", FIVE, FIVE, FIVE, FIVE, "21"), "21: ");
    EXPECT_EQ(ran("echo", FIVE, FIVE, FIVE, FIVE, FIVE), "-1: old and longer");
    EXPECT_EQ(errno, E2BIG);
}

TEST(Shell, FormattedCommands) {
    lab::Census census;
    auto unchecked = reinterpret_cast<int (*)(const char *, ...)>(systemf);
    EXPECT_EQ(systemf("exit %d", 3), 3 << 8) << "system's raw result";
    EXPECT_EQ(systemf("echo $((6*%d)) > /tmp/x", 7), 0);
    EXPECT_EQ(get("/tmp/x"), "42\n");
    EXPECT_THAT(unchecked(nullptr), FailsWith(-1, EINVAL));
    EXPECT_THAT(unchecked(""), FailsWith(-1, EINVAL));
    EXPECT_THAT(systemf("touch /tmp/y %s", std::string(2035, 'x').c_str()), FailsWith(-1, ENOBUFS));
    EXPECT_FALSE(lab::exists("/tmp/y"));
}

TEST(Shell, BatchesGoOnAfterAFailure) {
    lab::Census census;
    std::string longer = "false " + std::string(3000, 'x');
    lab::put("/tmp/batch", "echo one\n\nexit 3\n" + longer + "\n \necho last");
    lab::Printed printed = lab::printed([] { EXPECT_EQ(execBatch("/tmp/batch"), 0); });
    EXPECT_EQ(printed.output, "one\nlast\n");
    EXPECT_EQ(printed.error,
              "batch 'exit 3' failed\nbatch '" + longer.substr(0, 2040) + "' failed\n");
    EXPECT_THAT(execBatch("/tmp/missing"), FailsWith(-1, ENOENT));
}

TEST(Reinit, TheClientsWords) {
    lab::Census census;
    lab::put_program("reinitCli", "#!/bin/sh\nprintf '<%s>' \"$@\" > /tmp/words\nexit 5\n");
    auto told = [](int status) { return std::to_string(status) + get("/tmp/words"); };
    std::string pid = "<-d><pid=" + std::to_string(::getpid());
    EXPECT_EQ(told(reinitEvent("wan", "idx=%d", 2)), "5<-e><wan>" + pid + ",idx=2>");
    EXPECT_EQ(told(reinitApply()), "5<-e><apply>" + pid + ">");
    EXPECT_EQ(told(_waitpid(forkReinitEvent("a b", "%s", ""))), "5<-e><a b>" + pid + ",>");
    std::string data(4095 + std::string("<-d><").size() - (pid + ",").size(), 'x');
    EXPECT_EQ(told(reinitEvent("wan", "%s", data.c_str())), "5<-e><wan>" + pid + "," + data + ">");
    ::unlink("/tmp/words");
    EXPECT_THAT(reinitEvent("wan", "%sx", data.c_str()), FailsWith(-1, ENOBUFS));
    EXPECT_THAT(forkReinitEvent(nullptr, nullptr), FailsWith(-1, EINVAL));
    EXPECT_FALSE(lab::exists("/tmp/words"));
}

TEST(Reinit, TheClientIsSearchedForAlongTheHostsPath) {
    lab::Census census;
    std::string path = ::getenv("PATH");
    ::setenv("PATH", "/tmp/tools", 1);
    EXPECT_EQ(lab::printed([] { EXPECT_EQ(reinitApply(), 1); }).error, "");
    EXPECT_THAT(lab::take_log(),
                testing::ElementsAre("err: execvp(reinitCli): No such file or directory"));
    lab::put("/tmp/tools/reinitCli", "#!/bin/sh\nexit 8\n");
    ::chmod("/tmp/tools/reinitCli", 0700);
    EXPECT_EQ(reinitApply(), 8);
    ::setenv("PATH", path.c_str(), 1);
}

} // namespace
