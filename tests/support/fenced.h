// Guarded memory, for the tests and the fuzz targets.
#pragma once

#include <cstddef>
#include <cstring>
#include <string>
#include <string_view>

#include <sys/mman.h>
#include <unistd.h>

namespace lab {

// A copy of some bytes that ends right before an unreadable page, so that any read past it faults.
class Fenced {
  public:
    explicit Fenced(std::string_view bytes) : size_(bytes.size()) {
        auto page = static_cast<size_t>(::sysconf(_SC_PAGESIZE));
        size_t readable_size = (size_ + page - 1) / page * page;
        pages_size_ = readable_size + page;
        pages_ = ::mmap(nullptr, pages_size_, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS,
                        -1, 0);
        char *start = static_cast<char *>(pages_);
        ::mprotect(start + readable_size, page, PROT_NONE);
        data_ = start + readable_size - size_;
        std::memcpy(data_, bytes.data(), size_);
    }
    ~Fenced() { ::munmap(pages_, pages_size_); }
    Fenced(const Fenced &) = delete;
    Fenced &operator=(const Fenced &) = delete;

    // With the NUL behind the text, or the first one in it.
    static Fenced terminated(const std::string &text) {
        return Fenced(std::string_view(text.c_str(), std::strlen(text.c_str()) + 1));
    }

    char *data() { return data_; }
    size_t size() const { return size_; }
    std::string_view view() const { return {data_, size_}; }

  private:
    char *data_;
    size_t size_;
    void *pages_;
    size_t pages_size_;
};

} // namespace lab
