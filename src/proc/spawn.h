// Starting programs.
#pragma once

#include <sys/types.h>

namespace rk {

// What becomes of a new program's standard output and error, in this order; inherited by default.
struct Streams {
    bool quiet = false;         // standard error goes to /dev/null
    bool close_error = false;   // standard error is closed
    const char *file = nullptr; // standard output goes to it, error, too, unless a pipe takes that
    int pipe = 0;               // a pipe's write end above the standard descriptors; 0: none
    int pipe_target = 0;        // the descriptor that it becomes
};

// Starts the program words[0] with PATH=/bin, looked for there unless its name has a slash, and
// with SIGINT ignored. A program that cannot be run is logged; its status is the errno. Returns the
// child's pid, or -1.
pid_t exec_program(char *const *words, const Streams &streams);

// Starts the program words[0], searched for along the caller's PATH. A program that cannot be run
// is logged and, after `complaint` unless that is null, reported on its standard error; its status
// is 1. Returns the child's pid, or -1.
pid_t exec_from_path(char *const *words, const Streams &streams, const char *complaint);

} // namespace rk
