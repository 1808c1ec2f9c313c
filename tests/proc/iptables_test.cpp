// Against the real iptables, in the sandbox's own network namespace.
#include <routerkit/iptables.h>

#include <csignal>
#include <cstdlib>

#include <routerkit/strings.h>

#include "support/lab.h"

using lab::FailsWith;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::StartsWith;

namespace {

class Iptables : public testing::Test {
  protected:
    void SetUp() override {
        // Debian keeps it beside the system's administration tools, not in /bin.
        lab::put_program("iptables", "#!/bin/sh\nexec /usr/sbin/iptables \"$@\"\n");
        if (std::system("/bin/iptables -t nat -S > /tmp/output 2>&1") != 0) {
            GTEST_SKIP() << "no iptables here: " << lab::get("/tmp/output");
        }
        lab::sh("iptables -F; iptables -X; iptables -t nat -F");
    }
};

std::string rules(const std::string &chain) {
    return lab::sh("iptables -S " + chain + " | grep -v '^-[PN]' || true");
}

TEST_F(Iptables, RulesComeAndGo) {
    using Call = int (*)(const char *, const char *);
    const Call on = [](const char *t, const char *r) { return iptables_set(1, t, r); };
    const Call off = [](const char *t, const char *r) { return iptables_set(0, t, r); };
    const struct {
        Call call;
        const char *table;
        int result;
        size_t copies;
    } steps[] = {{iptables_check, nullptr, 0, 0},
                 {iptables_smartdel, nullptr, 0, 0},
                 {off, "filter", 0, 0},
                 {iptables_add, nullptr, 0, 1},
                 {iptables_check, nullptr, 1, 1},
                 {iptables_check, "filter", 1, 1},
                 {iptables_smartadd, nullptr, 0, 1},
                 {on, "filter", 0, 1},
                 {iptables_add, "filter", 0, 2},
                 {iptables_del, nullptr, 0, 1},
                 {iptables_smartdel, "filter", 0, 0},
                 {on, nullptr, 0, 1},
                 {off, nullptr, 0, 0}};
    lab::Census census;
    const std::string rule = "INPUT -m comment --comment \"two words\" -j ACCEPT";
    std::string listed;
    for (const auto &step : steps) {
        EXPECT_EQ(step.call(step.table, rule.c_str()), step.result) << &step - steps;
        listed.clear();
        for (size_t i = 0; i < step.copies; ++i) {
            listed += "-A " + rule + "\n";
        }
        EXPECT_EQ(rules("INPUT"), listed) << &step - steps;
    }
    EXPECT_THAT(lab::take_log(), IsEmpty()) << "checks are silent";
}

TEST_F(Iptables, Chains) {
    lab::Census census;
    const std::string jump = "-A FORWARD -j fw_custom\n";
    char *before = strf("before");
    EXPECT_EQ(iptables_create_subchain("filter", "FORWARD", "fw_custom"), 0);
    EXPECT_EQ(strf("after"), before + 512) << "one slot of strf";
    EXPECT_EQ(rules("FORWARD"), jump);
    EXPECT_THAT(lab::take_log(), IsEmpty());
    EXPECT_EQ(iptables_create_subchain(nullptr, "FORWARD", "fw_custom"), 0);
    EXPECT_THAT(lab::take_log(), ElementsAre("err: (1)\"iptables: Chain already exists.\" < "
                                             "iptables -N fw_custom "));
    EXPECT_EQ(iptables_add("nat", "POSTROUTING -j RETURN"), 0);
    EXPECT_EQ(iptables_check("nat", "POSTROUTING -j RETURN"), 1);
    EXPECT_EQ(iptables_flush("nat", "POSTROUTING"), 0);
    EXPECT_EQ(iptables_check("nat", "POSTROUTING -j RETURN"), 0);
    EXPECT_EQ(rules("FORWARD"), jump + jump);
    EXPECT_EQ(iptables_flush(nullptr, "FORWARD"), 0);
    EXPECT_EQ(rules("FORWARD"), "");
}

// A host without children of its own to wait for: the check runs, and tells nothing.
TEST_F(Iptables, NothingIsDeletedOnADoubt) {
    EXPECT_EQ(iptables_add(nullptr, "INPUT -j DROP"), 0);
    int error = lab::in_child([] {
        ::signal(SIGCHLD, SIG_IGN);
        return iptables_smartdel(nullptr, "INPUT -j DROP") == -1 ? errno : 0;
    });
    EXPECT_EQ(error, ECHILD);
    EXPECT_EQ(rules("INPUT"), "-A INPUT -j DROP\n");
    EXPECT_THAT(lab::take_log(), IsEmpty());
}

TEST_F(Iptables, BadRulesAreLoggedInItsOwnWords) {
    lab::Census census;
    EXPECT_EQ(iptables_add(nullptr, "INPUT -p nonsense -j DROP"), 2);
    EXPECT_THAT(lab::take_log(),
                ElementsAre(testing::MatchesRegex(
                    "err: \\(2\\)\"iptables v.*: unknown protocol \"nonsense\" specified\" < "
                    "iptables -A INPUT -p nonsense -j DROP ")));
    EXPECT_EQ(iptables_del("nat", "POSTROUTING -j RETURN"), 1);
    EXPECT_THAT(lab::take_log(), ElementsAre(StartsWith("err: (1)\"iptables: Bad rule")));
}

TEST_F(Iptables, CommandsThatDoNotFitAreRefused) {
    lab::Census census;
    std::string rule(2100, 'x');
    for (auto *call : {iptables_add, iptables_flush, iptables_smartadd, iptables_smartdel}) {
        EXPECT_THAT(call(nullptr, rule.c_str()), FailsWith(-1, ENOBUFS));
        EXPECT_THAT(call("filter", rule.c_str()), FailsWith(-1, ENOBUFS));
        EXPECT_THAT(call("filter", nullptr), FailsWith(-1, EINVAL));
    }
    EXPECT_EQ(iptables_check(nullptr, rule.c_str()), 0);
    EXPECT_THAT(lab::take_log(), IsEmpty());
    std::string name(126, 'x');
    EXPECT_EQ(iptables_create_subchain(nullptr, name.c_str(), name.c_str()), 0);
    EXPECT_THAT(lab::take_log(),
                ElementsAre("err: iptables_create_subchain: No buffer space available"));
    EXPECT_EQ(iptables_create_subchain(nullptr, "FORWARD", nullptr), 0);
    EXPECT_THAT(lab::take_log(), ElementsAre("err: iptables_create_subchain: Invalid argument"));
    EXPECT_EQ(rules("FORWARD"), "");
}

} // namespace
