/* Base64 (RFC 4648, section 4) with "=" padding, into buffers of the caller's. Nothing here fails:
 * output that does not fit is cut, and a character outside of the alphabet decodes as zero bits.
 */
#ifndef ROUTERKIT_BASE64_H
#define ROUTERKIT_BASE64_H

#include <stddef.h>

#include <routerkit/export.h>

ROUTERKIT_BEGIN_DECLS

/* The length of the text for n bytes, without the terminating NUL. */
ROUTERKIT_API size_t b64_encoded_len(size_t n);

/* Encodes without line breaks, in whole groups of four characters and always terminated.
 *   size  room for the text in bytes, at least 1; b64_encoded_len(count) + 1 is enough
 * Returns the number of characters. */
ROUTERKIT_API int b64_encode(char *buffer, size_t size, const void *data, size_t count);

/* Room for the bytes of n characters, and one more. */
ROUTERKIT_API size_t b64_decoded_len(size_t n);

/* Decodes up to the NUL, or up to the "=" that pads a group; white space is not skipped. Two or
 * three last characters without padding give the one or two bytes that they determine.
 *   capacity  room in bytes; no terminator is written
 * Returns the number of bytes. */
ROUTERKIT_API int b64_decode(void *out, size_t capacity, const char *text);

ROUTERKIT_END_DECLS

#endif
