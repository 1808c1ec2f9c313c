/* A host program that has functions of its own under every name that the library exports, and loads
 * the library with dlopen: the library must go on calling its own. `hooks` belongs to both.
 *     own_names LIBRARY FOLDER */
#include <dlfcn.h>
#include <signal.h>
#include <stdint.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/prctl.h>
#include <unistd.h>

static void trap(const char *name) {
    printf("the host's own %s was called\n", name);
    exit(1);
}

#define OWN(name)                                                                                  \
    void name(void);                                                                               \
    void name(void) {                                                                              \
        trap(#name);                                                                               \
    }
#include "own_names.inc"

struct {
    const char *name;
    int (*handler)(int argc, char **argv, const char *outPath);
} hooks;

static void *library;
static int failures;

static void check(const char *what, int right) {
    if (!right) {
        printf("failed: %s\n", what);
        ++failures;
    }
}

/* The library's function of this name. */
#define THEIR(result, name, ...) ((result(*)(__VA_ARGS__))dlsym(library, #name))

static int shouts;

static int shout(int argc, char **argv, const char *outPath) {
    (void)argv, (void)outPath;
    return shouts += argc;
}

static void digests_and_conversions(void) {
    unsigned char digest[32];
    THEIR(int, md5, void *, const void *, size_t)(digest, "abc", 3);
    check("md5", memcmp(digest, "\x90\x01\x50\x98", 4) == 0);
    THEIR(void, sha256, const void *, size_t, void *)("abc", 3, digest);
    check("sha256", memcmp(digest, "\xba\x78\x16\xbf", 4) == 0);
    const char *text = THEIR(char *, mac_ntoa_3, const void *)("\1\2\3\4\5\6");
    check("mac_ntoa_3", text != NULL && strstr(text, "01") == text);
    text = THEIR(char *, ipv6_ntoa, const void *)("\x20\1\0\0\0\0\0\0\0\0\0\0\0\0\0\1");
    check("ipv6_ntoa", text != NULL && strncmp(text, "2001:", 5) == 0);
}

static void files(const char *folder) {
    char path[300];
    char copy[304];
    snprintf(path, sizeof path, "%s/number", folder);
    snprintf(copy, sizeof copy, "%s.two", path);
    THEIR(int, writeFmtToFile, const char *, const char *, ...)(path, "%d\n", 42);
    THEIR(int, copyFile, const char *, const char *)(copy, path);
    check("files", THEIR(long, getPid_fromFile, const char *)(copy) == 42);
    unlink(path);
    unlink(copy);
}

static pid_t sleeper(const char *name) {
    pid_t pid = fork();
    if (pid == 0) {
        prctl(PR_SET_NAME, name);
        alarm(20);
        pause();
        _exit(0);
    }
    return pid;
}

static void processes(void) {
    char name[16];
    snprintf(name, sizeof name, "own-%d", (int)getpid());
    signal(SIGCHLD, SIG_IGN); /* nothing of the sleeper stays */
    check("terminate", THEIR(int, terminate, pid_t, int, int)(sleeper(name), 500, 500) == 0);
    signal(SIGCHLD, SIG_DFL);
    check("cmdf", THEIR(int, cmdf, const char *, ...)("%s", "true") == 0);
    check("killall", THEIR(int, killall, const char *, int)(name, 0) == 0);
    char *words[] = {(char *)"shout", (char *)"twice", NULL};
    check("the host's hook", THEIR(int, DoCmd, char **, const char *)(words, NULL) == 2);
}

static void replies(void) {
    static const char *const kinds[] = {"string", "number", "object", "array", "boolean", "null"};
    void **parsers = (void **)dlsym(library, "parsers");
    for (int i = 0; i < 6; ++i) {
        char name[32];
        snprintf(name, sizeof name, "json_parse_%s", kinds[i]);
        check(name, parsers[i] == dlsym(library, name));
    }
    char text[] = "{\"a\": [\"b\", \"c\"]}";
    void *pool = malloc(1 << 20);
    void *root = THEIR(void *, json_parse, void *, char *, size_t)(pool, text, strlen(text));
    check("json_parse", THEIR(void *, json_getChildByKey, void *, const char *)(root, "a") != NULL);
    free(pool);
}

static void messages(void) {
    check("l2tp_StopCCN",
          THEIR(int, l2tp_StopCCN, uint32_t, int, int, int)(0x7f000001, 1, 2, 1) == 0);
}

int main(int argc, char **argv) {
    (void)argc;
    library = dlopen(argv[1], RTLD_NOW);
    if (library == NULL) {
        printf("%s\n", dlerror());
        return 1;
    }
    hooks.name = "shout";
    hooks.handler = shout;
    digests_and_conversions();
    files(argv[2]);
    processes();
    replies();
    messages();
    return failures != 0;
}
