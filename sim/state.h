// The simulator's state: text files in the folder that the environment names.
#pragma once

#include <cstddef>

#include "support/text_buffer.h"

namespace sim {

using rk::TextBuffer;

using Path = TextBuffer<1024>;

// Whether a device is simulated: its folder is there.
bool has_device(const char *name);

// The path of a state file, "wlan0/ssid" say. False without a simulator, or for too long a path.
[[gnu::format(printf, 2, 3)]] bool state_path(Path &path, const char *format, ...);

// A state file's text without its last newline; the length, or -1 where there is none. A text that
// does not fit is cut.
int read_text(const Path &path, char *buffer, size_t size);

// Replaces a state file; false with errno.
bool write_text(const Path &path, const TextBuffer<1024> &text);

// Whether this call of a kind is the one that has to fail; it has set errno then.
bool fails(const char *kind);

// Adds a line to the list of calls, if somebody keeps one.
[[gnu::format(printf, 1, 2)]] void record(const char *format, ...);

// A decimal number that is the whole text and lies within the limits.
bool parse_number(std::string_view text, long long least, long long most, long long *out);

} // namespace sim
