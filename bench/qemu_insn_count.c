/*
 * qemu_insn_count: a TCG plugin for qemu-user that counts the guest
 * instructions a program executes, all its threads together, and writes the
 * total when the program exits:
 *
 *     qemu-arm -plugin libqemu_insn_count.so,out=FILE[,mode=inline|vcpu] PROGRAM ...
 *
 * FILE receives one line "insns N" (without out=, stderr does).
 *
 * Every translated block adds its instruction count each time it runs:
 *   inline  (default) an add that qemu emits into the translated code itself,
 *           into one 64-bit counter shared by all threads. Fastest, but the
 *           add is a plain load-add-store: two guest threads running at once
 *           on two host cores lose some of each other's adds.
 *   vcpu    a call per block into this plugin, adding to a counter of the
 *           running guest thread (qemu-user gives each guest thread its own
 *           vCPU index, reused only after that thread ended), so nothing is
 *           lost however many threads run; slower.
 *
 * Debian ships qemu-user without the plugin header, so the few calls used are
 * declared here as qemu 7.2 defines them (plugin API version 1).
 */
#include <inttypes.h>
#include <stddef.h>
#include <stdint.h>
#include <stdio.h>
#include <string.h>

/* ---- qemu's plugin interface, the part this plugin uses ---- */
typedef uint64_t qemu_plugin_id_t;
typedef struct qemu_info_t qemu_info_t;
struct qemu_plugin_tb;

enum qemu_plugin_cb_flags { QEMU_PLUGIN_CB_NO_REGS = 0 };
enum qemu_plugin_op { QEMU_PLUGIN_INLINE_ADD_U64 = 0 };

typedef void (*qemu_plugin_vcpu_tb_trans_cb_t)(qemu_plugin_id_t id, struct qemu_plugin_tb *tb);
typedef void (*qemu_plugin_vcpu_udata_cb_t)(unsigned int vcpu_index, void *userdata);
typedef void (*qemu_plugin_udata_cb_t)(qemu_plugin_id_t id, void *userdata);

void qemu_plugin_register_vcpu_tb_trans_cb(qemu_plugin_id_t id, qemu_plugin_vcpu_tb_trans_cb_t cb);
size_t qemu_plugin_tb_n_insns(const struct qemu_plugin_tb *tb);
void qemu_plugin_register_vcpu_tb_exec_inline(struct qemu_plugin_tb *tb, enum qemu_plugin_op op, void *ptr,
                                              uint64_t imm);
void qemu_plugin_register_vcpu_tb_exec_cb(struct qemu_plugin_tb *tb, qemu_plugin_vcpu_udata_cb_t cb,
                                          enum qemu_plugin_cb_flags flags, void *userdata);
void qemu_plugin_register_atexit_cb(qemu_plugin_id_t id, qemu_plugin_udata_cb_t cb, void *userdata);

#define QEMU_PLUGIN_EXPORT __attribute__((visibility("default")))
QEMU_PLUGIN_EXPORT int qemu_plugin_version = 1;
QEMU_PLUGIN_EXPORT int qemu_plugin_install(qemu_plugin_id_t id, const qemu_info_t *info, int argc,
                                           char **argv);
/* ---- end of qemu's interface ---- */

/* More live guest threads than this share counters (and may lose adds). */
#define SLOTS 256

/* One cache line each, so threads on different cores do not fight over one. */
struct slot {
    uint64_t insns;
    char pad[64 - sizeof(uint64_t)];
};

static uint64_t shared_insns;
static struct slot per_vcpu[SLOTS];
static int per_thread;
static char out_path[4096];

static void count_block(unsigned int vcpu_index, void *userdata) {
    per_vcpu[vcpu_index % SLOTS].insns += (uint64_t)(uintptr_t)userdata;
}

static void on_translate(qemu_plugin_id_t id, struct qemu_plugin_tb *tb) {
    (void)id;
    const size_t n = qemu_plugin_tb_n_insns(tb);
    if (per_thread) {
        qemu_plugin_register_vcpu_tb_exec_cb(tb, count_block, QEMU_PLUGIN_CB_NO_REGS, (void *)(uintptr_t)n);
    } else {
        qemu_plugin_register_vcpu_tb_exec_inline(tb, QEMU_PLUGIN_INLINE_ADD_U64, &shared_insns, n);
    }
}

static void write_total(qemu_plugin_id_t id, void *userdata) {
    (void)id;
    (void)userdata;
    uint64_t total = shared_insns;
    for (int i = 0; i < SLOTS; ++i) {
        total += per_vcpu[i].insns;
    }
    FILE *out = out_path[0] != '\0' ? fopen(out_path, "w") : NULL;
    fprintf(out != NULL ? out : stderr, "insns %" PRIu64 "\n", total);
    if (out != NULL) {
        fclose(out);
    }
}

QEMU_PLUGIN_EXPORT int qemu_plugin_install(qemu_plugin_id_t id, const qemu_info_t *info, int argc,
                                           char **argv) {
    (void)info;
    for (int i = 0; i < argc; ++i) {
        if (strncmp(argv[i], "out=", 4) == 0 && strlen(argv[i] + 4) < sizeof(out_path)) {
            strcpy(out_path, argv[i] + 4);
        } else if (strcmp(argv[i], "mode=vcpu") == 0) {
            per_thread = 1;
        } else if (strcmp(argv[i], "mode=inline") != 0) {
            fprintf(stderr, "qemu_insn_count: unknown argument '%s' (out=FILE, mode=inline|vcpu)\n", argv[i]);
            return -1;
        }
    }
    qemu_plugin_register_vcpu_tb_trans_cb(id, on_translate);
    qemu_plugin_register_atexit_cb(id, write_total, NULL);
    return 0;
}
