/* A connection daemon: keeps the state of one WAN connection true.
 *
 *     connectiond INDEX HOST
 *
 * Tests the connection over and over by pinging HOST through it, with the connection's own name
 * servers. When HOST begins to answer, the connection is up: its session starts, and the main
 * connection is chosen anew. When HOST falls silent, or the daemon is told to end (SIGTERM), it is
 * down. The attribute files "con_iface", "gateway", "ip" and "resolv.conf" must be there.
 */
#include <routerkit/clocks.h>
#include <routerkit/wan.h>

#include <signal.h>
#include <stdio.h>
#include <stdlib.h>
#include <syslog.h>

enum { STATUS_DISCONNECTED = 1, STATUS_CONNECTED = 20, TEST_MS = 400, PAUSE_MS = 100, TRIES = 2 };

static volatile sig_atomic_t told_to_end;

static void end(int signal_number) {
    (void)signal_number;
    told_to_end = 1;
}

/* One lost packet is no failure. */
static int answers(unsigned index, const char *host) {
    int i;

    for (i = 0; i < TRIES && !told_to_end; i++) {
        if (wan_ping_test(index, host, TEST_MS, 0) == 1) {
            return 1;
        }
    }
    return 0;
}

/* A modem connection has the modem's flag and link; of the others the one at the bottom, which is
 * not PPPoE (type 3), speaks for the wired port. */
static void set_flags(unsigned index, int up) {
    if (wan_isModem(index)) {
        if (up) {
            wan_link((int)index, "modem");
        }
        wan_setModemFlag(up);
    } else if (wan_getType(index) != 3) {
        wan_setLinkFlag(up);
        wan_setWiredInetFlag(up);
    }
}

static void change(unsigned index, int up) {
    syslog(LOG_NOTICE, "WAN%u is %s", index, up ? "up" : "down");
    wan_updateIfStatus(index, up ? STATUS_CONNECTED : STATUS_DISCONNECTED);
    if (up) {
        wan_startSession(index);
    } else {
        wan_stopSession(index);
    }
    set_flags(index, up);
    wan_updateDefaultConnection();
}

int main(int argc, char **argv) {
    unsigned index;
    int up = 0;

    if (argc != 3) {
        fprintf(stderr, "usage: connectiond INDEX HOST\n");
        return 2;
    }
    index = (unsigned)atoi(argv[1]);
    openlog("connectiond", LOG_PERROR, LOG_DAEMON);
    signal(SIGTERM, end);
    while (!told_to_end) {
        int now = answers(index, argv[2]);

        if (now != up && !told_to_end) {
            up = now;
            change(index, up);
        }
        safe_msleep(PAUSE_MS);
    }
    if (up) {
        change(index, 0);
    }
    return 0;
}
