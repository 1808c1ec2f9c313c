#include <routerkit/commands.h>

#include <cerrno>
#include <cstdarg>
#include <cstdlib>
#include <cstring>

#include <unistd.h>

#include <routerkit/files.h>

#include "support/errno.h"
#include "support/owning.h"
#include "support/text_buffer.h"

using rk::fail;
using rk::FormatBuffer;

namespace {

void run_line(const char *line) {
    if (*line == '\0' || std::system(line) == 0) {
        return;
    }
    FormatBuffer complaint; // a line too long for it is only shown cut
    complaint.append("batch '").append(line);
    safe_write(STDERR_FILENO, complaint.c_str(), complaint.size());
    constexpr std::string_view kFailed = "' failed\n";
    safe_write(STDERR_FILENO, kFailed.data(), kFailed.size());
}

} // namespace

int systemf(const char *format, ...) {
    if (format == nullptr || *format == '\0') {
        return fail(EINVAL);
    }
    FormatBuffer command;
    va_list args;
    va_start(args, format);
    bool fits = command.vformat(format, args);
    va_end(args);
    return fits ? std::system(command.c_str()) : fail(ENOBUFS);
}

int execBatch(const char *path) {
    rk::MallocPtr<char> text(loadFile(path, nullptr));
    if (!text) {
        return -1;
    }
    for (char *line = text.get(); line != nullptr;) {
        char *newline = std::strchr(line, '\n');
        if (newline != nullptr) {
            *newline++ = '\0';
        }
        run_line(line);
        line = newline;
    }
    return 0;
}
