// The system log, under the host program's identity and facility: the library never calls openlog.
// "%m" is the errno of the failure being logged, and that errno is still there afterwards.
#pragma once

#include <cstdarg>

#include <syslog.h>

#include "support/errno.h"

namespace rk {

[[gnu::format(printf, 2, 3)]] inline void log_at(int priority, const char *format, ...) {
    ErrnoSaver keep;
    va_list args;
    va_start(args, format);
    ::vsyslog(priority, format, args);
    va_end(args);
}

} // namespace rk
