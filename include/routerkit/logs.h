/* Event logs that never outgrow their room, and counters of events.
 *
 * A circular log is a file of records of one fixed size, at most so many; when it is full, the
 * oldest record is overwritten. Each record is "<seconds since 1970>, <text>", cut to the record,
 * filled up with NUL bytes, and ends in a newline. There is no index: the newest record is the one
 * with the greatest time, of several with the same time the last in the file.
 *
 * Times are whole seconds of the wall clock. While the last slot holds the newest second, each entry
 * goes into the first slot, over what was written there in that second; and after the clock has
 * stepped back, into the slot behind the newest one until the clock has caught up. Newlines in an
 * entry stay. A file that was written with another size or number of records is not converted.
 *
 * The record size of the last circ_open_and_write holds for the whole process, streams of the C
 * library take heap while they are open, and nothing is locked: each program writes its own files. Nothing is logged to the
 * system log, except by the bridge query of dhcp_log.
 */
#ifndef ROUTERKIT_LOGS_H
#define ROUTERKIT_LOGS_H

#include <stddef.h>
#include <stdint.h>
#include <stdio.h>

#include <routerkit/export.h>

ROUTERKIT_BEGIN_DECLS

/* Writes an entry into the slot behind the newest one, or into the first slot.
 *   size   of a record in bytes, 1 to 5120
 *   count  of records at most; 0 is as 1
 * The file is created where it is missing. Returns 0, also when the write fails (a full disk); -1
 * if the file cannot be opened for reading and writing, or, with EINVAL, for any other size. */
ROUTERKIT_API int circ_open_and_write(const char *path, size_t size, size_t count,
                                      const char *text);

/* The two steps of it, for an open stream and the record size of the last circ_open_and_write;
 * without one they give -1 and 0, with EINVAL.
 * Writes one record where the stream stands: 0, also when the write fails; -1 for a null stream. */
ROUTERKIT_API int circ_write_entry(FILE *stream, const char *text);
/* Reads from the file's start, where the stream must stand, to its end. Returns the offset behind
 * the newest record, 0 without a whole record. A record without a time counts with the time of the
 * one before it. */
ROUTERKIT_API long circ_find_last_entry_offset(FILE *stream);

/* Adds 1 to the decimal number in a file, which is created where it is missing; only 7 digits of
 * the old and of the new number count. Returns 0, also when the file cannot be opened; -1 when the
 * new number cannot be written. */
ROUTERKIT_API int IncreaseCountInFile(const char *path);

/* Writes the local time as "16-11-2026 18:28:43" and a NUL, 20 bytes; returns the length, 19, or 0
 * and an empty text for a year of more than four digits. */
ROUTERKIT_API int time_t2humanview(char *buffer);

/* Logs a PPPoE discovery frame in /tmp/pppoed_frame_log_<instance>, 50 records of 300 bytes, and
 * counts it in /tmp/pppoed_frame_count_<instance>. The entry is "<seconds since 1970>;<text>", 255
 * characters at most. A null text does nothing. */
ROUTERKIT_API void pppoed_frame_log(const char *text, int instance);

/* Logs a DHCP event in /tmp/dhcp_log, 20 records of 300 bytes, and counts it in
 * /tmp/dhcp_events_count. The entry is "<local time>;<label>;<MAC>;<IP>;<text1>;<text2>;", where the
 * label is the LAN port behind which br0 knows the station (br_mac2laname), or "LAN".
 *   mac  6 bytes
 *   ip   the IPv4 address in network order, as in a struct in_addr
 * Returns the result of the count. */
ROUTERKIT_API int dhcp_log(const char *text1, const void *mac, uint32_t ip, const char *text2);

ROUTERKIT_END_DECLS

#endif
