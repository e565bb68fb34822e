/* A plug-in of the user-mode emulator: prints how many of the guest's instructions lie between two marks of perf.cpp.
 * A mark is a system call whose first argument is PERF_MARK; the second is 0 at the begin and 1 at the end. The whole
 * block that holds the end's system call counts, 5 instructions or so. */
#include <inttypes.h>
#include <stddef.h>
#include <stdio.h>

#define PERF_MARK 0x62656E63u
#define EXPORT    __attribute__((visibility("default")))

/* What the emulator offers its plug-ins; version 1 of that interface, for which Debian packages no header. */
struct qemu_plugin_tb;
typedef uint64_t plugin_id;
typedef void (*translated_cb)(plugin_id id, struct qemu_plugin_tb *block);
typedef void (*syscall_cb)(plugin_id id, unsigned int cpu, int64_t number, uint64_t a1, uint64_t a2, uint64_t a3,
                           uint64_t a4, uint64_t a5, uint64_t a6, uint64_t a7, uint64_t a8);
size_t qemu_plugin_tb_n_insns(const struct qemu_plugin_tb *block);
void qemu_plugin_register_vcpu_tb_trans_cb(plugin_id id, translated_cb call);
void qemu_plugin_register_vcpu_tb_exec_inline(struct qemu_plugin_tb *block, int operation, void *place, uint64_t value);
void qemu_plugin_register_vcpu_syscall_cb(plugin_id id, syscall_cb call);

EXPORT extern int qemu_plugin_version;
int qemu_plugin_version = 1;
EXPORT int qemu_plugin_install(plugin_id id, const void *info, int argc, char **argv);

static const int add_u64 = 0;
static uint64_t count;
static uint64_t begun;

static void translated(plugin_id id, struct qemu_plugin_tb *block) {
    (void)id;
    qemu_plugin_register_vcpu_tb_exec_inline(block, add_u64, &count, qemu_plugin_tb_n_insns(block));
}

static void called(plugin_id id, unsigned int cpu, int64_t number, uint64_t a1, uint64_t a2, uint64_t a3, uint64_t a4,
                   uint64_t a5, uint64_t a6, uint64_t a7, uint64_t a8) {
    (void)id, (void)cpu, (void)number, (void)a3, (void)a4, (void)a5, (void)a6, (void)a7, (void)a8;
    if (a1 != PERF_MARK)
        return;
    if (a2 == 0)
        begun = count;
    else
        fprintf(stderr, "counted %" PRIu64 "\n", count - begun);
}

int qemu_plugin_install(plugin_id id, const void *info, int argc, char **argv) {
    (void)info, (void)argc, (void)argv;
    qemu_plugin_register_vcpu_tb_trans_cb(id, translated);
    qemu_plugin_register_vcpu_syscall_cb(id, called);
    return 0;
}
