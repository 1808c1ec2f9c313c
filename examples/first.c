/* The smallest useful host program: where does this router's Internet connection stand? */
#include <routerkit/conversions.h>
#include <routerkit/wan.h>

#include <stdio.h>

int main(void) {
    int index = wan_readLink("active");

    if (index < 1) {
        puts("no main connection");
        return 1;
    }
    printf("WAN%d: %s, gateway %s\n", index, wan_getTextStatus((unsigned)index),
           ipv4_itoa(wan_getGateway((unsigned)index)));
    return wan_ping_test((unsigned)index, "example.net", 3000, 0) == 1 ? 0 : 1;
}
