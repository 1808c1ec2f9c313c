/* A command-line tool over the WAN connections.
 *
 *     wanctl look-up INDEX NAME    ask the connection's own name servers through its interface
 *     wanctl ping INDEX HOST       ping a host through the connection
 *     wanctl table                 show all connections
 */
#include <routerkit/conversions.h>
#include <routerkit/files.h>
#include <routerkit/strings.h>
#include <routerkit/wan.h>

#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <syslog.h>

enum { TIMEOUT_MS = 2000, MOST_ADDRESSES = 8, VERBOSE = 1 };

static int look_up(unsigned index, const char *name) {
    uint32_t addresses[MOST_ADDRESSES];
    int count = wan_resolve_domain(index, name, addresses, MOST_ADDRESSES, TIMEOUT_MS);
    int i;

    if (count < 0) {
        perror(name);
        return 1;
    }
    for (i = 0; i < count; i++) {
        printf("%s\n", ipv4_itoa(addresses[i]));
    }
    return count == 0;
}

static int ping(unsigned index, const char *host) {
    int answered = wan_ping_test(index, host, TIMEOUT_MS, VERBOSE);

    printf("%s %s\n", host, answered == 1 ? "answers" : "does not answer");
    return answered != 1;
}

/* Pads by characters: a byte count would misplace what follows a text in UTF-8. */
static void cell(const char *text, int width) {
    const char *byte;

    for (byte = text; *byte != '\0'; byte++) {
        width -= ((unsigned char)*byte & 0xc0) != 0x80;
    }
    printf("%s%*s", text, width > 0 ? width : 1, "");
}

static void row(unsigned index) {
    const char *iface = wan_getConIface(index);
    unsigned seconds = wan_getAllSessionsTime(index);
    int prefix = 32;
    uint32_t address = wan_getIP(index, &prefix);

    cell(wan_readLink("active") == (int)index ? "*" : " ", 3);
    cell(strf("WAN%u", index), 6);
    cell(strf("%02d", wan_getStatus(index)), 4);
    cell(wan_getTextStatus(index), 24);
    cell(iface != NULL ? iface : "-", 7);
    cell(strf("%s/%d", ipv4_itoa(address), prefix), 20);
    cell(ipv4_itoa(wan_getGateway(index)), 17);
    printf("%u:%02u:%02u\n", seconds / 3600, seconds / 60 % 60, seconds % 60);
}

static int table(void) {
    unsigned index;

    puts(
        "   WAN   status                      iface  address             gateway          total time");
    for (index = 1; index <= 8; index++) {
        if (isFileExist(wan_folder(index))) {
            row(index);
        }
    }
    puts(wan_readLink("active") > 0 ? "   * main connection" : "   no main connection");
    return 0;
}

int main(int argc, char **argv) {
    openlog("wanctl", LOG_PERROR, LOG_USER);
    if (argc == 4 && strcmp(argv[1], "look-up") == 0) {
        return look_up((unsigned)atoi(argv[2]), argv[3]);
    }
    if (argc == 4 && strcmp(argv[1], "ping") == 0) {
        return ping((unsigned)atoi(argv[2]), argv[3]);
    }
    if (argc == 2 && strcmp(argv[1], "table") == 0) {
        return table();
    }
    fprintf(stderr, "usage: wanctl look-up INDEX NAME | ping INDEX HOST | table\n");
    return 2;
}
