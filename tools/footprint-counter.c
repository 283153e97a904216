/*
 * A plugin for qemu's user emulation: tells how many instructions the emulated program executed, in
 * qemu's log. To be used with "-plugin THIS -d plugin -D FILE".
 *
 * The emulator's packages come without the header of its plugin interface; what is used of it is
 * declared here, as its documentation has it for version 1.
 */

#include <inttypes.h>
#include <stddef.h>
#include <stdint.h>
#include <stdio.h>

#define PUBLIC __attribute__((visibility("default")))

typedef uint64_t qemu_plugin_id_t;
typedef struct qemu_info_t qemu_info_t;
struct qemu_plugin_tb;

enum qemu_plugin_op { QEMU_PLUGIN_INLINE_ADD_U64 };

typedef void (*qemu_plugin_vcpu_tb_trans_cb_t)(qemu_plugin_id_t id, struct qemu_plugin_tb* block);
typedef void (*qemu_plugin_udata_cb_t)(qemu_plugin_id_t id, void* data);

void qemu_plugin_register_vcpu_tb_trans_cb(qemu_plugin_id_t id,
                                           qemu_plugin_vcpu_tb_trans_cb_t callback);
size_t qemu_plugin_tb_n_insns(const struct qemu_plugin_tb* block);
void qemu_plugin_register_vcpu_tb_exec_inline(struct qemu_plugin_tb* block,
                                              enum qemu_plugin_op operation, void* counter,
                                              uint64_t amount);
void qemu_plugin_register_atexit_cb(qemu_plugin_id_t id, qemu_plugin_udata_cb_t callback,
                                    void* data);
void qemu_plugin_outs(const char* text);

PUBLIC extern int qemu_plugin_version;
PUBLIC int qemu_plugin_install(qemu_plugin_id_t id, const qemu_info_t* info, int argc, char** argv);

int qemu_plugin_version = 1;

static uint64_t executed;

static void onTranslated(qemu_plugin_id_t id, struct qemu_plugin_tb* block)
{
    (void)id;
    qemu_plugin_register_vcpu_tb_exec_inline(block, QEMU_PLUGIN_INLINE_ADD_U64, &executed,
                                             qemu_plugin_tb_n_insns(block));
}

static void onExit(qemu_plugin_id_t id, void* data)
{
    char text[64];

    (void)id;
    (void)data;
    snprintf(text, sizeof text, "instructions: %" PRIu64 "\n", executed);
    qemu_plugin_outs(text);
}

int qemu_plugin_install(qemu_plugin_id_t id, const qemu_info_t* info, int argc, char** argv)
{
    (void)info;
    (void)argc;
    (void)argv;
    qemu_plugin_register_vcpu_tb_trans_cb(id, onTranslated);
    qemu_plugin_register_atexit_cb(id, onExit, NULL);
    return 0;
}
