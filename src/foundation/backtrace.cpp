#include "foundation/backtrace.h"

#include <cstdint>
#include <cstdlib>

#include <dlfcn.h>

#include "support/text_buffer.h"

void rk::name_frame(void *frame, char *name) {
    Dl_info place = {};
    ::dladdr(frame, &place);
    const void *base = place.dli_saddr != nullptr ? place.dli_saddr : place.dli_fbase;
    auto offset = reinterpret_cast<uintptr_t>(frame) - reinterpret_cast<uintptr_t>(base);
    TextWriter(name, kFrameNameSize)
        .format("%s(%s+0x%lx) [%p]", place.dli_fname != nullptr ? place.dli_fname : "",
                place.dli_sname != nullptr ? place.dli_sname : "",
                static_cast<unsigned long>(offset), frame);
}

#if !ROUTERKIT_HAS_EXECINFO
// One block for the pointers and the texts, which the caller frees.
char **backtrace_symbols(void *const *frames, int count) {
    auto number = static_cast<size_t>(count);
    auto *names = static_cast<char **>(std::malloc(number * (sizeof(char *) + rk::kFrameNameSize)));
    if (names == nullptr) {
        return nullptr;
    }
    auto *texts = reinterpret_cast<char(*)[rk::kFrameNameSize]>(names + number);
    for (size_t i = 0; i < number; ++i) {
        rk::name_frame(frames[i], texts[i]);
        names[i] = texts[i];
    }
    return names;
}
#endif
