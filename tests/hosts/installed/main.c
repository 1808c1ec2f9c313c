/* A host program in C against the installed library: one call of each kind of export. */
#include <routerkit/routerkit.h>

#include <stdio.h>
#include <string.h>

int main(void) {
    uint32_t address = ipv4_atoi("192.168.0.1");
    const char *text = strf("%s %s", ipv4_itoa(address), _WAN_IP_FILE);

    WAN_STATUS_T = 20;
    if (strcmp(text, "192.168.0.1 ip") != 0 || WAN_STATUS_T != 20 ||
        isFileExist("/proc/self/exe") != 1) {
        printf("unexpected: %s\n", text);
        return 1;
    }
    return 0;
}
