/* Running other programs.
 *
 * The name says how: the plain runners wait and return the exit status, those with `fork` return
 * the child's pid at once and leave the child to the caller to reap (_waitpid). The formatted
 * runners (...f) build a command text and split it into words themselves, without a shell:
 *
 * - words are separated by spaces; a backslash makes the next character literal, '...' and "..."
 *   hold words together, and inside them a backslash works as well;
 * - an "&" at the very end is dropped, with the spaces before it, and means nothing;
 * - the last ">" of the text is a redirection, unless it is the first character, a quote follows it
 *   or a backslash stands before it: what follows is the path of the output file, which is created
 *   or replaced. Only that one is known: of ">>" the first stays as a word, of "2>" the word 2;
 * - at most 2047 characters and 31 words; nothing else is special: no variables, no patterns.
 *
 * Exit status: 0 to 255 as the program gave it; the raw wait status, whose low 7 bits are the
 * signal, when a signal killed it; -1 when there was no child. A command that is null, empty or
 * blank is refused with errno EINVAL, one with too many characters with ENOBUFS, one with too many
 * words with E2BIG, before anything runs.
 *
 * Two ways of finding a program whose name has no slash: cmdf, qcmdf, forkcmdf and the word-list
 * runners look in /bin only, set PATH=/bin for the program and let it ignore SIGINT; sncmdf, lcmdf and the reinit
 * launcher search the caller's PATH and change nothing. A program that cannot be run is logged at
 * LOG_ERR and reported on the child's standard error, wherever that goes; the status is then the
 * errno (the former) or 1 (the latter), which the program itself could have given, too. An output
 * file that cannot be opened is reported there as well, and its errno is the status; so is a stream
 * that cannot be led to its file or pipe.
 *
 * A program inherits the caller's environment (but for PATH=/bin above), folder, umask, blocked and
 * ignored signals, standard input, and the streams that the runner does not replace. Of the
 * caller's other descriptors it inherits those that are not close-on-exec; of the library's, none.
 * The caller's signal handlers, atexit handlers and unwritten stdio never act in a child, and its
 * memory, environment and signals are never changed by one. In a caller that ignores SIGCHLD the
 * kernel reaps the children: the runners that wait return -1 with errno ECHILD.
 */
#ifndef ROUTERKIT_COMMANDS_H
#define ROUTERKIT_COMMANDS_H

#include <stddef.h>
#include <sys/types.h>

#include <routerkit/export.h>

ROUTERKIT_BEGIN_DECLS

/* --- Commands through the shell --- */

/* Runs a formatted command of at most 2047 characters with system(3) and returns its raw result;
 * -1 for a null or empty format (EINVAL) and for a longer command (ENOBUFS). */
ROUTERKIT_API int systemf(const char *format, ...) ROUTERKIT_PRINTF(1, 2);

/* Runs each non-empty line of a file with system(3). A line that fails is reported on standard
 * error and the next one runs. 0, or -1 if the file cannot be loaded. */
ROUTERKIT_API int execBatch(const char *path);

/* --- Formatted commands, run directly --- */

/* Standard output and error are inherited, or both go to the redirection's file. */
ROUTERKIT_API int cmdf(const char *format, ...) ROUTERKIT_PRINTF(1, 2);

/* Quiet: as cmdf, but standard error goes to /dev/null when there is no redirection. */
ROUTERKIT_API int qcmdf(const char *format, ...) ROUTERKIT_PRINTF(1, 2);

/* As cmdf, without waiting: the child's pid, or -1. A program that cannot be run has a pid, too, and
 * the errno as its status. */
ROUTERKIT_API pid_t forkcmdf(const char *format, ...) ROUTERKIT_PRINTF(1, 2);

/* Captures standard output; standard error goes to /dev/null, a redirection is dropped.
 * Returns the exit status, not a length; an output that was cut is not told.
 *   buffer  receives the output, its newlines included, and a NUL; an empty text when nothing could be run
 *   size    room in buffer in bytes, at least 1 (0: -1, errno EINVAL). Once it is full the pipe is
 *           closed, so that a program that goes on writing gets SIGPIPE; it is still waited for. */
ROUTERKIT_API int sncmdf(char *buffer, size_t size, const char *format, ...) ROUTERKIT_PRINTF(3, 4);

/* Logging: when the status is not 0, the status, the command and the first line of its standard
 * error (which is captured, 511 bytes at most) are logged at LOG_ERR. A redirection takes standard
 * output only. */
ROUTERKIT_API int lcmdf(const char *format, ...) ROUTERKIT_PRINTF(1, 2);

/* --- Word lists ---
 *   words    the program and its arguments, closed by a null (an empty list: -1, errno EINVAL)
 *   outPath  the file that standard output and error go to. With null standard output is inherited
 *            and standard error is closed, not silenced: a complaint of the program's fails, and
 *            the next file it opens gets descriptor 2 */

ROUTERKIT_API int execulity(char *const *words, const char *outPath);

/* Without waiting: the child's pid, or -1. */
ROUTERKIT_API pid_t forkexeculity(char *const *words, const char *outPath);

/* ping -c 4 host */
ROUTERKIT_API int pingulity(const char *host, const char *outPath);

/* traceroute host */
ROUTERKIT_API int traceroulity(const char *host, const char *outPath);

/* --- One command served by a function --- */

/* DoCmd calls `handler` in place of a program of this name. Both may be changed; a null handler
 * switches the hook off. */
typedef struct {
    const char *name;                                           /* "echo" at first */
    int (*handler)(int argc, char **argv, const char *outPath); /* _echo at first */
} command_hooks_t;

ROUTERKIT_API extern command_hooks_t hooks;

/* The hook's result when word 0 is its name, else as execulity. */
ROUTERKIT_API int DoCmd(char **words, const char *outPath);

/* DoCmd with the words as arguments, at most 25 (E2BIG), closed by an empty text:
 *     RunSystemCmd("/proc/sys/net/ipv4/ip_forward", "echo", "1", "");
 * No word at all, or a null among them: -1, errno EINVAL. */
ROUTERKIT_API int RunSystemCmd(const char *outPath, ...);

/* Writes its arguments, argv[1] on, with nothing between them, and a newline; an argument that
 * begins with "-n" is left out and suppresses the newline. At most 1023 characters (-1, errno
 * ENOBUFS, nothing is written). To the file at outPath, which is replaced, or with a null outPath
 * to standard output. Returns the length written, or -1. */
ROUTERKIT_API int _echo(int argc, char **argv, const char *outPath);

/* --- Waiting --- */

/* Waits for a child and returns its exit status; -1 at once for a negative pid. */
ROUTERKIT_API int _waitpid(pid_t pid);

/* --- Events for the configuration daemon ---
 *
 * These run the daemon's client: reinitCli -e EVENT -d DATA, where DATA is "pid=" and the caller's
 * pid, followed by a comma and the formatted text unless the format is null. DATA of more than 4095
 * characters is refused with -1 and errno ENOBUFS, a null event with EINVAL. */

/* Without waiting: the client's pid, or -1. */
ROUTERKIT_API pid_t forkReinitEvent(const char *event, const char *format, ...)
    ROUTERKIT_PRINTF(2, 3);

ROUTERKIT_API int reinitEvent(const char *event, const char *format, ...) ROUTERKIT_PRINTF(2, 3);

/* The event "apply", without a text. */
ROUTERKIT_API int reinitApply(void);

ROUTERKIT_END_DECLS

#endif
