#include <routerkit/commands.h>

#include <cerrno>
#include <cstdarg>
#include <cstring>

#include <unistd.h>

#include <routerkit/files.h>

#include "foundation/io.h"
#include "support/errno.h"
#include "support/text_buffer.h"

using rk::fail;

constinit command_hooks_t hooks = {"echo", _echo};

namespace {

constexpr size_t kArguments = 25; // of RunSystemCmd

bool is_hooked(const char *name) {
    return hooks.handler != nullptr && hooks.name != nullptr && std::strcmp(name, hooks.name) == 0;
}

} // namespace

int DoCmd(char **words, const char *outPath) {
    if (words == nullptr || words[0] == nullptr || !is_hooked(words[0])) {
        return execulity(words, outPath);
    }
    int count = 0;
    while (words[count] != nullptr) {
        ++count;
    }
    return hooks.handler(count, words, outPath);
}

int RunSystemCmd(const char *outPath, ...) {
    char *words[kArguments + 1];
    size_t count = 0;
    va_list args;
    va_start(args, outPath);
    char *word = va_arg(args, char *);
    while (word != nullptr && *word != '\0' && count < kArguments) {
        words[count++] = word;
        word = va_arg(args, char *);
    }
    va_end(args);
    words[count] = nullptr;
    if (word == nullptr) {
        return fail(EINVAL);
    }
    return *word == '\0' ? DoCmd(words, outPath) : fail(E2BIG);
}

int _echo(int argc, char **argv, const char *outPath) {
    rk::TextBuffer<1024> text;
    bool newline = true;
    for (int i = 1; i < argc; ++i) {
        if (argv[i][0] == '-' && argv[i][1] == 'n') {
            newline = false;
        } else {
            text.append(argv[i]);
        }
    }
    if (newline) {
        text.append('\n');
    }
    if (text.cut()) {
        return fail(ENOBUFS);
    }
    if (outPath != nullptr) {
        return writeFile(outPath, text.c_str(), text.size());
    }
    return static_cast<int>(rk::write_some(STDOUT_FILENO, text.c_str(), text.size()));
}
