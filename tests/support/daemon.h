// Other processes to find and to signal, which like a router's daemons are nobody's children here.
#pragma once

#include <functional>
#include <optional>
#include <string>

#include <sys/types.h>

namespace lab {

// A process that waits for signals. It belongs to the sandbox's process 1, which reaps it at once
// when it ends; whatever it survives, it ends with its owner.
class Daemon {
  public:
    // `prepare` runs in it before the constructor returns.
    explicit Daemon(
        const std::string &name, const std::function<void()> &prepare = [] {});
    ~Daemon();
    Daemon(const Daemon &) = delete;
    Daemon &operator=(const Daemon &) = delete;

    pid_t pid() const { return pid_; }
    bool alive() const;

  private:
    pid_t pid_;
};

// Whether a check holds for somebody else, who may signal none of our processes. Null where there
// is nobody else: an ordinary user's sandbox has one user only.
std::optional<bool> holds_for_stranger(const std::function<bool()> &check);

} // namespace lab
