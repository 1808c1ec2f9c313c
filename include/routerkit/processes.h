/* Finding, signalling and stopping other processes, by name, by command line and by pid file.
 *
 * The walks over /proc see processes in the kernel's order, and not all at one moment: processes
 * may start and end meanwhile. A process's name is that of its status file, at most 15 characters,
 * where the kernel writes a newline as \n and a backslash as \\, and where a blank ends it.
 *
 * A pid file holds the pid as decimal text. What it holds never reaches kill unless it is a number
 * from 1 to 2^31 - 1: no file, whatever its content, can signal a group or every process.
 *
 * Nothing is logged; failures leave errno as the failing system call set it.
 */
#ifndef ROUTERKIT_PROCESSES_H
#define ROUTERKIT_PROCESSES_H

#include <sys/types.h>

#include <routerkit/export.h>

ROUTERKIT_BEGIN_DECLS

/* --- Looking up --- */

/* The pid of the first process with that name; 0 if there is none. -1 if /proc cannot be opened or
 * any process on the way cannot be read, as one that ends at that moment. */
ROUTERKIT_API int find_pid_by_name(const char *name);

/* The pid of the first process with that command line: its arguments, the program first, joined by
 * single blanks. Only the first 255 characters of a process's are looked at. 0 if there is none, -1
 * if /proc cannot be opened. Processes without a command line (the kernel's threads, zombies) and
 * those that cannot be read are passed over. */
ROUTERKIT_API int isCmdActive(const char *command);

/* The calling process's own name, in one static buffer that each call overwrites (and through one
 * strf slot, <routerkit/strings.h>). An empty or the earlier text if it cannot be read. */
ROUTERKIT_API char *getProcSelfName(void);

/* Prints a process and its ancestors to standard output, the oldest first, without a newline:
 * [120]'/bin/sh'> [250]'ping -c 4 host'. The line starts below process 1; entries that `depth`
 * leaves out, or that cannot be read, leave their "> " behind.
 *   depth  how many entries at most; 0 prints nothing
 * 0, or -1 if the process's stat file cannot be read or, as with a blank in its name, parsed. Each
 * entry takes one strf slot. */
ROUTERKIT_API int trace_pid(unsigned pid, unsigned depth);

/* --- Signalling --- */

/* Signals every process with one of the names.
 *   names   one name, or several separated by "|"
 *   signal  0 only counts the processes
 * Returns how many were signalled, or -1 if /proc cannot be opened. Processes that cannot be read
 * are passed over. */
ROUTERKIT_API int killall(const char *names, int signal);

/* Stops a process: SIGTERM, then SIGKILL if it stays.
 *   waitTerm, waitKill  how often to look again, every 10 ms, after each of the signals
 * 0 once the process is gone; -1 if it cannot be signalled or is still there at the end (errno
 * ETIME), as a zombie is until its parent reaps it. A pid below 1 is refused with EINVAL. */
ROUTERKIT_API int terminate(pid_t pid, int waitTerm, int waitKill);

/* --- Pid files --- */

/* The number in the file: -1 if it cannot be read, 0 if it is no number. Not checked to be a pid.
 */
ROUTERKIT_API long getPid_fromFile(const char *path);

/* Writes the caller's pid and a newline; returns the length, or -1. */
ROUTERKIT_API int setPid_toFile(const char *path);

/* kill's result; -2 if the file is missing or holds no pid. */
ROUTERKIT_API int sendSignalByPidFile(int signal, const char *path);

/* Stops the daemon of a pid file and removes the file; the path is formatted. A process that
 * survives the signal for about 400 ms gets SIGKILL. A child of the caller's that has ended, but is
 * not reaped, counts as surviving; reaping stays with the caller.
 * 1 once that is done, or if there was no such process; 0 if there is no file; -1 if the process
 * cannot be signalled (the file stays) or the path has more than 255 characters (errno ENOBUFS,
 * nothing is touched). */
ROUTERKIT_API int killByPidFile(int signal, const char *format, ...) ROUTERKIT_PRINTF(2, 3);

/* killByPidFile with SIGKILL. */
ROUTERKIT_API int killDaemonByPidFile(const char *path);

ROUTERKIT_END_DECLS

#endif
