#include <routerkit/iptables.h>

#include <cerrno>
#include <cstring>

#include <syslog.h>

#include <routerkit/commands.h>
#include <routerkit/strings.h>

#include "support/errno.h"
#include "support/log.h"

using rk::fail;

namespace {

constexpr size_t kLongestText = 255; // of strf

// Runs a change with lcmdf, which logs a failure, and a check, 'C', with qcmdf: that a rule is not
// there is no failure. 0 if it is; -1 if that could not be found out.
int iptables_cmd(const char *table, const char *rule, char letter) {
    if (rule == nullptr) {
        return fail(EINVAL);
    }
    const char *option = " -t ";
    if (table == nullptr) {
        option = "";
        table = "";
    }
    auto *run = letter == 'C' ? qcmdf : lcmdf;
    return run("iptables%s%s -%c %s", option, table, letter, rule);
}

int check(const char *table, const char *rule) {
    return iptables_cmd(table, rule, 'C');
}

} // namespace

int iptables_add(const char *table, const char *rule) {
    return iptables_cmd(table, rule, 'A');
}

int iptables_del(const char *table, const char *rule) {
    return iptables_cmd(table, rule, 'D');
}

int iptables_flush(const char *table, const char *chain) {
    return iptables_cmd(table, chain, 'F');
}

int iptables_check(const char *table, const char *rule) {
    return check(table, rule) == 0 ? 1 : 0;
}

int iptables_smartadd(const char *table, const char *rule) {
    return check(table, rule) == 0 ? 0 : iptables_add(table, rule);
}

int iptables_smartdel(const char *table, const char *rule) {
    int status = check(table, rule);
    if (status != 0) {
        return status < 0 ? status : 0;
    }
    return iptables_del(table, rule);
}

int iptables_set(int on, const char *table, const char *rule) {
    return on != 0 ? iptables_smartadd(table, rule) : iptables_smartdel(table, rule);
}

int iptables_create_subchain(const char *table, const char *parent, const char *child) {
    if (parent == nullptr || child == nullptr) {
        errno = EINVAL;
    } else if (std::strlen(parent) + std::strlen(" -j ") + std::strlen(child) > kLongestText) {
        errno = ENOBUFS; // cut, the jump might lead to another chain
    } else {
        iptables_cmd(table, child, 'N');
        iptables_cmd(table, strf("%s -j %s", parent, child), 'A');
        return 0;
    }
    rk::log_at(LOG_ERR, "iptables_create_subchain: %m");
    return 0;
}
