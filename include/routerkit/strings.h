/* Text without the heap: rotating formatted strings, an appending formatter, escaping, bounded
 * search, and the parts of a URL. Texts are bytes; nothing here sets errno or logs.
 */
#ifndef ROUTERKIT_STRINGS_H
#define ROUTERKIT_STRINGS_H

#include <stddef.h>

#include <routerkit/export.h>

ROUTERKIT_BEGIN_DECLS

/* Where the next formatted text goes. The caller sets both pointers; the text written so far is the
 * buffer's start up to `pos`. */
typedef struct {
    char *pos; /* the next character's place */
    char *end; /* one past the buffer's last byte */
} str_cursor_t;

/* A text under construction. */
typedef struct {
    char *start; /* its first byte */
    char *pos;   /* one past its last character, where its terminator stands */
} str_span_t;

/* Formats into the next of 8 static slots of 256 bytes: the result stays valid for 7 further calls
 * and is overwritten by the 8th. Longer output is cut to 255 characters. */
ROUTERKIT_API char *strf(const char *format, ...) ROUTERKIT_PRINTF(1, 2);

/* Appends formatted text at `pos` and advances it; a NUL stands at `pos` afterwards. What does not
 * fit is cut: `pos` then stays at end - 1 and later calls add nothing. (A text that fits exactly
 * ends there too.) A buffer without room (pos >= end) is left alone. */
ROUTERKIT_API void oprintf(str_cursor_t *out, const char *format, ...) ROUTERKIT_PRINTF(2, 3);

/* Drops one trailing `character`, a separator say, from a text that ends with it. */
ROUTERKIT_API void oend(str_span_t *text, int character);

/* Copies a text without its terminator; returns the place after the last byte. */
ROUTERKIT_API char *str_putstr(char *destination, const char *text);

/* Writes a number in decimal without a terminator ("-" first when negative), at most 11 bytes;
 * returns the place after the last digit. */
ROUTERKIT_API char *str_putint(char *destination, int number);

/* Escapes a text for a place between double quotes: control characters as \a \b \t \n \v \f \r or
 * three octal digits, and a backslash before each of " $ `. Other bytes, those from 128 up (UTF-8)
 * and the backslash included, are copied as they stand; for that reason this is no protection
 * inside a shell command.
 *   size  room in destination in bytes; the result is always terminated within it, and ends before
 *         the first character whose escape does not fit (0: nothing is written)
 * Returns the place of the terminator. */
ROUTERKIT_API char *slashstr(char *destination, size_t size, const char *text);

/* Lower-cases in place with tolower; returns the place of the terminator. */
ROUTERKIT_API char *str_tolower(char *text);

/* Replaces every byte `from` (not NUL) by `to`, in place. Always returns null. */
ROUTERKIT_API char *str_rechrs(char *text, int from, int to);

/* First `byte` from start up to, not including, end; null if there is none or the range is null or
 * empty. */
ROUTERKIT_API char *memechr(const char *start, const char *end, int byte);

/* First occurrence of a text in that range; start itself for a null or empty text. */
ROUTERKIT_API char *memestr(const char *start, const char *end, const char *text);

/* The parts of scheme://[user-information@]host[:port][path]. A text whose first colon is missing
 * or not followed by two slashes is no URL. User information ends at the first "@" anywhere behind
 * the slashes: in http://host/a@b the host is b. The host ends at the first colon, slash, question
 * mark or hash sign. */

/* Copies the host as it stands. 0, or -1 for no URL or a host of more than size - 1 bytes (nothing
 * is written then). */
ROUTERKIT_API int url_gethost(char *destination, size_t size, const char *url);

/* The port behind the host, as atoi reads it; without one 80, 443 and 21 for the schemes http,
 * https and ftp in lower case, 0 for any other; -1 for no URL. */
ROUTERKIT_API int url_getport(const char *url);

/* The first slash, question mark or hash sign from the host on, query and fragment included; points
 * into the URL, at its end when there is none. Null for no URL. */
ROUTERKIT_API const char *url_getpath(const char *url);

ROUTERKIT_END_DECLS

#endif
