/* The wireless driver's settings: named MIB values of each interface, through its private ioctls.
 *
 * An interface number holds the radio in bits 0-1 and the virtual access point's number plus 1 in
 * bits 4-6 (0: the radio's main interface); other bits are ignored. 0x01 is wlan1, 0x31 wlan1-va2.
 *
 * A request and its answer travel in 256 bytes: a name to read, or to write the name with "=" and
 * the value, have at most 255 characters, longer ones are refused with ENOBUFS before the driver is
 * asked; so is an answer that claims to be longer. Failures are -1 with errno set, and are logged at
 * LOG_ERR.
 */
#ifndef ROUTERKIT_WIRELESS_H
#define ROUTERKIT_WIRELESS_H

#include <stddef.h>

#include <routerkit/export.h>

ROUTERKIT_BEGIN_DECLS

/* The value: the driver's 1 byte unsigned, its 2 or 4 bytes signed; an answer of any other length
 * is EPROTO. A stored -1 looks like a failure. */
ROUTERKIT_API int wlio_get_mib_int(int interface_number, const char *name);

/* 0 or -1. */
ROUTERKIT_API int wlio_set_mib_int(int interface_number, const char *name, int value);

/* Reads a text or bytes.
 *   size  room in buffer in bytes, a text's terminator included; an answer of more bytes is refused
 *         with ENOBUFS. A text without terminator that fills the buffer loses its last character.
 * Returns the length of the driver's answer (which may count the terminator), or -1 with the buffer
 * untouched. */
ROUTERKIT_API int wlio_get_mib_str_n(int interface_number, const char *name, char *buffer,
                                     size_t size);
ROUTERKIT_API int wlio_get_mib_bin_n(int interface_number, const char *name, void *buffer,
                                     size_t size);

/* The same into a buffer of 4 bytes: enough for a country code, not for a network's name. 0 or -1.
 */
ROUTERKIT_API int wlio_get_mib_str(int interface_number, const char *name, char *buffer);
ROUTERKIT_API int wlio_get_mib_bin(int interface_number, const char *name, void *buffer);

/* 0 or -1; bytes travel as two upper-case hex digits each. */
ROUTERKIT_API int wlio_set_mib_str(int interface_number, const char *name, const char *text);
ROUTERKIT_API int wlio_set_mib_bin(int interface_number, const char *name, const void *bytes,
                                   size_t count);

ROUTERKIT_END_DECLS

#endif
