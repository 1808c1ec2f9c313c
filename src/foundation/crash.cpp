#include <routerkit/crash.h>

#include <csetjmp>
#include <csignal>
#include <cstdint>
#include <cstdlib>
#include <ctime>

#include <dlfcn.h>
#include <sys/syscall.h>
#include <syslog.h>
#include <termios.h>
#include <unistd.h>

#include <routerkit/clocks.h>

#include "foundation/backtrace.h"
#include "foundation/signal_tables.h"
#include "support/chars.h"
#include "support/errno.h"

// glibc before 2.39 has the member, but not its public name (timer_create(2)).
#ifndef sigev_notify_thread_id
#define sigev_notify_thread_id _sigev_un._tid
#endif

namespace {

constexpr int kFrames = 100;
constexpr unsigned kReportSeconds = 3;
constexpr long kTickMs = 50;
constexpr int kTicksToWait = 2;
constexpr int kQuietSeconds = 5;

// What a broken program raises itself. While one of them is blocked the kernel ends the program
// there and then, without any handler.
constexpr uint8_t kFaults[] = {SIGSEGV, SIGBUS, SIGILL, SIGFPE, SIGSYS};

constinit volatile sig_atomic_t reporter = 0;    // the process whose end is being reported
constinit volatile sig_atomic_t dumping = 0;     // that report has come to its backtrace
constinit volatile sig_atomic_t quiet_until = 0; // on the clock of get_monotonic_sec

// Blocks everything but faults and the two signals given.
void shut_out(int how, int number, int other) {
    sigset_t set;
    sigfillset(&set);
    for (int fault : kFaults) {
        sigdelset(&set, fault);
    }
    sigdelset(&set, number);
    sigdelset(&set, other);
    ::sigprocmask(how, &set, nullptr);
}

using Handler = void(int number, siginfo_t *info, void *context);

int handle(int number, Handler *handler, struct sigaction *before = nullptr) {
    struct sigaction action = {};
    action.sa_sigaction = handler;
    action.sa_flags = SA_SIGINFO | SA_ONSTACK;
    return ::sigaction(number, &action, before);
}

// `signal` is null for one that the tables do not know.
void log_signal(const rk::SignalRow *signal, const siginfo_t *info) {
    const char *cause = rk::find_cause(info->si_signo, info->si_code);
    if (signal != nullptr) {
        ::syslog(LOG_DEBUG, "SIG%s(%s): %p", signal->name, cause, info->si_addr);
    } else {
        ::syslog(LOG_DEBUG, "Recieved SIGNAL: %d(%s): %p", info->si_signo, cause, info->si_addr);
    }
}

// --- Signals that end the program ---

void leave_things_in_order() {
    termios attributes;
    if (::isatty(STDIN_FILENO) != 0 && ::tcgetattr(STDIN_FILENO, &attributes) == 0) {
        attributes.c_lflag |= ICANON | ECHO | IEXTEN;
        ::tcsetattr(STDIN_FILENO, TCSANOW, &attributes);
    }
    [[maybe_unused]] int moved = ::chdir("/tmp");
}

[[noreturn]] void die() {
    ::signal(SIGABRT, SIG_DFL);
    std::abort();
}

void on_overdue(int /*number*/, siginfo_t * /*info*/, void * /*context*/) {
    leave_things_in_order();
    die();
}

void limit_report() {
    ::alarm(kReportSeconds);
    ::signal(SIGALRM, SIG_IGN); // forgets one that the host's own timer has sent
    handle(SIGALRM, on_overdue);
}

void dump_stack_plainly() {
    void *frames[kFrames];
    int count = ::backtrace(frames, kFrames);
    for (int i = 0; i < count; ++i) {
        rk::Chars<rk::kFrameNameSize> name;
        rk::name_frame(frames[i], name);
        ::syslog(LOG_DEBUG, "%s", name.data());
    }
}

// The report itself has crashed: over a broken heap, if that was in the backtrace.
[[noreturn]] void die_after_broken_report() {
    leave_things_in_order();
    if (dumping != 0) {
        dumping = 0; // once
        dump_stack_plainly();
    }
    die();
}

[[noreturn]] void report_and_die(const rk::SignalRow *signal, const siginfo_t *info) {
    bool again = reporter == ::getpid();
    if (!again) { // the first one's time goes on
        limit_report();
    }
    // From here on only a fault, an abort or the end of the time can interrupt the report.
    shut_out(SIG_SETMASK, SIGALRM, SIGABRT);
    if (again) {
        die_after_broken_report();
    }
    reporter = ::getpid();
    log_signal(signal, info);
    leave_things_in_order();
    dumping = 1;
    dump_stack();
    die();
}

// --- Signals that do not ---

// The host may be inside syslog or localtime, whose locks it then holds: to wait for them here is
// to wait for ever. To give up in the middle of our own syslog would leave its lock held for good.
// So the locks are tried first, in calls that hold nothing while they wait.
struct Attempt {
    sigjmp_buf way_out;
    volatile sig_atomic_t trying_locks = 0;
    volatile sig_atomic_t ticks = 0;
};

constinit Attempt *volatile current = nullptr;

// One tick proves nothing, for the whole program may have stood still; and it makes a send to a
// log that takes nothing fail with EINTR.
void on_tick(int /*signal*/, siginfo_t *info, void * /*context*/) {
    Attempt *attempt = current;
    if (attempt == nullptr || info->si_value.sival_ptr != attempt) {
        return; // somebody else's
    }
    attempt->ticks = attempt->ticks + 1;
    if (attempt->trying_locks != 0 && attempt->ticks >= kTicksToWait) {
        siglongjmp(attempt->way_out, 1);
    }
}

// Ticks for this thread while it lives. The timer is made each time: it belongs to one thread and
// is not inherited over fork.
class Ticker {
  public:
    explicit Ticker(Attempt &attempt) {
        current = &attempt;
        handle(signal_, on_tick, &before_);
        sigevent event = {};
        event.sigev_notify = SIGEV_THREAD_ID;
        event.sigev_signo = signal_;
        event.sigev_value.sival_ptr = &attempt;
        event.sigev_notify_thread_id = static_cast<pid_t>(::syscall(SYS_gettid));
        running_ = ::timer_create(CLOCK_MONOTONIC, &event, &timer_) == 0;
        timespec tick = {0, kTickMs * 1000000};
        itimerspec ticks = {tick, tick};
        if (running_) {
            ::timer_settime(timer_, 0, &ticks, nullptr);
        }
    }

    // The signal is not blocked: a last tick arrives before timer_delete returns, not later.
    ~Ticker() {
        if (running_) {
            ::timer_delete(timer_);
        }
        ::sigaction(signal_, &before_, nullptr);
        current = nullptr;
    }

    Ticker(const Ticker &) = delete;
    Ticker &operator=(const Ticker &) = delete;

    [[nodiscard]] bool running() const { return running_; }

  private:
    const int signal_ = SIGRTMAX; // a call in the C library
    struct sigaction before_;
    timer_t timer_;
    bool running_;
};

// One handler at a time: another signal's, on the same stack, would meet this one's locks.
void let_signals_wait() {
    const int tick = SIGRTMAX;
    shut_out(SIG_BLOCK, tick, tick);
    sigset_t set = {};
    sigaddset(&set, tick);
    ::sigprocmask(SIG_UNBLOCK, &set, nullptr);
}

void try_locks() {
    ::setlogmask(0); // only tells the mask
    time_t start = 0;
    struct tm local;
    ::localtime_r(&start, &local);
}

// Whether the line was written, and that without delay.
bool log_unless_stuck(const rk::SignalRow *signal, const siginfo_t *info) {
    Attempt attempt;
    Ticker ticker(attempt);
    if (!ticker.running() || sigsetjmp(attempt.way_out, 1) != 0) {
        return false;
    }
    attempt.trying_locks = 1;
    try_locks();
    attempt.trying_locks = 0;
    log_signal(signal, info);
    return attempt.ticks == 0;
}

void log_and_go_on(const rk::SignalRow *signal, const siginfo_t *info) {
    rk::ErrnoSaver keep;
    int now = get_monotonic_sec();
    if (now < quiet_until) {
        return;
    }
    let_signals_wait();
    quiet_until = now + kQuietSeconds; // also for a thread that comes here meanwhile
    if (log_unless_stuck(signal, info)) {
        quiet_until = 0;
    }
}

void on_signal(int number, siginfo_t *info, void * /*context*/) {
    const rk::SignalRow *signal = rk::find_signal(number);
    if (signal != nullptr && signal->fatal) {
        report_and_die(signal, info);
    }
    log_and_go_on(signal, info);
}

// The first backtrace loads the unwinder, and the first line logged reads the time zone: both take
// memory, which a handler must not.
void load_what_the_handler_needs() {
    void *frame;
    ::backtrace(&frame, 1);
    ::tzset();
}

} // namespace

int init_signals() {
    load_what_the_handler_needs();
    int result = -1;
    for (const rk::SignalRow &signal : rk::kSignals) {
        result = handle(signal.number, on_signal);
    }
    return result;
}

void dump_stack() {
    void *frames[kFrames];
    int count = ::backtrace(frames, kFrames);
    ::syslog(LOG_DEBUG, "backtrace() returned %d addresses", count);
    char **symbols = ::backtrace_symbols(frames, count);
    if (symbols == nullptr) {
        ::syslog(LOG_ERR, "backtrace_symbols: %m");
        return;
    }
    for (int i = 0; i < count; ++i) {
        ::syslog(LOG_DEBUG, "%s", symbols[i]);
    }
    std::free(symbols);
}
