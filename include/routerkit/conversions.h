/* IPv4, IPv6 and MAC addresses, masks and byte strings, between numbers and text.
 *
 * The letters of a name tell the forms:
 *   n    network form: the address's bytes as they go over the wire, 4 (IPv4), 16 (IPv6) or 6 (MAC)
 *   i    integer form of an IPv4 address: host order, first octet on top (1.2.3.4 is 0x01020304)
 *   w    prefix width of an IPv4 mask, 0 to 32
 *   h    host form of an IPv6 address: 8 words of 16 bits in host order
 *   p    an IPv6 address with its prefix length ("2001:db8::/32")
 *   a    text: to be parsed, or as a result in a static ring (below)
 *   str  text written to the caller's buffer; the result is its length without the NUL
 *
 * Rings: ipv4_ntoa, ipv4_itoa, hex_ntoa and mac_ntoa share 8 slots of 40 bytes; ipv6_ntoa,
 * ipv6_htoa and ipv6_nptoa share 8 others of 54 bytes. A result stays valid for 7 further calls on
 * its ring and is overwritten by the 8th.
 *
 * Nothing here logs; nothing but the two hex files allocates memory or reports through errno.
 */
#ifndef ROUTERKIT_CONVERSIONS_H
#define ROUTERKIT_CONVERSIONS_H

#include <stddef.h>
#include <stdint.h>

#include <routerkit/export.h>

ROUTERKIT_BEGIN_DECLS

/* --- IPv4 ---
 * Texts are parsed as four numbers with dots between, each as strtoul reads it in base 10: white
 * space and a sign may stand before it, and leading zeros are plain decimal. A number above 255 or
 * below 0 fails. */

/* Writes "1.2.3.4" and a NUL, at most 16 bytes; returns the length, 7 to 15. */
ROUTERKIT_API int ipv4_ntostr(char *buffer, const void *address);
ROUTERKIT_API int ipv4_itostr(char *buffer, uint32_t address);

/* The same text in the ring. */
ROUTERKIT_API char *ipv4_ntoa(const void *address);
ROUTERKIT_API char *ipv4_itoa(uint32_t address);

/* Between the network form and the integer form; ipv4_iton returns the integer it was given. */
ROUTERKIT_API uint32_t ipv4_ntoi(const void *address);
ROUTERKIT_API uint32_t ipv4_iton(void *out, uint32_t address);

/* The number of one bits of a mask (255.0.255.0 gives 16). */
ROUTERKIT_API unsigned ipv4_itow(uint32_t mask);

/* The mask of a width: 24 gives 255.255.255.0, 0 gives 0.0.0.0. Only the width modulo 32 counts, so
 * that 32, like every other multiple but 0, gives 255.255.255.255. */
ROUTERKIT_API uint32_t ipv4_wtoi(unsigned width);

/* 1 when the value is a run of one bits from bit 0 up, as inverted masks are (0.0.0.255, and also 0
 * and 255.255.255.255), else 0: 255.255.255.0 gives 0. */
ROUTERKIT_API int ipv4_isimask(uint32_t value);

/* 1 if the whole text is an address, else 0. */
ROUTERKIT_API int ipv4_isip(const char *text);

/* Parses an address at the start of a text, whatever follows it. Returns where the address ends, or
 * null; the octets before a bad one are stored all the same. */
ROUTERKIT_API char *ipv4_aton(void *out, const char *text);

/* The same in integer form; 0 on failure (and for 0.0.0.0). */
ROUTERKIT_API uint32_t ipv4_atoi(const char *text);

/* 1 if ipv4_isip accepts the text and ipv4_isimask its value, else 0: "0.0.0.255" gives 1,
 * "255.255.255.0" gives 0. */
ROUTERKIT_API int ipv4_ismask(const char *text);

/* --- Byte strings as hex digits, written in upper case, read in either --- */

/* Writes two digits a byte and a NUL, for as many whole bytes as fit `size` (at least 1); returns
 * the number of digits. */
ROUTERKIT_API int hex_ntostr(char *buffer, size_t size, const void *bytes, size_t count);

/* The same in the ring: at most 19 bytes' digits, of 20 or 21 bytes the first 19 unmarked; of 22
 * or more the first 18 and "...". */
ROUTERKIT_API char *hex_ntoa(const void *bytes, size_t count);

/* Parses up to `count` pairs of digits. Returns the characters consumed, twice the bytes written; 0
 * for a bad digit or a single last one (bytes before it are stored all the same), and for "". What
 * follows the last pair wanted is not looked at. */
ROUTERKIT_API int hex_aton(void *out, size_t count, const char *text);

/* 1 if the first `count` pairs are hex digits, whatever follows; with count 0, if the whole text is
 * (the empty text is). Else 0. */
ROUTERKIT_API int hex_check(size_t count, const char *text);

/* Replaces a file with bytes as hex text, without a newline. Returns 0, even when the write fails;
 * -1 with ENOMEM or EOVERFLOW, the file untouched, when there is no memory for the text or no such
 * length. */
ROUTERKIT_API int writeHexToFile(const char *path, const void *bytes, size_t count);

/* Reads a file of hex text with hex_aton; returns its result, or -1 if the file cannot be loaded. A
 * newline behind the digits is a bad digit unless `count` bytes are complete before it. */
ROUTERKIT_API int readHexFromFile(const char *path, void *out, size_t count);

/* --- MAC addresses --- */

/* Writes "00:1A:2B:3C:4D:5E" and a NUL, 18 bytes; always returns 17. */
ROUTERKIT_API int mac_ntostr(char *buffer, const void *mac);

/* The same text in the ring. */
ROUTERKIT_API char *mac_ntoa(const void *mac);

/* In lower case, with colons ("00:1a:2b:3c:4d:5e") and without ("001a2b3c4d5e"), in a strf slot
 * (<routerkit/strings.h>). */
ROUTERKIT_API char *mac_ntoa_3(const void *mac);
ROUTERKIT_API char *mac_ntoa_2(const void *mac);

/* Parses six pairs of hex digits; one ":" or "-" may stand behind each of the first five. Returns
 * the characters consumed, 12 to 17, whatever follows; 0 for a bad digit (bytes before it are
 * stored all the same). */
ROUTERKIT_API int mac_aton(void *mac, const char *text);

/* Copies 6 bytes; returns 0. */
ROUTERKIT_API int mac_copy(void *destination, const void *source);

/* Predicates, 1 or 0. */
ROUTERKIT_API int mac_is_equal(const void *left, const void *right);
ROUTERKIT_API int mac_isnull(const void *mac);            /* a null pointer, or six zero bytes */
ROUTERKIT_API int mac_is_multicast(const void *mac);      /* the group bit (IEEE 802) */
ROUTERKIT_API int mac_is_ipv4_multicast(const void *mac); /* 01:00:5E:... (RFC 1112) */
ROUTERKIT_API int mac_is_ipv6_multicast(const void *mac); /* 33:33:... (RFC 2464) */
ROUTERKIT_API int mac_is_dns_multicast(const void *mac);  /* one of both that ends in FB: mDNS */

/* --- IPv6, as inet_pton and inet_ntop read and write it --- */

/* 1 if the whole text is an address, else 0. */
ROUTERKIT_API int ipv6_isip(const char *text);

/* Returns the text's length, or 0 on failure. */
ROUTERKIT_API int ipv6_aton(void *out, const char *text);

/* Parses "address/prefix". 0 on success, -1 on failure; the prefix, whose range is not checked, is
 * stored as soon as it is read, before the address is judged. */
ROUTERKIT_API int ipv6_atonp(void *out, int *prefix, const char *text);

/* Writes the address and a NUL, at most 46 bytes; returns the length. */
ROUTERKIT_API int ipv6_ntostr(char *buffer, const void *address);

/* The same with "/" and the prefix behind it: at most 58 bytes, 50 for a prefix of 0 to 128. */
ROUTERKIT_API int ipv6_nptostr(char *buffer, const void *address, int prefix);

/* The same texts in the IPv6 ring (a prefix is cut there to the slot's room). */
ROUTERKIT_API char *ipv6_ntoa(const void *address);
ROUTERKIT_API char *ipv6_nptoa(const void *address, int prefix);

/* Between the network form and the host form; both arrays may be the same. Return `out`. */
ROUTERKIT_API uint16_t *ipv6_hton(uint16_t *out, const uint16_t *host);
ROUTERKIT_API uint16_t *ipv6_ntoh(uint16_t *out, const uint16_t *network);

/* As ipv6_ntoa and ipv6_aton, from and to the host form. */
ROUTERKIT_API char *ipv6_htoa(const uint16_t *host);
ROUTERKIT_API int ipv6_atoh(uint16_t *host, const char *text);

/* Parses "address/prefix" into the host form: -1 if the text has no such form, else what ipv6_atoh
 * returns for the address. */
ROUTERKIT_API int ipv6_atohp(uint16_t *host, int *prefix, const char *text);

ROUTERKIT_END_DECLS

#endif
