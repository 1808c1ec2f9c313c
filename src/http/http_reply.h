// Reading an HTTP/1.1 reply (RFC 9112) that lies in memory, as far as it has arrived.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string_view>

namespace rk {

// Where the parts of a raw reply are.
struct ReplyShape {
    int status;     // -1 while there is no status line, and for one that is not valid
    char *line_end; // the status line's CR LF; null while there is none
    char *blank; // the CR LF CR LF that end the head; without any header line the first two are the
                 // status line's. Null while they have not arrived
};

ReplyShape look_at_reply(char *reply, char *end);

// The same for all of a raw reply, where a NUL then ends the status line, and another one the
// reply: there is room for one byte more than its `size`.
ReplyShape split_reply(char *reply, size_t size);

// The header lines of such a reply, with the CR LF between them. A head without an end counts as
// far as it arrived.
std::string_view header_lines(const ReplyShape &shape, const char *end);

// The value of the first line with this name, in any case, without the spaces before it; without an
// address when there is none. Looks at 31 lines at most and no further than the first one without a
// colon.
std::string_view find_header(std::string_view lines, const char *name);

// What the value of Content-Length says, whatever follows its digits; negative, too, for none and
// for no number. One that no body of ours can have is INT32_MAX.
int32_t content_length(std::string_view value);

// Undoes the chunked transfer encoding in place. Returns the length of the decoded body; -1 with
// EPROTO when a chunk or its line is malformed or not all there. A body that breaks off between two
// chunks counts as whole, and trailers are not looked at.
int unchunk(char *body, size_t size);

} // namespace rk
