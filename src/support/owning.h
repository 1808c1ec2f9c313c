// Owners of what must be given back: descriptors, folders and heap blocks. All of them keep errno
// while they clean up, so that a failure can be returned straight from the middle of a function.
#pragma once

#include <cstdlib>

#include <dirent.h>
#include <unistd.h>

#include "support/errno.h"

namespace rk {

class UniqueFd {
  public:
    explicit UniqueFd(int fd) : fd_(fd) {}
    ~UniqueFd() { reset(); }
    UniqueFd(const UniqueFd &) = delete;
    UniqueFd &operator=(const UniqueFd &) = delete;

    explicit operator bool() const { return fd_ >= 0; }
    [[nodiscard]] int get() const { return fd_; }

    // Hands the descriptor over; the caller closes it.
    [[nodiscard]] int release() {
        int fd = fd_;
        fd_ = -1;
        return fd;
    }

    void reset() {
        if (fd_ >= 0) {
            ErrnoSaver keep;
            ::close(fd_);
            fd_ = -1;
        }
    }

  private:
    int fd_;
};

// A folder being listed, or null. The stream is a heap block of the C library's.
class UniqueDir {
  public:
    explicit UniqueDir(DIR *dir) : dir_(dir) {}
    ~UniqueDir() {
        if (dir_ != nullptr) {
            ErrnoSaver keep;
            ::closedir(dir_);
        }
    }
    UniqueDir(const UniqueDir &) = delete;
    UniqueDir &operator=(const UniqueDir &) = delete;

    explicit operator bool() const { return dir_ != nullptr; }
    [[nodiscard]] DIR *get() const { return dir_; }

  private:
    DIR *dir_;
};

// One function for blocks of all types.
[[gnu::noinline]] inline void free_block(void *block) {
    ErrnoSaver keep;
    std::free(block);
}

// A block from malloc, or null.
template <typename T>
class MallocPtr {
  public:
    explicit MallocPtr(T *block) : block_(block) {}
    ~MallocPtr() { free_block(block_); }
    MallocPtr(const MallocPtr &) = delete;
    MallocPtr &operator=(const MallocPtr &) = delete;

    explicit operator bool() const { return block_ != nullptr; }
    [[nodiscard]] T *get() const { return block_; }

    // Hands the block over; the caller frees it.
    [[nodiscard]] T *release() {
        T *block = block_;
        block_ = nullptr;
        return block;
    }

  private:
    T *block_;
};

} // namespace rk
