// A plugin of qemu-user that counts the instructions a program executes, and writes the number to
// the standard error when it ends.
#include <inttypes.h>
#include <stddef.h>
#include <stdint.h>
#include <stdio.h>

// What is used of QEMU's plugin interface, version 1; Debian has no package with its header.
struct qemu_plugin_tb;
typedef void tb_callback(uint64_t id, struct qemu_plugin_tb *block);
typedef void exit_callback(uint64_t id, void *data);
void qemu_plugin_register_vcpu_tb_trans_cb(uint64_t id, tb_callback *callback);
void qemu_plugin_register_vcpu_tb_exec_inline(struct qemu_plugin_tb *block, int operation,
                                              void *counter, uint64_t operand);
void qemu_plugin_register_atexit_cb(uint64_t id, exit_callback *callback, void *data);
size_t qemu_plugin_tb_n_insns(const struct qemu_plugin_tb *block);
enum { ADD_U64 = 0 };

extern int qemu_plugin_version;
int qemu_plugin_install(uint64_t id, const void *info, int argc, char **argv);

int qemu_plugin_version = 1;

static uint64_t executed;

static void block_translated(uint64_t id, struct qemu_plugin_tb *block) {
    (void)id;
    qemu_plugin_register_vcpu_tb_exec_inline(block, ADD_U64, &executed,
                                             qemu_plugin_tb_n_insns(block));
}

static void ended(uint64_t id, void *data) {
    (void)id;
    (void)data;
    fprintf(stderr, "%" PRIu64 "\n", executed);
}

int qemu_plugin_install(uint64_t id, const void *info, int argc, char **argv) {
    (void)info;
    (void)argc;
    (void)argv;
    qemu_plugin_register_vcpu_tb_trans_cb(id, block_translated);
    qemu_plugin_register_atexit_cb(id, ended, NULL);
    return 0;
}
