#include "support/lab.h"

#include <array>
#include <chrono>
#include <csignal>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <thread>

#include <fcntl.h>
#include <sched.h>
#include <sys/mount.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/time.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <syslog.h>
#include <unistd.h>

namespace lab {
namespace {

namespace fs = std::filesystem;

int log_fd = -1;
volatile sig_atomic_t signals_seen = 0;

constexpr std::array kPriorities = {"emerg",   "alert",  "crit", "err",
                                    "warning", "notice", "info", "debug"};

// "<11>Nov 22 10:00:00 program: text" as the C library sends it, to "err: text".
std::string readable(std::string_view datagram) {
    size_t bracket = datagram.find('>');
    int priority = std::stoi(std::string(datagram.substr(1, bracket - 1))) & 7;
    size_t ident = bracket + 1 + std::strlen("Nov 22 10:00:00 ");
    size_t text = datagram.find(": ", ident) + 2;
    return std::string(kPriorities[static_cast<size_t>(priority)]) + ": " +
           std::string(datagram.substr(text));
}

// The process ids of our children, zombies included.
std::string children() {
    return get("/proc/self/task/" + std::to_string(::getpid()) + "/children");
}

} // namespace

void open_log() {
    sockaddr_un address = {AF_UNIX, "/dev/log"};
    log_fd = ::socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0);
    if (::bind(log_fd, reinterpret_cast<sockaddr *>(&address), sizeof address) != 0) {
        std::perror("bind /dev/log");
        std::_Exit(1);
    }
    ::chmod("/dev/log", 0666);
    ::openlog(nullptr, LOG_NDELAY, LOG_USER);
}

std::vector<std::string> take_log() {
    std::vector<std::string> lines;
    char datagram[8192];
    for (;;) {
        ssize_t length = ::recv(log_fd, datagram, sizeof datagram, 0);
        if (length < 0) {
            return lines;
        }
        std::string_view line(datagram, static_cast<size_t>(length));
        line.remove_suffix(line.ends_with('\n') ? 1 : 0); // musl's
        lines.push_back(readable(line));
    }
}

void put(const std::string &path, std::string_view content) {
    fs::create_directories(fs::path(path).parent_path());
    std::ofstream file(path, std::ios::binary);
    file << content << std::flush;
    ASSERT_TRUE(file.good()) << path;
}

std::string get(const std::string &path) {
    std::ifstream file(path, std::ios::binary);
    std::ostringstream content;
    content << file.rdbuf();
    return content.str();
}

bool exists(const std::string &path) {
    return fs::exists(fs::symlink_status(path));
}

std::string sh(const std::string &command) {
    FILE *pipe = ::popen((command + " 2>&1").c_str(), "re");
    std::string output;
    char block[4096];
    for (size_t count; (count = std::fread(block, 1, sizeof block, pipe)) != 0;) {
        output.append(block, count);
    }
    EXPECT_EQ(::pclose(pipe), 0) << command << "\n" << output;
    return output;
}

void put_program(const std::string &name, const std::string &script) {
    if (!fs::exists("/run/bin")) {
        fs::create_directory("/run/bin");
        ASSERT_EQ(::mount("/bin", "/run/bin", nullptr, MS_BIND, nullptr), 0);
        ASSERT_EQ(::mount("lab", "/bin", "tmpfs", 0, "mode=0755"), 0);
        for (const auto &entry : fs::directory_iterator("/run/bin")) {
            fs::create_symlink(entry.path(), "/bin" / entry.path().filename());
        }
    }
    fs::remove("/bin/" + name);
    put("/bin/" + name, script);
    fs::permissions("/bin/" + name, fs::perms(0755));
}

Printed printed(const std::function<void()> &call) {
    std::fflush(stdout);
    std::array<int, 2> kept;
    for (int fd : {1, 2}) {
        int file = ::open(("/tmp/printed." + std::to_string(fd)).c_str(),
                          O_RDWR | O_CREAT | O_TRUNC | O_APPEND | O_CLOEXEC, 0600);
        kept[static_cast<size_t>(fd - 1)] = ::fcntl(fd, F_DUPFD_CLOEXEC, 3);
        ::dup2(file, fd);
        ::close(file);
    }
    call();
    int seen = errno;
    std::fflush(stdout);
    for (int fd : {1, 2}) {
        ::dup2(kept[static_cast<size_t>(fd - 1)], fd);
        ::close(kept[static_cast<size_t>(fd - 1)]);
    }
    errno = seen;
    return {get("/tmp/printed.1"), get("/tmp/printed.2")};
}

bool emulated() {
    return std::getenv("LAB_EMULATED") != nullptr;
}

int in_child(const std::function<int()> &function) {
    pid_t pid = ::fork();
    if (pid == 0) {
        std::_Exit(function());
    }
    int status = 0;
    ::waitpid(pid, &status, 0);
    return WIFEXITED(status) ? WEXITSTATUS(status) : 100 + WTERMSIG(status);
}

size_t open_descriptors() {
    size_t count = 0;
    for ([[maybe_unused]] const auto &entry : fs::directory_iterator("/proc/self/fd")) {
        ++count;
    }
    return count - 1; // less the walk's own
}

Census::Census() : descriptors_(open_descriptors()), children_(children()) {}

Census::~Census() {
    EXPECT_EQ(open_descriptors(), descriptors_)
        << "a descriptor leaked:\n"
        << sh("ls -l /proc/" + std::to_string(::getpid()) + "/fd");
    EXPECT_EQ(children(), children_) << "a child is left";
}

SignalStorm::SignalStorm(int milliseconds) {
    signals_seen = 0;
    struct sigaction action = {};
    action.sa_handler = [](int) { signals_seen = signals_seen + 1; };
    ::sigaction(SIGALRM, &action, nullptr);
    itimerval interval = {{0, milliseconds * 1000}, {0, milliseconds * 1000}};
    ::setitimer(ITIMER_REAL, &interval, nullptr);
}

SignalStorm::~SignalStorm() {
    itimerval none = {};
    ::setitimer(ITIMER_REAL, &none, nullptr);
    ::signal(SIGALRM, SIG_DFL);
}

int SignalStorm::count() {
    return signals_seen;
}

int64_t elapsed_ms(const std::function<void()> &call) {
    auto start = std::chrono::steady_clock::now();
    call();
    return std::chrono::duration_cast<std::chrono::milliseconds>(std::chrono::steady_clock::now() -
                                                                 start)
        .count();
}

bool wait_until(const std::function<bool()> &ready, int milliseconds) {
    for (auto end = std::chrono::steady_clock::now() + std::chrono::milliseconds(milliseconds);;) {
        if (ready()) {
            return true;
        }
        if (std::chrono::steady_clock::now() >= end) {
            return false;
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(5));
    }
}

Background::Background(const std::string &command) : pid_(::fork()) {
    if (pid_ == 0) {
        ::execl("/bin/sh", "sh", "-c", ("exec " + command).c_str(), nullptr);
        std::_Exit(127);
    }
}

Background::~Background() {
    stop();
}

void Background::stop() {
    if (pid_ > 0) {
        ::kill(pid_, SIGKILL);
        ::waitpid(pid_, nullptr, 0);
    }
    pid_ = -1;
}

Host::Host(const std::string &name, const std::string &our_ifname, const std::string &our_address,
           const std::string &its_address)
    : name_(name), our_ifname_(our_ifname) {
    sh("ip netns add " + name_);
    sh("ip link add " + our_ifname + " type veth peer name up0 netns " + name_);
    sh("ip addr add " + our_address + " dev " + our_ifname + " && ip link set " + our_ifname +
       " up");
    sh(command("ip addr add " + its_address + " dev up0"));
    sh(command("ip link set up0 up") + " && " + command("ip link set lo up"));
}

Host::~Host() {
    // The kernel takes a namespace down in its own time; the cable, and with it the name of our
    // end, goes at once.
    sh("ip link del " + our_ifname_ + "; ip netns del " + name_);
}

std::string Host::command(const std::string &text) const {
    return "ip netns exec " + name_ + " " + text;
}

} // namespace lab
