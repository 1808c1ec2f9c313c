// Every test program: lists its tests as it is, runs them in a sandbox.
#include <clocale>
#include <string_view>

#include <gtest/gtest.h>
#include <sys/resource.h>

#include "support/lab.h"
#include "support/sandbox.h"

namespace {

// No call needs more stack than this, the test around it included. Frames are larger without
// optimisation and with the sanitizers.
void limit_stack() {
#if defined(__OPTIMIZE__) && !defined(__SANITIZE_ADDRESS__)
    constexpr rlimit kLimit = {256 << 10, 256 << 10};
    ::setrlimit(RLIMIT_STACK, &kLimit);
#endif
}

} // namespace

int main(int argc, char **argv) {
    // As the host programs do: what is a letter or a decimal point is the environment's to say.
    std::setlocale(LC_ALL, "");
    bool lists = false;
    for (int i = 1; i < argc; ++i) {
        lists = lists || std::string_view(argv[i]).starts_with("--gtest_list_tests");
    }
    if (!lists) {
        limit_stack();
        lab::enter_sandbox();
        lab::open_log();
    }
    testing::InitGoogleTest(&argc, argv);
    return RUN_ALL_TESTS();
}
