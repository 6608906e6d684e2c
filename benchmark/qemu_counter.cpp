// A plugin for qemu-user 6.2 to 8.2 that counts the instructions of the emulated program.
//
// The program obtains the count with a system call that no kernel has: its number is `countCall`, and its argument is
// a file descriptor, to which the plugin writes the number of instructions so far as 8 bytes. The emulator shares its
// file descriptors with the program, so a pipe returns the count.

#include "qemu_counter.h"

#include <unistd.h>

// qemu's plugin interface, version 1, as far as it is used here. Debian does not package the header.
extern "C" {
struct qemu_info_t;
struct qemu_plugin_tb;
enum qemu_plugin_op { QEMU_PLUGIN_INLINE_ADD_U64 };
using BlockTranslated = void ( * )( uint64_t plugin, qemu_plugin_tb *block );
using SystemCall = void ( * )( uint64_t plugin, unsigned processor, int64_t number, uint64_t, uint64_t, uint64_t,
    uint64_t, uint64_t, uint64_t, uint64_t, uint64_t );
void qemu_plugin_register_vcpu_tb_trans_cb( uint64_t plugin, BlockTranslated callback );
void qemu_plugin_register_vcpu_tb_exec_inline(
    qemu_plugin_tb *block, qemu_plugin_op op, void *counter, uint64_t addend );
void qemu_plugin_register_vcpu_syscall_cb( uint64_t plugin, SystemCall callback );
size_t qemu_plugin_tb_n_insns( const qemu_plugin_tb *block );

extern const int qemu_plugin_version;
const int qemu_plugin_version = 1;
int qemu_plugin_install( uint64_t plugin, const qemu_info_t *info, int argc, char **argv );
}

static uint64_t executed;

static void countBlock( uint64_t, qemu_plugin_tb *block )
{
    qemu_plugin_register_vcpu_tb_exec_inline(
        block, QEMU_PLUGIN_INLINE_ADD_U64, &executed, qemu_plugin_tb_n_insns( block ) );
}

static void answer( uint64_t, unsigned, int64_t number, uint64_t descriptor, uint64_t, uint64_t, uint64_t, uint64_t,
    uint64_t, uint64_t, uint64_t )
{
    if ( number != countCall ) return;
    // If the write fails, the program reads nothing and reports that.
    [[maybe_unused]] ssize_t written = write( int( descriptor ), &executed, sizeof executed );
}

int qemu_plugin_install( uint64_t plugin, const qemu_info_t *, int, char ** )
{
    qemu_plugin_register_vcpu_tb_trans_cb( plugin, countBlock );
    qemu_plugin_register_vcpu_syscall_cb( plugin, answer );
    return 0;
}
