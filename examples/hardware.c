/* A command-line tool over the router's hardware.
 *
 *     hardware link                        the WAN port's link, as the switch driver sees it
 *     hardware get INTERFACE NAME          a text setting of a wireless interface
 *     hardware set INTERFACE NAME TEXT     INTERFACE: 0x00 is wlan0, 0x10 wlan0-va0, ...
 *     hardware write PARTITION IMAGE       check a firmware image and write it to the flash
 *     hardware compare PARTITION IMAGE     tell whether the flash holds it
 *
 * On a PC the simulator (sim/README.md) stands in for the hardware.
 */
#include <routerkit/files.h>
#include <routerkit/mtd.h>
#include <routerkit/wan.h>
#include <routerkit/wireless.h>

#include <stdio.h>
#include <stdlib.h>
#include <string.h>

enum { HEADER = 16, LENGTH_AT = 12, LONGEST_TEXT = 64 };

static int link_state(void) {
    puts(wan_getLinkStatus() ? "up" : "down");
    return 0;
}

static int get(int interface_number, const char *name) {
    char text[LONGEST_TEXT];

    if (wlio_get_mib_str_n(interface_number, name, text, sizeof text) < 0) {
        perror(name);
        return 1;
    }
    puts(text);
    return 0;
}

static int set(int interface_number, const char *name, const char *text) {
    if (wlio_set_mib_str(interface_number, name, text) != 0) {
        perror(name);
        return 1;
    }
    return 0;
}

static size_t payload_length(const char *image) {
    const unsigned char *field = (const unsigned char *)image + LENGTH_AT;

    return (size_t)field[0] << 24 | (size_t)field[1] << 16 | (size_t)field[2] << 8 | field[3];
}

/* The library trusts an image's header: that the file is as long as it says is for us to see. */
static char *load_image(const char *path) {
    size_t length;
    char *image = loadFile(path, &length);

    if (image != NULL && length >= HEADER && length - HEADER >= payload_length(image) &&
        is_mtd_image(image)) {
        return image;
    }
    free(image);
    return NULL;
}

static int write_image(const char *partition, const char *image) {
    if (mtd_write(partition, image) != 0) {
        perror(partition);
        return 1;
    }
    puts("written");
    return 0;
}

static int compare(const char *partition, const char *image) {
    int differs = mtd_same(partition, image);

    if (differs < 0) {
        perror(partition);
        return 1;
    }
    puts(differs ? "different" : "the same");
    return differs;
}

static int with_image(int (*action)(const char *, const char *), const char *partition,
                      const char *path) {
    char *image = load_image(path);
    int result;

    if (image == NULL) {
        puts("not an image");
        return 1;
    }
    result = action(partition, image);
    free(image);
    return result;
}

int main(int argc, char **argv) {
    const char *command = argc > 1 ? argv[1] : "";

    if (argc == 2 && strcmp(command, "link") == 0) {
        return link_state();
    }
    if (argc == 4 && strcmp(command, "get") == 0) {
        return get((int)strtol(argv[2], NULL, 0), argv[3]);
    }
    if (argc == 5 && strcmp(command, "set") == 0) {
        return set((int)strtol(argv[2], NULL, 0), argv[3], argv[4]);
    }
    if (argc == 4 && strcmp(command, "write") == 0) {
        return with_image(write_image, argv[2], argv[3]);
    }
    if (argc == 4 && strcmp(command, "compare") == 0) {
        return with_image(compare, argv[2], argv[3]);
    }
    fprintf(stderr, "usage: hardware link | get INTERFACE NAME | set INTERFACE NAME TEXT |\n"
                    "       write PARTITION IMAGE | compare PARTITION IMAGE\n");
    return 2;
}
