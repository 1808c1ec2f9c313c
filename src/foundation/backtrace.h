// The frames of the stack and their names: the C library's own where it has them (execinfo.h),
// otherwise a small layer of ours with the same two calls.
#pragma once

#if ROUTERKIT_HAS_EXECINFO
#include <execinfo.h>
#else
int backtrace(void **frames, int limit);
char **backtrace_symbols(void *const *frames, int count);
#endif

namespace rk {

constexpr int kFrameNameSize = 256;

// A frame in the form of backtrace_symbols, without the heap: "file(function+0x1c) [0x77e4]".
// `name` has room for kFrameNameSize bytes.
void name_frame(void *frame, char *name);

} // namespace rk
