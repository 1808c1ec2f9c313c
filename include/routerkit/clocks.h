/* Clocks for time-outs, session times and log stamps, and a sleep that survives signals.
 * All but sys_getUpTime use the kernel's raw monotonic clock (CLOCK_MONOTONIC_RAW), which changes
 * of the wall clock do not move.
 */
#ifndef ROUTERKIT_CLOCKS_H
#define ROUTERKIT_CLOCKS_H

#include <stdint.h>

#include <routerkit/export.h>

ROUTERKIT_BEGIN_DECLS

/* Seconds of the monotonic clock: the scale of session times. */
ROUTERKIT_API int get_monotonic_sec(void);

/* Milliseconds of the monotonic clock. Only the low 32 bits carry information: the sum is formed in
 * 32 bits and sign-extended, so it wraps every 2^32 ms. */
ROUTERKIT_API int64_t uptime_getmsl(void);

/* Milliseconds since the process's first call of this function; wraps every 2^32 ms (49.7 days).
 * The scale of deadlines. */
ROUTERKIT_API uint32_t uptime_getms(void);

/* uptime_getms as seconds, at least three digits, and milliseconds: "007.042". In a strf slot
 * (<routerkit/strings.h>). */
ROUTERKIT_API char *time_getLogStamp(void);

/* Seconds since the system's start. */
ROUTERKIT_API int sys_getUpTime(void);

/* Sleeps the full time whatever signals arrive. 0, or -1 when nanosleep fails. */
ROUTERKIT_API int safe_msleep(unsigned milliseconds);

ROUTERKIT_END_DECLS

#endif
