#include "support/sandbox.h"

#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

#include <fcntl.h>
#include <net/if.h>
#include <sched.h>
#include <sys/ioctl.h>
#include <sys/mount.h>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

namespace lab {
namespace {

namespace fs = std::filesystem;

void require(bool done, const char *step) {
    if (!done) {
        std::fprintf(
            stderr,
            "sandbox: cannot %s: %s\n"
            "These programs run in private mount, network and process namespaces: run them "
            "as root, or where unprivileged user namespaces are allowed.\n",
            step, std::strerror(errno));
        std::exit(1);
    }
}

void write_text(const char *path, const std::string &text) {
    std::ofstream file(path);
    file << text << std::flush;
    require(file.good(), path);
}

// Something of the old tree that must stay reachable at its place in the new one.
struct Kept {
    fs::path path;
    int fd;
};

Kept keep(const fs::path &path) {
    return {path, ::open(path.c_str(), O_PATH | O_CLOEXEC)};
}

void put_back(const Kept &kept) {
    if (kept.fd < 0) {
        return; // the machine has no such device
    }
    fs::create_directories(kept.path.parent_path());
    std::string source = "/proc/self/fd/" + std::to_string(kept.fd);
    if (fs::is_directory(source)) {
        fs::create_directories(kept.path);
    } else {
        std::ofstream(kept.path).flush();
    }
    require(::mount(source.c_str(), kept.path.c_str(), nullptr, MS_BIND | MS_REC, nullptr) == 0,
            "bind what the tests need into the sandbox");
    ::close(kept.fd);
}

void mount_private_folders() {
    std::vector<Kept> kept;
    for (const char *device : {"null", "zero", "full", "random", "urandom", "tty", "net/tun"}) {
        kept.push_back(keep(fs::path("/dev") / device));
    }
    // The checkout may itself be under a folder that is about to be covered.
    kept.push_back(keep(ROUTERKIT_SOURCE_DIR));
    kept.push_back(keep(ROUTERKIT_BINARY_DIR));
    require(::mount("none", "/", nullptr, MS_REC | MS_PRIVATE, nullptr) == 0, "detach the mounts");
    for (const char *folder : {"/var", "/tmp", "/run", "/dev"}) {
        require(::mount("lab", folder, "tmpfs", 0, "mode=0755") == 0, "mount private folders");
    }
    for (const Kept &one : kept) {
        put_back(one);
    }
    fs::create_directories("/dev/pts");
    fs::create_directories("/dev/shm");
    require(::mount("lab", "/dev/pts", "devpts", 0, "newinstance,ptmxmode=0666") == 0,
            "mount a private /dev/pts");
    fs::create_symlink("pts/ptmx", "/dev/ptmx");
    fs::create_symlink("/proc/self/fd", "/dev/fd");
    require(::mount("lab", "/proc", "proc", 0, nullptr) == 0, "mount a private /proc");
    require(::mount("lab", "/sys", "sysfs", 0, nullptr) == 0, "mount a private /sys");
}

void bring_loopback_up() {
    ifreq request = {};
    std::strcpy(request.ifr_name, "lo");
    request.ifr_flags = IFF_UP;
    int fd = ::socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    require(::ioctl(fd, SIOCSIFFLAGS, &request) == 0, "bring the private loopback up");
    ::close(fd);
}

// A datagram socket queues 10 messages by default: a test that logs more before it looks would
// hang.
void let_log_lines_queue() {
    write_text("/proc/sys/net/unix/max_dgram_qlen", "1000");
}

// Root inside, the calling user outside.
void map_user(uid_t uid, gid_t gid) {
    write_text("/proc/self/setgroups", "deny");
    write_text("/proc/self/uid_map", "0 " + std::to_string(uid) + " 1");
    write_text("/proc/self/gid_map", "0 " + std::to_string(gid) + " 1");
}

[[noreturn]] void exit_like(int status) {
    if (WIFSIGNALED(status)) {
        std::fprintf(stderr, "sandbox: killed by signal %d\n", WTERMSIG(status));
        std::_Exit(128 + WTERMSIG(status));
    }
    std::_Exit(WEXITSTATUS(status));
}

// Returns in the child; the parent reaps whatever ends until that child does, then exits like it.
void continue_in_child() {
    pid_t child = ::fork();
    require(child >= 0, "fork");
    if (child == 0) {
        ::prctl(PR_SET_PDEATHSIG, SIGKILL);
        return;
    }
    for (;;) {
        int status = 0;
        pid_t ended = ::waitpid(-1, &status, 0);
        if (ended == child) {
            exit_like(status);
        }
        if (ended < 0 && errno != EINTR) {
            std::_Exit(1);
        }
    }
}

} // namespace

void enter_sandbox() {
    uid_t uid = ::getuid();
    gid_t gid = ::getgid();
    int worlds = CLONE_NEWNS | CLONE_NEWNET | CLONE_NEWPID | CLONE_NEWIPC | CLONE_NEWUTS;
    require(::unshare(uid == 0 ? worlds : worlds | CLONE_NEWUSER) == 0, "make namespaces");
    if (uid != 0) {
        map_user(uid, gid);
    }
    continue_in_child(); // from here on process 1 of the new process tree
    mount_private_folders();
    bring_loopback_up();
    let_log_lines_queue();
    continue_in_child(); // an ordinary process: process 1 ignores signals and inherits orphans
}

} // namespace lab
