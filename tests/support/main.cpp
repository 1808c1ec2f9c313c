// Every test program: lists its tests as it is, runs them in a sandbox.
#include <clocale>
#include <string_view>

#include <gtest/gtest.h>

#include "support/lab.h"
#include "support/sandbox.h"

int main(int argc, char **argv) {
    // As the host programs do: what is a letter or a decimal point is the environment's to say.
    std::setlocale(LC_ALL, "");
    bool lists = false;
    for (int i = 1; i < argc; ++i) {
        lists = lists || std::string_view(argv[i]).starts_with("--gtest_list_tests");
    }
    if (!lists) {
        lab::enter_sandbox();
        lab::open_log();
    }
    testing::InitGoogleTest(&argc, argv);
    return RUN_ALL_TESTS();
}
