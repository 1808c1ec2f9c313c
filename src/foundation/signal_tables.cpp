#include "foundation/signal_tables.h"

#include <algorithm>
#include <array>
#include <csignal>
#include <string_view>

namespace {

constexpr uint8_t kAny = 0;

struct Cause {
    uint8_t signal;
    int code;
    std::string_view text;
};

// SI_USER, of kill and raise, has no row: its cause is never shown.
constexpr Cause kCauses[] = {
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

// What the library carries of that table, row after row: the signal, the code less the lowest one,
// the text and its NUL. Pointers would have to be relocated at every program's start, and rows of
// one length would all be as long as the longest.
constexpr int kLowestCode = SI_TKILL;
constexpr size_t kTextAt = 2;

static_assert(std::all_of(std::begin(kCauses), std::end(kCauses), [](const Cause &cause) {
    return cause.code >= kLowestCode && cause.code <= kLowestCode + UINT8_MAX;
}));

constexpr size_t packed_size() {
    size_t size = 0;
    for (const Cause &cause : kCauses) {
        size += kTextAt + cause.text.size() + 1;
    }
    return size;
}

constexpr std::array<char, packed_size()> kPackedCauses = [] {
    std::array<char, packed_size()> rows = {};
    size_t at = 0;
    for (const Cause &cause : kCauses) {
        rows[at] = static_cast<char>(cause.signal);
        rows[at + 1] = static_cast<char>(cause.code - kLowestCode);
        at += kTextAt;
        for (char character : cause.text) {
            rows[at++] = character;
        }
        ++at;
    }
    return rows;
}();

} // namespace

namespace rk {

constinit const SignalRow kSignals[kSignalCount] = {
    {SIGHUP, true, "HUP"},       {SIGINT, true, "INT"},    {SIGKILL, true, "KILL"},
    {SIGPIPE, false, "PIPE"},    {SIGQUIT, true, "QUIT"},  {SIGILL, true, "ILL"},
    {SIGABRT, true, "ABRT"},     {SIGFPE, true, "FPE"},    {SIGALRM, false, "ALRM"},
    {SIGUSR1, false, "USR1"},    {SIGUSR2, false, "USR2"}, {SIGCHLD, false, "CHLD"},
    {SIGSEGV, true, "SEGV"},     {SIGCONT, false, "CONT"}, {SIGSTOP, true, "STOP"},
    {SIGTSTP, false, "TSTP"},    {SIGTTIN, false, "TTIN"}, {SIGTTOU, false, "TTOU"},
    {SIGBUS, true, "BUS"},       {SIGPOLL, true, "POLL"},  {SIGPROF, true, "PROF"},
    {SIGSYS, true, "SYS"},       {SIGTRAP, false, "TRAP"}, {SIGURG, false, "URG"},
    {SIGVTALRM, true, "VTALRM"}, {SIGXCPU, true, "XCPU"},  {SIGXFSZ, true, "XFSZ"},
    {SIGIOT, true, "IOT"},       {SIGIO, true, "IO"},      {SIGPWR, true, "PWR"},
    {SIGWINCH, false, "WINCH"},  {SIGTERM, true, "TERM"},
};

const SignalRow *find_signal(int number) {
    const SignalRow *found = nullptr;
    for (const SignalRow &row : kSignals) {
        found = row.number == number ? &row : found;
    }
    return found;
}

const char *find_cause(int number, int code) {
    const char *row = kPackedCauses.data();
    while (row != kPackedCauses.data() + kPackedCauses.size()) {
        const char *text = row + kTextAt;
        bool is_signal = row[0] == kAny || row[0] == number;
        if (is_signal && static_cast<uint8_t>(row[1]) + kLowestCode == code) {
            return text;
        }
        row = text;
        while (*row != '\0') {
            ++row;
        }
        ++row;
    }
    return "?";
}

} // namespace rk
