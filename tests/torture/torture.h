// Scenarios of the library's functions, each played with every call of its failing.
#pragma once

#include <cerrno>
#include <cstdint>
#include <map>
#include <span>
#include <string>

namespace torture {

// One function at work in the world that world.h builds anew for each run.
struct Scenario {
    const char *name;
    long (*call)(); // its result, null pointers as -1; outputs go to room()

    // What else the result may be when a call of its fails, as words:
    //   -1!       -1 with the errno of a call that failed
    //   0         0, whatever errno is
    //   errno     the errno of a call that failed, as a program's status
    //   =         the same as ever, with the same outputs
    //   open:-1!  the word -1! for a failure of that call; the words without a name, or with
    //             another's, do not hold for it then
    //   logged    another result than the usual one is also logged, with its errno, at LOG_ERR
    //   once      the function is to make one transfer only: a short one shows in the result
    // A failing close never matters. Null for a function that makes no call.
    const char *on_failure;

    void (*prepare)() = nullptr; // what else has to be there
    size_t stack_kb = 16;        // which it needs at most
};

// So many bytes for an output, with canaries on both sides.
char *room(size_t size);

// Plays each of them to the end: counted, with each call failing with each of its errors, with
// everything failing from each call on, and with each call interrupted or short once. Fails the
// test where a run breaks the scenario's word, leaks, or leaves the function broken.
void play(std::span<const Scenario> scenarios);

// The most stack that each function played has taken, in bytes. 0 unless optimised, and with the sanitizers.
const std::map<std::string, size_t> &stack_table();

// How many runs there were.
size_t runs();

} // namespace torture
