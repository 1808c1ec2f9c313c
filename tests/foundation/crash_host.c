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

enum { kRounds = 20000 };

MEANT void write_to_nowhere(void);
MEANT void divide_by_zero(void);
MEANT void give_up(void);
MEANT void break_the_heap(void);
MEANT int fall_down(volatile char *above);

static int *volatile nowhere = (int *)0x10;
static volatile int endless = 1;

void write_to_nowhere(void) {
    *nowhere = 1;
}

void divide_by_zero(void) {
    volatile int number = 7;
    volatile int zero = 0;
    number = number / zero;
}

/* Through a pointer: a call that the compiler knows never to return may be the function's last
 * instruction, and its return address then lies in the next function. */
static void (*volatile give_up_how)(void) = abort;

void give_up(void) {
    give_up_how();
    endless = 1;
}

/* Leaves the heap without a spare block, and writes over the size of the free rest at its end: the
 * next malloc of more than a few bytes says so and aborts. */
void break_the_heap(void) {
    for (int i = 0; i < 10000; ++i) {
        void *volatile spare = malloc(600);
        (void)spare;
    }
    volatile char *volatile block = malloc(50000);
    for (int i = 50000; i < 50100; ++i) {
        block[i] = '\x7f';
    }
    *nowhere = 1;
}

int fall_down(volatile char *above) {
    volatile char room[1000];
    room[0] = above[0];
    return endless ? fall_down(room) + room[0] : 0;
}

/* As much alternate stack as the header asks for, and not a byte more. */
static void overflow_the_stack(void) {
    stack_t stack;
    memset(&stack, 0, sizeof stack);
    stack.ss_size = 16384 + (size_t)sysconf(_SC_MINSIGSTKSZ);
    stack.ss_sp = malloc(stack.ss_size);
    sigaltstack(&stack, NULL);
    fall_down("");
}

static int write_to_closed_pipe(void) {
    int ends[2];
    return pipe(ends) == 0 && close(ends[0]) == 0 && write(ends[1], "x", 1) == -1 && errno == EPIPE;
}

static int have_a_child(void) {
    int status = 0;
    pid_t child = fork();
    if (child == 0) {
        _exit(3);
    }
    while (waitpid(child, &status, 0) < 0 && errno == EINTR) {
    }
    return status == 3 << 8;
}

/* Milliseconds that a signal of the second group costs. */
static int time_a_signal(void) {
    struct timespec from;
    struct timespec to;
    clock_gettime(CLOCK_MONOTONIC, &from);
    raise(SIGUSR1);
    clock_gettime(CLOCK_MONOTONIC, &to);
    printf("%ld\n", (to.tv_sec - from.tv_sec) * 1000 + (to.tv_nsec - from.tv_nsec) / 1000000);
    return 1;
}

static int keep_errno(void) {
    int kept = 0;
    for (int value = 1; value <= 20; ++value) {
        errno = value;
        raise(SIGUSR1);
        kept += errno == value;
    }
    return kept == 20;
}

/* Busy where a signal is least welcome; rounds without end for 0. */
static int log_lines(long rounds) {
    for (long round = 0; rounds == 0 || round < rounds; ++round) {
        syslog(LOG_INFO, "line %ld", round);
    }
    return 1;
}

static int read_clocks(long rounds) {
    time_t now = 0;
    for (long round = 0; rounds == 0 || round < rounds * 50; ++round) {
        localtime(&now);
    }
    syslog(LOG_NOTICE, "still here");
    return 1;
}

static int use_the_heap(long rounds) {
    for (long round = 0; rounds == 0 || round < rounds * 100; ++round) {
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
    void (*crash)(void);
} kCrashes[] = {{"null", write_to_nowhere},
                {"divide", divide_by_zero},
                {"abort", give_up},
                {"heap", break_the_heap},
                {"overflow", overflow_the_stack}};

static const struct {
    const char *name;
    int (*check)(void);
} kChecks[] = {{"pipe", write_to_closed_pipe},
               {"child", have_a_child},
               {"time", time_a_signal},
               {"errno", keep_errno}};

static const struct {
    const char *name;
    int (*work)(long rounds);
    long rounds;
} kWorks[] = {{"log", log_lines, kRounds},       {"log-on", log_lines, 0},
              {"clocks", read_clocks, kRounds},  {"clocks-on", read_clocks, 0},
              {"blocks", use_the_heap, kRounds}, {"blocks-on", use_the_heap, 0}};

#define COUNT(table) (sizeof(table) / sizeof((table)[0]))

static int act(const char *what) {
    for (size_t i = 0; i < COUNT(kCrashes); ++i) {
        if (strcmp(what, kCrashes[i].name) == 0) {
            kCrashes[i].crash();
        }
    }
    for (size_t i = 0; i < COUNT(kChecks); ++i) {
        if (strcmp(what, kChecks[i].name) == 0) {
            return kChecks[i].check();
        }
    }
    for (size_t i = 0; i < COUNT(kWorks); ++i) {
        if (strcmp(what, kWorks[i].name) == 0) {
            return kWorks[i].work(kWorks[i].rounds);
        }
    }
    return 0;
}

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
    if (strcmp(argv[1], "wait") == 0) {
        for (;;) {
            pause();
        }
    }
    return act(argv[1]) ? 0 : 1;
}
