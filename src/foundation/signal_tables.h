// What the crash reporter knows of signals.
#pragma once

#include <cstddef>
#include <cstdint>

namespace rk {

struct SignalRow {
    uint8_t number : 7;
    bool fatal : 1;
    char name[7]; // less its SIG
};
static_assert(sizeof(SignalRow) == 8);

inline constexpr size_t kSignalCount = 32;
extern const SignalRow kSignals[kSignalCount];

// The last row of a signal, which is SIGIOT's for number 6; null without any.
const SignalRow *find_signal(int number);

// Why the signal came (si_code), in words; "?" where there are none.
const char *find_cause(int number, int code);

} // namespace rk
