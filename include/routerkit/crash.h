/* A report in the system log of the signals that reach a host program, and of its crashes.
 *
 * A host calls init_signals once at its start. From then on each of 32 signals is logged at
 * LOG_DEBUG with its name, its cause and an address, SIGSEGV(address not mapped to object): 0x10.
 * Then the program goes on, or, where the signal would end it, gets its terminal back (when
 * standard input is one), logs a backtrace, changes to /tmp for the core file and aborts:
 *
 *   aborts   SIGHUP SIGINT SIGQUIT SIGILL SIGABRT SIGFPE SIGSEGV SIGBUS SIGPOLL SIGPROF SIGSYS
 *            SIGVTALRM SIGXCPU SIGXFSZ SIGPWR SIGTERM
 *   goes on  SIGPIPE SIGALRM SIGUSR1 SIGUSR2 SIGCHLD SIGCONT SIGTSTP SIGTTIN SIGTTOU SIGTRAP SIGURG
 *            SIGWINCH
 *
 * A host that handles one of them itself installs its own handler afterwards. Calls that one of the
 * second group interrupts fail with EINTR.
 *
 * The lines go through syslog, with the identity, facility, mask and options that the host gave
 * openlog. A signal may come while the host itself is inside syslog, localtime or malloc, and yet
 * never hangs it:
 *   - a signal that ends the program does so within 3 seconds, with or without the report; the
 *     report takes over SIGALRM and alarm for that;
 *   - one that does not may lose its line, after at most 0.1 s; for 5 seconds then further such
 *     lines are lost without a wait. While such a line is logged SIGRTMAX is borrowed from the
 *     host, and other signals wait.
 *
 * With the option LOG_PERROR glibc's syslog takes memory, which a handler must not: a daemon that
 * asks for it risks its heap whenever a signal comes at the wrong moment.
 *
 * The handler uses an alternate signal stack if the host has set one up (sigaltstack), which is
 * what it takes to report a stack overflow; 16 KB and what the kernel itself needs
 * (sysconf(_SC_MINSIGSTKSZ)) are enough. Functions show by name where the program exports them
 * (link it with -rdynamic).
 */
#ifndef ROUTERKIT_CRASH_H
#define ROUTERKIT_CRASH_H

#include <routerkit/export.h>

ROUTERKIT_BEGIN_DECLS

/* Installs the handler, and loads what it will need: backtraces take memory and files the first
 * time. 0, or -1 with errno if it could not be installed for the last signal (SIGTERM); SIGKILL and
 * SIGSTOP are tried as well and always fail. */
ROUTERKIT_API int init_signals(void);

/* Logs the calling thread's backtrace at LOG_DEBUG: how many addresses, then one line for each, the
 * innermost first, 100 at most. A failure is logged at LOG_ERR. Takes a block from the heap. */
ROUTERKIT_API void dump_stack(void);

ROUTERKIT_END_DECLS

#endif
