#include <routerkit/wan.h>

#include <cstdlib>

#include <unistd.h>

#include "support/chars.h"
#include "support/errno.h"
#include "wan/wan_file.h"

namespace {

constexpr int kTr069 = 255;

class LinkPath {
  public:
    explicit LinkPath(const char *name) { path_.append(rk::kWanRoot).append(name); }

    [[nodiscard]] bool fits() const { return !path_.cut(); }
    [[nodiscard]] const char *c_str() const { return path_.c_str(); }

  private:
    rk::FormatBuffer path_;
};

} // namespace

int wan_link(int index, const char *name) {
    LinkPath link(name);
    if (!link.fits()) {
        return rk::fail(ENOBUFS);
    }
    ::unlink(link.c_str());
    if (index < 0) {
        return 0;
    }
    rk::TextBuffer<16> number;
    const char *target = index == 0 ? "default" : number.append_decimal(index).c_str();
    return ::symlink(target, link.c_str());
}

int wan_readLink(const char *name) {
    LinkPath link(name);
    if (!link.fits()) {
        return rk::fail(ENOBUFS);
    }
    rk::Chars<128> target;
    ssize_t length = ::readlink(link.c_str(), target, sizeof target - 1);
    if (length < 0) {
        return -1;
    }
    target[length] = '\0';
    return std::atoi(target);
}

int wan_getDefault() {
    return wan_readLink("default");
}

int wan_getModemIndex() {
    return wan_readLink("modem");
}

int wan_isDefault(int index) {
    return index == wan_getDefault() ? 1 : 0;
}

int wan_resolve(int index) {
    int resolved = index == kTr069 ? wan_readLink("tr069") : index;
    return resolved == 0 ? wan_getDefault() : resolved;
}
