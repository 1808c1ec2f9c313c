/* Packet-filter rules, by way of the iptables program.
 *
 * A rule is one text, as it follows the operation letter on the command line: "INPUT -p icmp -j
 * DROP". A table is the name for -t, or null for the default table. Both go through the command
 * splitter of <routerkit/commands.h> and not through a shell: quotes hold words together, a ">" in
 * a rule has to be quoted.
 *
 * Results are exit statuses (<routerkit/commands.h>): 0 when done. Changes run through lcmdf, so
 * that one that fails is logged at LOG_ERR with iptables' own first error line; checks run through
 * qcmdf and are silent. Those two find programs differently: changes search the caller's PATH,
 * checks look in /bin only. The system must therefore have an iptables in /bin (a link will do),
 * the same that the caller's PATH finds: without it every rule counts as absent, and
 * iptables_smartadd adds it once more each time.
 *
 * A command of more than 2047 characters or 31 words is refused with -1 and errno ENOBUFS or E2BIG,
 * and so is a null rule, chain or parent with EINVAL; nothing runs then.
 */
#ifndef ROUTERKIT_IPTABLES_H
#define ROUTERKIT_IPTABLES_H

#include <routerkit/export.h>

ROUTERKIT_BEGIN_DECLS

/* Appends a rule (-A). */
ROUTERKIT_API int iptables_add(const char *table, const char *rule);

/* Deletes a rule (-D), one copy of it. */
ROUTERKIT_API int iptables_del(const char *table, const char *rule);

/* Deletes all rules of a chain (-F). */
ROUTERKIT_API int iptables_flush(const char *table, const char *chain);

/* 1 if the rule is there (-C), else 0, also when the check itself cannot be run. */
ROUTERKIT_API int iptables_check(const char *table, const char *rule);

/* Appends a rule unless it is there; 0 if it was, else the result of iptables_add. */
ROUTERKIT_API int iptables_smartadd(const char *table, const char *rule);

/* Deletes a rule if it is there; 0 if it was not, else the result of iptables_del. -1 with errno,
 * and nothing is deleted, if the check was refused or could not be started. */
ROUTERKIT_API int iptables_smartdel(const char *table, const char *rule);

/* iptables_smartadd for on != 0, else iptables_smartdel. */
ROUTERKIT_API int iptables_set(int on, const char *table, const char *rule);

/* Makes a chain (-N) and appends a jump to it to the parent chain, also when the chain was there.
 * Always 0: failures show only in the log. The jump is formatted with strf and takes one of its
 * slots; for one that does not fit there nothing runs. */
ROUTERKIT_API int iptables_create_subchain(const char *table, const char *parent,
                                           const char *child);

ROUTERKIT_END_DECLS

#endif
