/* The router's load: processor time, memory, load average, wireless stations.
 *
 * Nothing is logged.
 */
#ifndef ROUTERKIT_STATS_H
#define ROUTERKIT_STATS_H

#include <stddef.h>
#include <stdint.h>

#include <routerkit/export.h>

ROUTERKIT_BEGIN_DECLS

/* Processor time since the system's start in clock ticks, as in the line "cpu" of /proc/stat, or
 * the shares between two such samples in percent. */
typedef struct cpu_stat {
    int64_t user;
    int64_t system;
    int64_t nice;
    int64_t idle;
    int64_t iowait;
    int64_t irq;
    int64_t softirq;
    int64_t steal;
} cpu_stat;

/* In kB, as in /proc/meminfo. */
typedef struct mem_info {
    uint32_t total;
    uint32_t used; /* total - free: buffers and cached pages count as used */
    uint32_t free;
    uint32_t shared; /* always 0 */
    uint32_t buffers;
    uint32_t cached;
} mem_info;

/* A wireless station. */
typedef struct sta_info {
    char hwaddr[30]; /* its MAC address as text; a text of 30 characters has no NUL */
    int32_t rssi;
} sta_info;

/* Takes a sample; what /proc/stat does not tell is 0. Returns 0. */
ROUTERKIT_API int read_cpuinfo(cpu_stat *out);

/* The sum of all eight fields. */
ROUTERKIT_API int64_t calc_total_stat(const cpu_stat *stat);

/* |a - b| * 100 / total, of the low 32 bits of a and b, truncated; 0 for a total of 0. */
ROUTERKIT_API int calc_value_percent(int64_t a, int64_t b, int total);

/* The shares of the eight fields in the time between two samples, which may come in either order.
 */
ROUTERKIT_API void calc_stat(const cpu_stat *a, const cpu_stat *b, cpu_stat *out);

/* The shares in the 50 ms that this call takes: whole percents, but of few ticks. */
ROUTERKIT_API void get_cpuinfo(cpu_stat *out);

/* Reads MemTotal, MemFree, Buffers and Cached, which must be the first lines of /proc/meminfo, in
 * this order and in its first 511 bytes: the field of a line that is not as expected, and those after
 * it, stay as they were. Kernels since 3.14 have MemAvailable in the third line: there buffers and
 * cached are never set, so clear the record first.
 * Returns `used`; 0 if the file cannot be read, and then the record is untouched. */
ROUTERKIT_API int get_meminfo(mem_info *out);

/* Reads the line of /proc/loadavg, newline included.
 *   buffer  at least 80 bytes
 * Returns its length, or -1. */
ROUTERKIT_API int get_loadavg(char *buffer);

/* Reads a wireless driver's station table:
 *     -- STA info table -- (active: 2)
 *     1: stat_info...
 *         hwaddr: 021234567890
 *         rssi: 47
 *     2: stat_info...
 * that is a header whose first colon is followed by the number of stations and ")", then lines of
 * a key, a colon and one word; the lines "stat_info..." each begin a station.
 *   stations  receives hwaddr and rssi as far as the table has them; room for the header's number,
 *             beyond which stations are skipped
 * Returns the header's number; -1 for a text without it, a line of another form, or a line before
 * the first station. */
ROUTERKIT_API int wlan_procStaInfo(const char *text, sta_info *stations);

ROUTERKIT_END_DECLS

#endif
