/* A host program of the crash reporter: does what its first argument says. */
#include <routerkit/crash.h>

#include <errno.h>
#include <signal.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/wait.h>
#include <syslog.h>
#include <time.h>
#include <unistd.h>

/* The faults are meant: no tool shall catch them before the kernel does. */
#define MEANT __attribute__((noinline, no_sanitize("address", "undefined")))

/* Each takes the number that stands beside its name below; a result of 0 is a failure. */
MEANT int write_to_nowhere(long number);
MEANT int divide_by(long number);
MEANT int give_up(long number);
MEANT int break_the_heap(long number);
MEANT int fall_down(volatile char *above);

static int *volatile nowhere = (int *)0x10;
static volatile int endless = 1;

int write_to_nowhere(long number) {
    *nowhere = (int)number;
    return 0;
}

int divide_by(long number) {
    volatile int divisor = (int)number;
    return 7 / divisor;
}

/* Through a pointer: a call that the compiler knows never to return may be the function's last
 * instruction, and its return address then lies in the next function. */
static void (*volatile give_up_how)(void) = abort;

int give_up(long number) {
    give_up_how();
    return (int)number;
}

/* Leaves the heap without a spare block, and writes over the size of the free rest at its end: the
 * next malloc of more than a few bytes says so and aborts. */
int break_the_heap(long number) {
    for (long i = 0; i < number; ++i) {
        void *volatile spare = malloc(600);
        (void)spare;
    }
    volatile char *volatile block = malloc(50000);
    for (int i = 50000; i < 50100; ++i) {
        block[i] = '\x7f';
    }
    *nowhere = 1;
    return 0;
}

int fall_down(volatile char *above) {
    volatile char room[1000];
    room[0] = above[0];
    return endless ? fall_down(room) + room[0] : 0;
}

/* As much alternate stack as the header asks for, and not a byte more. */
static int overflow_the_stack(long number) {
    stack_t stack;
    memset(&stack, 0, sizeof stack);
    stack.ss_size = (size_t)number + MINSIGSTKSZ;
#ifdef _SC_MINSIGSTKSZ /* more where the processor has more registers than the header knows */
    stack.ss_size = (size_t)number + (size_t)sysconf(_SC_MINSIGSTKSZ);
#endif
    stack.ss_sp = malloc(stack.ss_size);
    sigaltstack(&stack, NULL);
    return fall_down("");
}

static int write_to_closed_pipe(long number) {
    int ends[2];
    return pipe(ends) == 0 && close(ends[0]) == 0 && write(ends[1], "xx", (size_t)number) == -1 &&
           errno == EPIPE;
}

static int have_a_child(long number) {
    int status = 0;
    if (fork() == 0) {
        _exit((int)number);
    }
    while (wait(&status) < 0 && errno == EINTR) {
    }
    return status == number << 8;
}

static int keep_errno(long number) {
    int kept = 0;
    for (int value = 1; value <= number; ++value) {
        errno = value;
        raise(SIGUSR1);
        kept += errno == value;
    }
    return kept == number;
}

static int wait_for_signals(long number) {
    while (number == 0) {
        pause();
    }
    return 1;
}

/* Busy where a signal is least welcome; rounds without end for 0. */
static int log_lines(long number) {
    for (long round = 0; number == 0 || round < number; ++round) {
        syslog(LOG_INFO, "line %ld", round);
    }
    syslog(LOG_NOTICE, "still here");
    return 1;
}

static int read_clocks(long number) {
    time_t now = 0;
    for (long round = 0; number == 0 || round < number; ++round) {
        localtime(&now);
    }
    syslog(LOG_NOTICE, "still here");
    return 1;
}

static int use_the_heap(long number) {
    for (long round = 0; number == 0 || round < number; ++round) {
        void *volatile small = malloc(100);
        void *volatile large = malloc(5000);
        free(small);
        free(large);
    }
    syslog(LOG_NOTICE, "still here");
    return 1;
}

static const struct {
    const char *name;
    int (*act)(long number);
    long number;
} kActs[] = {{"null", write_to_nowhere, 1},
             {"divide", divide_by, 0},
             {"abort", give_up, 0},
             {"heap", break_the_heap, 10000},
             {"overflow", overflow_the_stack, 16384},
             {"pipe", write_to_closed_pipe, 1},
             {"child", have_a_child, 3},
             {"errno", keep_errno, 20},
             {"wait", wait_for_signals, 0},
             {"log", log_lines, 20000},
             {"log-on", log_lines, 0},
             {"clocks", read_clocks, 1000000},
             {"clocks-on", read_clocks, 0},
             {"blocks", use_the_heap, 2000000},
             {"blocks-on", use_the_heap, 0}};

int main(int argc, char **argv) {
    if (argc < 2 || init_signals() != 0) {
        return 2;
    }
    openlog("the-host", argc > 2 ? LOG_PERROR : 0, LOG_DAEMON);
    if (strstr(argv[1], "-on") != NULL) {
        setlogmask(~LOG_MASK(LOG_INFO)); /* its own lines are many */
    }
    puts("ready");
    fflush(stdout);
    for (size_t i = 0; i < sizeof kActs / sizeof kActs[0]; ++i) {
        if (strcmp(argv[1], kActs[i].name) == 0) {
            return kActs[i].act(kActs[i].number) ? 0 : 1;
        }
    }
    return 2;
}
