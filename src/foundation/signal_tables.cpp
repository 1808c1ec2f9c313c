#include "foundation/signal_tables.h"

#include <csignal>

namespace {

constexpr uint8_t kAny = 0;

struct Cause {
    uint8_t signal;
    int16_t code;
    char text[38];
};

// Texts in the rows themselves: pointers would have to be relocated at every program's start.
constexpr Cause kCauses[] = {
    {kAny, SI_USER, "by kill or raise"},
    {kAny, SI_KERNEL, "Sent by the kernel"},
    {kAny, SI_QUEUE, "sigqueue"},
    {kAny, SI_TIMER, "POSIX timer expired"},
    {kAny, SI_MESGQ, "POSIX  message  queue  state  changed"},
    {kAny, SI_ASYNCIO, "AIO completed"},
    {kAny, SI_SIGIO, "queued SIGIO"},
    {kAny, SI_TKILL, "tkill or tgkill"},
    {SIGILL, ILL_ILLOPC, "illegal opcode"},
    {SIGILL, ILL_ILLOPN, "illegal operand"},
    {SIGILL, ILL_ILLADR, "illegal addressing mode"},
    {SIGILL, ILL_ILLTRP, "illegal trap"},
    {SIGILL, ILL_PRVOPC, "privileged opcode"},
    {SIGILL, ILL_PRVREG, "privileged register"},
    {SIGILL, ILL_COPROC, "coprocessor error"},
    {SIGILL, ILL_BADSTK, "internal stack error"},
    {SIGFPE, FPE_INTDIV, "integer divide by zero"},
    {SIGFPE, FPE_INTOVF, "integer overflow"},
    {SIGFPE, FPE_FLTDIV, "floating-point divide by zero"},
    {SIGFPE, FPE_FLTOVF, "floating-point overflow"},
    {SIGFPE, FPE_FLTUND, "floating-point underflow"},
    {SIGFPE, FPE_FLTRES, "floating-point inexact result"},
    {SIGFPE, FPE_FLTINV, "floating-point invalid operation"},
    {SIGFPE, FPE_FLTSUB, "subscript out of range"},
    {SIGSEGV, SEGV_MAPERR, "address not mapped to object"},
    {SIGSEGV, SEGV_ACCERR, "invalid permissions for mapped object"},
    {SIGBUS, BUS_ADRALN, "invalid address alignment"},
    {SIGBUS, BUS_ADRERR, "nonexistent physical address"},
    {SIGBUS, BUS_OBJERR, "object-specific hardware error"},
    {SIGCHLD, CLD_EXITED, "child has exited"},
    {SIGCHLD, CLD_KILLED, "child was killed"},
    {SIGCHLD, CLD_DUMPED, "child terminated abnormally"},
    {SIGCHLD, CLD_TRAPPED, "traced child has trapped"},
    {SIGCHLD, CLD_STOPPED, "child has stopped"},
    {SIGCHLD, CLD_CONTINUED, "stopped child has continued"},
    {SIGPOLL, POLL_IN, "data input available"},
    {SIGPOLL, POLL_OUT, "output buffers available"},
    {SIGPOLL, POLL_MSG, "input message available"},
    {SIGPOLL, POLL_ERR, "I/O error"},
    {SIGPOLL, POLL_PRI, "high priority input available"},
    {SIGPOLL, POLL_HUP, "device disconnected"},
};

} // namespace

namespace rk {

constinit const SignalRow kSignals[kSignalCount] = {
    {SIGHUP, true, "SIGHUP"},       {SIGINT, true, "SIGINT"},    {SIGKILL, true, "SIGKILL"},
    {SIGPIPE, false, "SIGPIPE"},    {SIGQUIT, true, "SIGQUIT"},  {SIGILL, true, "SIGILL"},
    {SIGABRT, true, "SIGABRT"},     {SIGFPE, true, "SIGFPE"},    {SIGALRM, false, "SIGALRM"},
    {SIGUSR1, false, "SIGUSR1"},    {SIGUSR2, false, "SIGUSR2"}, {SIGCHLD, false, "SIGCHLD"},
    {SIGSEGV, true, "SIGSEGV"},     {SIGCONT, false, "SIGCONT"}, {SIGSTOP, true, "SIGSTOP"},
    {SIGTSTP, false, "SIGTSTP"},    {SIGTTIN, false, "SIGTTIN"}, {SIGTTOU, false, "SIGTTOU"},
    {SIGBUS, true, "SIGBUS"},       {SIGPOLL, true, "SIGPOLL"},  {SIGPROF, true, "SIGPROF"},
    {SIGSYS, true, "SIGSYS"},       {SIGTRAP, false, "SIGTRAP"}, {SIGURG, false, "SIGURG"},
    {SIGVTALRM, true, "SIGVTALRM"}, {SIGXCPU, true, "SIGXCPU"},  {SIGXFSZ, true, "SIGXFSZ"},
    {SIGIOT, true, "SIGIOT"},       {SIGIO, true, "SIGIO"},      {SIGPWR, true, "SIGPWR"},
    {SIGWINCH, false, "SIGWINCH"},  {SIGTERM, true, "SIGTERM"},
};

const SignalRow *find_signal(int number) {
    const SignalRow *found = nullptr;
    for (const SignalRow &row : kSignals) {
        found = row.number == number ? &row : found;
    }
    return found;
}

const char *find_cause(int number, int code) {
    const char *text = "?";
    if (code == 0) { // kill and raise, whose row is never shown
        return text;
    }
    for (const Cause &cause : kCauses) {
        if (cause.code == code && (cause.signal == kAny || cause.signal == number)) {
            text = cause.text;
        }
    }
    return text;
}

} // namespace rk
