#include <routerkit/crash.h>

#include <csignal>
#include <cstring>
#include <filesystem>
#include <memory>
#include <thread>

#include <fcntl.h>
#include <sys/ioctl.h>
#include <sys/ptrace.h>
#include <sys/socket.h>
#include <sys/syscall.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <syslog.h>
#include <termios.h>
#include <unistd.h>

#include "support/lab.h"

using testing::AllOf;
using testing::Contains;
using testing::ElementsAre;
using testing::Ge;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;
using testing::SizeIs;

namespace {

constexpr int kAtMost = 5000; // ms from a fatal signal to the end

// A run of tests/foundation/crash_host.c, which has said that it is ready.
enum Watch { kWatched, kUnwatched };

class CrashHost {
  public:
    // `input` becomes its standard input and its controlling terminal.
    explicit CrashHost(const char *what, Watch watch = kWatched, int input = -1) {
        int output[2];
        int gate[2];
        EXPECT_EQ(::pipe2(output, O_CLOEXEC) + ::pipe2(gate, O_CLOEXEC), 0);
        pid_ = ::fork();
        if (pid_ == 0) {
            ::close(gate[1]);
            (void)!::read(gate[0], gate, 1); // until the parent has closed its end
            run(what, watch, input, output[1]);
        }
        if (watch == kWatched) {
            EXPECT_EQ(::ptrace(PTRACE_SEIZE, pid_, 0, PTRACE_O_TRACEEXIT), 0);
        }
        for (int end : {gate[0], gate[1], output[1]}) {
            ::close(end);
        }
        output_ = output[0];
        char ready[6];
        EXPECT_EQ(::read(output_, ready, sizeof ready), 6) << what;
    }

    ~CrashHost() {
        ::close(output_);
        send(SIGKILL);
        status();
    }

    CrashHost(const CrashHost &) = delete;
    CrashHost &operator=(const CrashHost &) = delete;

    [[nodiscard]] pid_t pid() const { return pid_; }
    [[nodiscard]] const std::string &folder() const { return folder_; } // its last one
    [[nodiscard]] bool stopped() const { return stopped_; }
    void send(int signal) const {
        if (status_ < 0) {
            ::kill(pid_, signal);
        }
    }

    // Lets it run on; its wait status once it has ended.
    int status() {
        while (status_ < 0) {
            step(0);
        }
        return status_;
    }

    // Passes on what has happened to it so far; tells whether it runs still.
    bool runs() {
        while (status_ < 0 && step(WNOHANG)) {
        }
        return status_ < 0;
    }

    std::string output() {
        std::string text;
        char block[4096];
        for (ssize_t count; (count = ::read(output_, block, sizeof block)) > 0;) {
            text.append(block, static_cast<size_t>(count));
        }
        return text;
    }

  private:
    [[noreturn]] static void run(const char *what, Watch watch, int input, int output) {
        if (input >= 0) {
            ::setsid();
            ::dup2(input, STDIN_FILENO);
            ::ioctl(STDIN_FILENO, TIOCSCTTY, 0);
        }
        ::dup2(output, STDOUT_FILENO);
        ::dup2(output, STDERR_FILENO);
        ::execl(CRASH_HOST, "crash-host", what, watch == kWatched ? "loud" : nullptr, nullptr);
        std::_Exit(127);
    }

    bool step(int flags) {
        int status = 0;
        if (::waitpid(pid_, &status, flags) != pid_) {
            return false;
        }
        if (!WIFSTOPPED(status)) {
            status_ = status;
            return true;
        }
        int event = status >> 16;
        if (event == PTRACE_EVENT_EXIT) {
            folder_ = std::filesystem::read_symlink("/proc/" + std::to_string(pid_) + "/cwd");
        }
        stopped_ = stopped_ || (event == PTRACE_EVENT_STOP && WSTOPSIG(status) != SIGTRAP);
        ::ptrace(PTRACE_CONT, pid_, 0, event == 0 ? WSTOPSIG(status) : 0);
        return true;
    }

    pid_t pid_;
    int output_;
    int status_ = -1;
    bool stopped_ = false;
    std::string folder_;
};

MATCHER(Aborted, "") {
    return WIFSIGNALED(arg) && WTERMSIG(arg) == SIGABRT;
}

// The whole report of a crash: its first line, the count, and as many lines with the function.
void expect_report(const std::vector<std::string> &log, const std::string &first,
                   const std::string &function) {
    ASSERT_THAT(log, SizeIs(Ge(4)));
    EXPECT_EQ(log[0], first);
    EXPECT_EQ(log[1],
              "debug: backtrace() returned " + std::to_string(log.size() - 2) + " addresses");
    EXPECT_THAT(log, Contains(AllOf(HasSubstr("crash-host(" + function + "+0x"), HasSubstr("["))));
    EXPECT_THAT(log, Not(Contains(HasSubstr("err: "))));
}

class CrashReport : public testing::Test {
  protected:
    CrashReport() { ::syslog(LOG_DEBUG, "connected"), lab::take_log(); }

  private:
    lab::Census census_;
};

TEST_F(CrashReport, NamesTheCrashAndItsPlace) {
    struct Case {
        const char *what;
        const char *first;
        const char *function;
    };
    const Case cases[] = {
        {"null", "debug: SIGSEGV(address not mapped to object): 0x10", "write_to_nowhere"},
        {"divide", "debug: SIGFPE(integer divide by zero): 0x", "divide_by_zero"},
        {"abort", "debug: SIGIOT(tkill or tgkill): 0x", "give_up"},
        {"overflow", "debug: SIGSEGV(address not mapped to object): 0x", "fall_down"},
    };
    for (const Case &one : cases) {
        SCOPED_TRACE(one.what);
        CrashHost host(one.what);
        EXPECT_THAT(host.status(), Aborted());
        EXPECT_EQ(host.folder(), "/tmp");
        auto log = lab::take_log();
        ASSERT_THAT(log, Not(IsEmpty()));
        EXPECT_EQ(log[0].rfind(one.first, 0), 0U) << log[0];
        expect_report(log, log[0], one.function);
        EXPECT_THAT(host.output(), HasSubstr("the-host: " + log[0].substr(7)))
            << "the host's own identity and options";
    }
}

// The usual backtrace needs the heap.
TEST_F(CrashReport, NamesThePlaceOverABrokenHeapToo) {
    CrashHost host("heap", kUnwatched);
    EXPECT_THAT(host.status(), Aborted());
    auto log = lab::take_log();
    ASSERT_THAT(log, SizeIs(Ge(4)));
    EXPECT_EQ(log[0], "debug: SIGSEGV(address not mapped to object): 0x10");
    EXPECT_THAT(log, Contains(HasSubstr("crash-host(break_the_heap+0x")));
}

TEST_F(CrashReport, EndsTheProgramForEachFatalSignal) {
    const std::pair<int, const char *> signals[] = {
        {SIGHUP, "SIGHUP"},   {SIGINT, "SIGINT"},   {SIGQUIT, "SIGQUIT"}, {SIGTERM, "SIGTERM"},
        {SIGABRT, "SIGIOT"},  {SIGPOLL, "SIGIO"},   {SIGPROF, "SIGPROF"}, {SIGVTALRM, "SIGVTALRM"},
        {SIGXCPU, "SIGXCPU"}, {SIGXFSZ, "SIGXFSZ"}, {SIGPWR, "SIGPWR"},   {SIGSYS, "SIGSYS"},
        {SIGILL, "SIGILL"},   {SIGFPE, "SIGFPE"},   {SIGSEGV, "SIGSEGV"}, {SIGBUS, "SIGBUS"}};
    for (auto [number, name] : signals) {
        CrashHost host("wait");
        host.send(number);
        EXPECT_THAT(host.status(), Aborted()) << name;
        EXPECT_EQ(host.folder(), "/tmp");
        auto log = lab::take_log();
        ASSERT_THAT(log, Not(IsEmpty())) << name;
        EXPECT_EQ(log[0].rfind(std::string("debug: ") + name + "(?): 0x", 0), 0U) << log[0];
    }
}

TEST_F(CrashReport, OtherSignalsAreLoggedAndTheProgramGoesOn) {
    for (auto [number, name] : {std::pair(SIGALRM, "SIGALRM"), std::pair(SIGUSR1, "SIGUSR1"),
                                std::pair(SIGUSR2, "SIGUSR2"), std::pair(SIGCONT, "SIGCONT"),
                                std::pair(SIGTSTP, "SIGTSTP"), std::pair(SIGTTIN, "SIGTTIN"),
                                std::pair(SIGTTOU, "SIGTTOU"), std::pair(SIGTRAP, "SIGTRAP"),
                                std::pair(SIGURG, "SIGURG"), std::pair(SIGWINCH, "SIGWINCH")}) {
        CrashHost host("wait");
        host.send(number);
        std::vector<std::string> log;
        EXPECT_TRUE(lab::wait_until([&] {
            bool runs = host.runs();
            log = lab::take_log();
            return !runs || !log.empty();
        }));
        ASSERT_THAT(log, SizeIs(1)) << name;
        EXPECT_EQ(log[0].rfind(std::string("debug: ") + name + "(?): 0x", 0), 0U) << log[0];
        EXPECT_TRUE(host.runs());
        EXPECT_FALSE(host.stopped()) << name;
    }
}

TEST_F(CrashReport, ABrokenPipeIsAnErrorAndChildrenAreTheHosts) {
    CrashHost writer("pipe", kUnwatched);
    EXPECT_EQ(writer.status(), 0) << "the write fails with EPIPE";
    EXPECT_THAT(lab::take_log(), ElementsAre(HasSubstr("debug: SIGPIPE(?): 0x")));
    CrashHost parent("child", kUnwatched);
    EXPECT_EQ(parent.status(), 0) << "the exit status is there to be read";
    EXPECT_THAT(lab::take_log(), ElementsAre(HasSubstr("debug: SIGCHLD(child has exited): 0x")));
    CrashHost careful("errno", kUnwatched);
    EXPECT_EQ(careful.status(), 0) << "errno is kept";
    EXPECT_THAT(lab::take_log(), SizeIs(20));
}

TEST_F(CrashReport, TheTerminalComesBack) {
    int master = ::posix_openpt(O_RDWR | O_NOCTTY | O_CLOEXEC);
    ASSERT_EQ(::grantpt(master) + ::unlockpt(master), 0);
    int slave = ::open(::ptsname(master), O_RDWR | O_NOCTTY | O_CLOEXEC);
    termios attributes;
    ASSERT_EQ(::tcgetattr(slave, &attributes), 0);
    attributes.c_lflag &= ~static_cast<tcflag_t>(ICANON | ECHO | IEXTEN);
    ::tcsetattr(slave, TCSANOW, &attributes);
    CrashHost host("wait", kWatched, slave);

    EXPECT_EQ(::write(master, "\x1a", 1), 1); // Ctrl-Z
    std::vector<std::string> log;
    EXPECT_TRUE(lab::wait_until([&] { return host.runs() && !(log = lab::take_log()).empty(); }));
    EXPECT_THAT(log, ElementsAre("debug: SIGTSTP(Sent by the kernel): (nil)"));
    EXPECT_FALSE(host.stopped());
    ::tcgetattr(slave, &attributes);
    EXPECT_EQ(attributes.c_lflag & (ICANON | ECHO | IEXTEN), 0U);

    EXPECT_EQ(::write(master, "\x03", 1), 1); // Ctrl-C
    EXPECT_THAT(host.status(), Aborted());
    ::tcgetattr(slave, &attributes);
    EXPECT_EQ(attributes.c_lflag & (ICANON | ECHO | IEXTEN | ISIG),
              tcflag_t{ICANON | ECHO | IEXTEN | ISIG});
    EXPECT_THAT(lab::take_log(), Contains("debug: SIGINT(Sent by the kernel): (nil)"));
    ::close(slave);
    ::close(master);
}

// The host logs, reads the clock or uses the heap all the time, and gets signals all the time.
TEST_F(CrashReport, AStormOfSignalsNeverHangsTheHost) {
    for (const char *what : {"log", "clocks", "blocks"}) {
        SCOPED_TRACE(what);
        CrashHost host(what, kUnwatched);
        bool said_so = false;
        auto finished = [&] {
            for (int i = 0; i < 10; ++i) {
                host.send(SIGUSR1);
                host.send(SIGUSR2);
                std::this_thread::sleep_for(std::chrono::microseconds(200));
            }
            for (const std::string &line : lab::take_log()) {
                said_so = said_so || line == "info: line 19999" || line == "notice: still here";
            }
            return !host.runs();
        };
        EXPECT_TRUE(lab::wait_until(finished, 10000));
        finished();
        EXPECT_TRUE(said_so) << "its own log works to the end";
    }
}

TEST_F(CrashReport, AFatalSignalEndsTheHostWhateverItInterrupts) {
    std::vector<std::unique_ptr<CrashHost>> hosts;
    for (int i = 0; i < 8; ++i) {
        for (const char *what : {"log-on", "blocks-on", "clocks-on"}) {
            hosts.push_back(std::make_unique<CrashHost>(what, kUnwatched));
        }
    }
    EXPECT_LT(lab::elapsed_ms([&] {
                  for (auto &host : hosts) {
                      host->send(SIGTERM);
                  }
                  for (auto &host : hosts) {
                      EXPECT_THAT(host->status(), Aborted());
                  }
              }),
              kAtMost);
    lab::take_log();
}

// One sender's messages; false once none fits any more.
bool fill_log() {
    sockaddr_un address = {AF_UNIX, "/dev/log"};
    int fd = ::socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0);
    bool sent = false;
    while (::sendto(fd, "<15>", 4, 0, reinterpret_cast<sockaddr *>(&address), sizeof address) > 0) {
        sent = true;
    }
    ::close(fd);
    return sent;
}

// A log daemon that has stopped reading.
TEST_F(CrashReport, AFullLogDelaysNobodyForLong) {
    while (fill_log()) {
    }
    CrashHost fatal("wait", kUnwatched);
    CrashHost host("time", kUnwatched);
    fatal.send(SIGTERM);
    EXPECT_LT(lab::elapsed_ms([&] { EXPECT_THAT(fatal.status(), Aborted()); }), kAtMost);
    EXPECT_EQ(host.status(), 0);
    EXPECT_LT(std::stoi(host.output()), 1000);
    lab::take_log();
}

// --- Within this process ---

TEST(DumpStack, LogsTheCallersOnDemand) {
    lab::take_log();
    dump_stack();
    auto log = lab::take_log();
    ASSERT_THAT(log, SizeIs(Ge(3)));
    EXPECT_EQ(log[0],
              "debug: backtrace() returned " + std::to_string(log.size() - 1) + " addresses");
    EXPECT_THAT(log[1], AllOf(HasSubstr("debug: "), HasSubstr("[0x")));
}

// The handler, in this process, for as long as this lives.
class Installed {
  public:
    Installed() {
        for (int number = 1; number < 65; ++number) {
            ::sigaction(number, nullptr, &before_[number]);
        }
        EXPECT_EQ(init_signals(), 0);
    }
    ~Installed() {
        for (int number = 1; number < 65; ++number) {
            ::sigaction(number, &before_[number], nullptr);
        }
    }
    Installed(const Installed &) = delete;
    Installed &operator=(const Installed &) = delete;

  private:
    struct sigaction before_[65];
};

int handled_signals() {
    int count = 0;
    for (int number = 1; number < 65; ++number) {
        struct sigaction now;
        if (::sigaction(number, nullptr, &now) != 0 || (now.sa_flags & SA_SIGINFO) == 0) {
            continue;
        }
        sigset_t none;
        sigemptyset(&none);
        EXPECT_EQ(now.sa_flags & (SA_ONSTACK | SA_RESTART | SA_NODEFER), SA_ONSTACK) << number;
        EXPECT_EQ(std::memcmp(&now.sa_mask, &none, 8), 0) << number;
        ++count;
    }
    return count;
}

TEST(InitSignals, InstallsOneHandlerForTheWholeTable) {
    Installed installed;
    EXPECT_EQ(init_signals(), 0) << "again";
    EXPECT_EQ(handled_signals(), 28) << "32 rows less two double numbers, SIGKILL and SIGSTOP";
}

TEST(Handler, ExplainsWhyASignalCame) {
    struct Case {
        int number;
        int code;
        const char *line;
    };
    const Case cases[] = {
        {SIGUSR1, SI_USER, "debug: SIGUSR1(?): 0x1234"},
        {SIGUSR1, SI_KERNEL, "debug: SIGUSR1(Sent by the kernel): 0x1234"},
        {SIGUSR1, SI_QUEUE, "debug: SIGUSR1(sigqueue): 0x1234"},
        {SIGUSR1, SI_TIMER, "debug: SIGUSR1(POSIX timer expired): 0x1234"},
        {SIGUSR1, SI_MESGQ, "debug: SIGUSR1(POSIX  message  queue  state  changed): 0x1234"},
        {SIGUSR1, SI_TKILL, "debug: SIGUSR1(tkill or tgkill): 0x1234"},
        {SIGUSR1, 99, "debug: SIGUSR1(?): 0x1234"},
        {SIGUSR2, CLD_EXITED, "debug: SIGUSR2(?): 0x1234"},
        {SIGCHLD, CLD_STOPPED, "debug: SIGCHLD(child has stopped): 0x1234"},
        {SIGCHLD, CLD_CONTINUED, "debug: SIGCHLD(stopped child has continued): 0x1234"},
        {40, SI_QUEUE, "debug: Recieved SIGNAL: 40(sigqueue): 0x1234"},
    };
    Installed installed;
    struct sigaction ours;
    ::sigaction(SIGUSR1, nullptr, &ours);
    ::sigaction(40, &ours, nullptr); // no row
    int handled = handled_signals();
    lab::take_log();
    for (const Case &one : cases) {
        siginfo_t info = {};
        info.si_signo = one.number;
        info.si_code = one.code;
        info.si_addr = reinterpret_cast<void *>(0x1234);
        ASSERT_EQ(::syscall(SYS_rt_sigqueueinfo, ::getpid(), one.number, &info), 0);
        EXPECT_THAT(lab::take_log(), ElementsAre(one.line));
    }
    EXPECT_EQ(handled_signals(), handled) << "SIGRTMAX was only borrowed";
}

} // namespace
