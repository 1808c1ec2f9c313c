#include "support/fuzz.h"

#include <cstdarg>

#include <syslog.h>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size);

// The machine's log is spared; the line is formatted all the same.
extern "C" void vsyslog(int, const char *format, va_list args) {
    char line[2048];
    std::vsnprintf(line, sizeof line, format, args);
}

int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    fuzz::run({reinterpret_cast<const char *>(data), size});
    return 0;
}
