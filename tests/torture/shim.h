// Every call of the library's that the system may refuse, seen and refused on demand.
//
// The linker leads the calls of whatever is linked into the program here (--wrap), not those that
// the C library makes itself. They count while the shim is armed. The clocks are simulated all the
// time: they stand still but for sleeps and waits, of which a sleep takes 1 ms at most.
#pragma once

#include <set>
#include <string>
#include <vector>

namespace shim {

enum class Mode {
    kCount,
    kFail,      // the call fails with one of the errors that it can give
    kFailFrom,  // the call and all after it fail, each with its likeliest error
    kInterrupt, // the call fails once with EINTR, if it can wait
    kShort,     // the call moves half of the bytes, if it moves any
};

struct Plan {
    Mode mode = Mode::kCount;
    size_t at = 0;    // which call, counted from 0
    size_t error = 0; // which of its errors
};

// What became of a plan.
struct Report {
    std::vector<std::string> calls; // all of them, by name
    std::set<std::string> failed;
    std::set<int> errors; // that they failed with
    bool injected;        // whether the plan applied to any call
    long held;            // blocks, streams, folders and patterns that were not given back
};

void arm(const Plan &plan);
Report disarm();

} // namespace shim
