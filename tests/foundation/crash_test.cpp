#include <routerkit/crash.h>

#include <csignal>
#include <cstring>
#include <filesystem>
#include <memory>
#include <thread>
#include <tuple>

#include <fcntl.h>
#include <sched.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <sys/syscall.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <syslog.h>
#include <termios.h>
#include <unistd.h>

#include "support/lab.h"

using testing::AllOf;
using testing::AnyOf;
using testing::Contains;
using testing::Each;
using testing::ElementsAre;
using testing::Ge;
using testing::HasSubstr;
using testing::SizeIs;
using testing::StartsWith;

namespace {

constexpr int kAtMost = 5000; // ms from a fatal signal to the end

const int kSharedFolder = lab::emulated() ? 0 : CLONE_FS; // the emulator refuses it

// A run of tests/hosts/crash_host.c, which has said that it is ready. Its folder is ours: where it
// goes, we go.
class CrashHost {
  public:
    // `input` becomes its standard input and its controlling terminal.
    explicit CrashHost(const char *what, const char *option = nullptr, int input = -1) {
        int output[2];
        EXPECT_EQ(::chdir("/") + ::pipe2(output, O_CLOEXEC), 0);
        pid_ = static_cast<pid_t>(::syscall(SYS_clone, kSharedFolder | SIGCHLD, 0, 0, 0, 0));
        if (pid_ == 0) {
            if (input >= 0) {
                ::setsid();
                ::dup2(input, STDIN_FILENO);
                ::ioctl(STDIN_FILENO, TIOCSCTTY, 0);
            }
            ::dup2(output[1], STDOUT_FILENO);
            ::dup2(output[1], STDERR_FILENO);
            ::execl(CRASH_HOST, "crash-host", what, option, nullptr);
            ::_exit(127);
        }
        ::close(output[1]);
        output_ = output[0];
        EXPECT_EQ(this->output(6), "ready\n") << what;
    }

    ~CrashHost() {
        ::close(output_);
        send(SIGKILL);
        status();
    }

    CrashHost(const CrashHost &) = delete;
    CrashHost &operator=(const CrashHost &) = delete;

    void send(int signal) const {
        if (status_ < 0) {
            ::kill(pid_, signal);
        }
    }

    bool runs() { return status_ < 0 && ::waitpid(pid_, &status_, WNOHANG) == 0; }

    // Its wait status once it has ended.
    int status() {
        if (status_ < 0) {
            ::waitpid(pid_, &status_, 0);
        }
        return status_;
    }

    // The next text that it has written.
    [[nodiscard]] std::string output(size_t most = 4096) const {
        std::string text(most, '\0');
        ssize_t length = ::read(output_, text.data(), text.size());
        return text.substr(0, length > 0 ? static_cast<size_t>(length) : 0);
    }

  private:
    pid_t pid_;
    int output_;
    int status_ = -1;
};

// In its last folder, too.
MATCHER(Aborted, "") {
    return WIFSIGNALED(arg) && WTERMSIG(arg) == SIGABRT &&
           (kSharedFolder == 0 || std::filesystem::current_path() == "/tmp");
}

// Waits for the next lines of a host that goes on.
std::vector<std::string> lines_from(CrashHost &host) {
    std::vector<std::string> log;
    EXPECT_TRUE(lab::wait_until([&] { return !(log = lab::take_log()).empty(); }));
    EXPECT_TRUE(host.runs());
    return log;
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
        {"divide", "debug: SIGFPE(integer divide by zero): 0x", "divide_by"},
        {"abort", "debug: SIGIOT(tkill or tgkill): 0x", "give_up"},
        {"overflow", "debug: SIGSEGV(", "fall_down"},
    };
    for (const Case &one : cases) {
        if (lab::emulated() && std::string_view(one.what) == "divide") {
            continue; // it reports a trap
        }
        SCOPED_TRACE(one.what);
        CrashHost host(one.what, "loud");
        EXPECT_THAT(host.status(), Aborted());
        auto log = lab::take_log();
        ASSERT_THAT(log, SizeIs(Ge(4)));
        EXPECT_THAT(log[0], StartsWith(one.first));
        EXPECT_EQ(log[1],
                  "debug: backtrace() returned " + std::to_string(log.size() - 2) + " addresses");
        EXPECT_THAT(log, Contains(HasSubstr(std::string("(") + one.function + "+0x")));
        EXPECT_THAT(log, Each(StartsWith("debug: ")));
        EXPECT_THAT(host.output(), HasSubstr("the-host: " + log[0].substr(7)))
            << "the host's own identity and options";
    }
}

// The usual backtrace needs the heap.
TEST_F(CrashReport, NamesThePlaceOverABrokenHeapToo) {
    CrashHost host("heap");
    EXPECT_THAT(host.status(), Aborted());
    auto log = lab::take_log();
    ASSERT_THAT(log, SizeIs(Ge(4)));
    EXPECT_EQ(log[0], "debug: SIGSEGV(address not mapped to object): 0x10");
    EXPECT_THAT(log, Contains(HasSubstr("(break_the_heap+0x")));
}

TEST_F(CrashReport, EndsTheProgramForTheFatalSignalsOnly) {
    auto first_line = [](int number) { // both of these have a second name, further down the table
        std::string name = number == SIGABRT   ? "IOT"
                           : number == SIGPOLL ? "IO"
                                               : sigabbrev_np(number);
        return StartsWith("debug: SIG" + name + "(?): 0x");
    };
    for (int number : {SIGHUP, SIGINT, SIGQUIT, SIGTERM, SIGABRT, SIGPOLL, SIGPROF, SIGVTALRM,
                       SIGXCPU, SIGXFSZ, SIGPWR, SIGSYS, SIGILL, SIGFPE, SIGSEGV, SIGBUS}) {
        CrashHost host("wait");
        host.send(number);
        EXPECT_THAT(host.status(), Aborted()) << number;
        EXPECT_THAT(lab::take_log(), Contains(first_line(number)));
    }
    CrashHost host("wait");
    for (int number : {SIGALRM, SIGUSR1, SIGUSR2, SIGCONT, SIGTSTP, SIGTTIN, SIGTTOU, SIGTRAP,
                       SIGURG, SIGWINCH}) {
        host.send(number);
        EXPECT_THAT(lines_from(host), ElementsAre(first_line(number)));
    }
}

TEST_F(CrashReport, ErrorsAndChildrenAreTheHosts) {
    const std::tuple<const char *, const char *, size_t> cases[] = {
        {"pipe", "debug: SIGPIPE(?): 0x", 1},
        {"child", "debug: SIGCHLD(child has exited): 0x", 1},
        {"errno", "debug: SIGUSR1(tkill or tgkill): 0x", 20}};
    for (auto [what, line, count] : cases) {
        CrashHost host(what);
        EXPECT_EQ(host.status(), 0) << what;
        EXPECT_THAT(lab::take_log(), AllOf(SizeIs(count), Each(StartsWith(line))));
    }
}

TEST_F(CrashReport, TheTerminalComesBack) {
    int master = ::posix_openpt(O_RDWR | O_NOCTTY | O_CLOEXEC);
    ASSERT_EQ(::grantpt(master) + ::unlockpt(master), 0);
    int slave = ::open(::ptsname(master), O_RDWR | O_NOCTTY | O_CLOEXEC);
    termios attributes;
    ASSERT_EQ(::tcgetattr(slave, &attributes), 0);
    attributes.c_lflag &= ~static_cast<tcflag_t>(ICANON | ECHO | IEXTEN);
    ::tcsetattr(slave, TCSANOW, &attributes);
    CrashHost host("wait", nullptr, slave);
    auto line = [](std::string name) {
        std::string start = "debug: " + name + "(Sent by the kernel): ";
        return AnyOf(start + "(nil)", start + "0"); // as glibc and as musl write a null pointer
    };

    EXPECT_EQ(::write(master, "\x1a", 1), 1); // Ctrl-Z
    EXPECT_THAT(lines_from(host), ElementsAre(line("SIGTSTP")));
    ::tcgetattr(slave, &attributes);
    EXPECT_EQ(attributes.c_lflag & (ICANON | ECHO | IEXTEN), 0U);

    EXPECT_EQ(::write(master, "\x03", 1), 1); // Ctrl-C
    EXPECT_THAT(host.status(), Aborted());
    ::tcgetattr(slave, &attributes);
    EXPECT_EQ(attributes.c_lflag & (ICANON | ECHO | IEXTEN | ISIG),
              tcflag_t{ICANON | ECHO | IEXTEN | ISIG});
    EXPECT_THAT(lab::take_log(), Contains(line("SIGINT")));
    ::close(slave);
    ::close(master);
}

// The host logs, reads the clock or uses the heap all the time, and gets signals most of the time.
TEST_F(CrashReport, AStormOfSignalsNeverHangsTheHost) {
    for (const char *what : {"log", "clocks", "blocks"}) {
        CrashHost host(what);
        std::vector<std::string> log;
        // A slow machine would have no time for anything but the signals.
        const auto calm = std::chrono::steady_clock::now() + std::chrono::seconds(2);
        auto finished = [&] {
            for (int i = 0; i < 10 && std::chrono::steady_clock::now() < calm; ++i) {
                host.send(SIGUSR1);
                host.send(SIGUSR2);
                std::this_thread::sleep_for(std::chrono::microseconds(200));
            }
            bool runs = host.runs();
            auto more = lab::take_log();
            log.insert(log.end(), more.begin(), more.end());
            return !runs;
        };
        EXPECT_TRUE(lab::wait_until(finished, 20000)) << what;
        EXPECT_THAT(log, Contains("notice: still here")) << what << ": its own log works";
    }
}

TEST_F(CrashReport, AFatalSignalEndsTheHostWhateverItInterrupts) {
#ifdef __SANITIZE_ADDRESS__
    GTEST_SKIP() << "the sanitizer's allocator has locks of its own that a signal may interrupt";
#endif
    std::vector<std::unique_ptr<CrashHost>> hosts;
    for (int i = 0; i < 8; ++i) {
        for (const char *what : {"log-on", "blocks-on", "clocks-on"}) {
            hosts.push_back(std::make_unique<CrashHost>(what));
        }
    }
    auto end_all = [&] {
        for (auto &host : hosts) {
            host->send(SIGTERM);
        }
        for (auto &host : hosts) {
            EXPECT_THAT(host->status(), Aborted());
        }
    };
    EXPECT_LT(lab::elapsed_ms(end_all), kAtMost);
    lab::take_log();
}

// As many messages as one sender may have on the way; false once none fits any more.
bool fill_log() {
    sockaddr_un address = {AF_UNIX, "/dev/log"};
    int fd = ::socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0);
    int sent = ::connect(fd, reinterpret_cast<sockaddr *>(&address), sizeof address);
    while (::send(fd, "<15>", 4, 0) > 0) {
        ++sent;
    }
    ::close(fd);
    return sent > 0;
}

// A log daemon that has stopped reading.
TEST_F(CrashReport, AFullLogDelaysNobodyForLong) {
    while (fill_log()) {
    }
    CrashHost fatal("wait");
    CrashHost host("errno"); // each of its 20 signals would take some time
    EXPECT_LT(lab::elapsed_ms([&] { EXPECT_EQ(host.status(), 0); }), 1000);
    fatal.send(SIGTERM);
    EXPECT_LT(lab::elapsed_ms([&] { EXPECT_THAT(fatal.status(), Aborted()); }), kAtMost);
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

int handled_signals() {
    constexpr int kFlags = SA_SIGINFO | SA_ONSTACK;
    int count = 0;
    for (int number = 1; number < 65; ++number) {
        struct sigaction now = {};
        ::sigaction(number, nullptr, &now);
        int flags = now.sa_flags & (kFlags | SA_RESTART | SA_NODEFER);
        count += flags == kFlags && sigisemptyset(&now.sa_mask) != 0 ? 1 : 0;
    }
    return count;
}

TEST(Handler, ExplainsWhyASignalCame) {
    struct Case {
        int number;
        int code;
        const char *line;
    };
    const Case cases[] = {
        {SIGUSR1, SI_KERNEL, "SIGUSR1(Sent by the kernel)"},
        {SIGUSR1, SI_QUEUE, "SIGUSR1(sigqueue)"},
        {SIGUSR1, SI_TIMER, "SIGUSR1(POSIX timer expired)"},
        {SIGUSR1, SI_MESGQ, "SIGUSR1(POSIX  message  queue  state  changed)"},
        {SIGUSR1, 99, "SIGUSR1(?)"},
        {SIGUSR2, CLD_EXITED, "SIGUSR2(?)"},
        {SIGCHLD, CLD_STOPPED, "SIGCHLD(child has stopped)"},
        {SIGCHLD, CLD_CONTINUED, "SIGCHLD(stopped child has continued)"},
        {40, SI_QUEUE, "Recieved SIGNAL: 40(sigqueue)"},
    };
    lab::take_log();
    int handled = lab::in_child([&] {
        int result = init_signals() + init_signals();
        struct sigaction ours;
        ::sigaction(SIGUSR1, nullptr, &ours);
        ::sigaction(40, &ours, nullptr); // no row
        for (const Case &one : cases) {
            siginfo_t info = {};
            info.si_signo = one.number;
            info.si_code = one.code;
            info.si_addr = reinterpret_cast<void *>(0x1234);
            ::syscall(SYS_rt_sigqueueinfo, ::getpid(), one.number, &info);
        }
        return result == 0 ? handled_signals() : 0;
    });
    EXPECT_EQ(handled, 29) << "32 rows less two double numbers, SIGKILL and SIGSTOP; and 40";
    auto log = lab::take_log();
    ASSERT_THAT(log, SizeIs(std::size(cases)));
    for (size_t i = 0; i < log.size(); ++i) {
        EXPECT_EQ(log[i], std::string("debug: ") + cases[i].line + ": 0x1234");
    }
}

} // namespace
