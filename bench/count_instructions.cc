// A plugin for qemu-user that counts the instructions which the emulated program runs:
//   qemu-aarch64 -plugin libcount_instructions.so,out=FILE PROGRAM ...
// When the program ends, FILE holds their number. Threads are counted together, and as they add to
// one number without a lock, a program should have one.
#include <cinttypes>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <string>
#include <string_view>

// What is used here of QEMU's interface for plugins, version 1 (docs/devel/tcg-plugins.rst of
// QEMU). Debian does not package its header.
// NOLINTBEGIN(readability-identifier-naming): names are QEMU's
extern "C" {
struct qemu_plugin_tb;  // a block of instructions that is translated at once
using qemu_plugin_id_t = uint64_t;
enum qemu_plugin_op : int { QEMU_PLUGIN_INLINE_ADD_U64 };

std::size_t qemu_plugin_tb_n_insns(const qemu_plugin_tb* tb);
void qemu_plugin_register_vcpu_tb_trans_cb(qemu_plugin_id_t id,
                                           void (*callback)(qemu_plugin_id_t, qemu_plugin_tb*));
void qemu_plugin_register_vcpu_tb_exec_inline(qemu_plugin_tb* tb, qemu_plugin_op op, void* number,
                                              uint64_t added);
void qemu_plugin_register_atexit_cb(qemu_plugin_id_t id, void (*callback)(qemu_plugin_id_t, void*),
                                    void* data);

__attribute__((visibility("default"))) extern int qemu_plugin_version;
__attribute__((visibility("default"))) int qemu_plugin_install(qemu_plugin_id_t id,
                                                               const void* info, int argc,
                                                               char** argv);
}

namespace {

uint64_t g_instructions = 0;
std::string g_file;  // NOLINT(cert-err58-cpp)

void CountBlock(qemu_plugin_id_t /*id*/, qemu_plugin_tb* tb) {
  qemu_plugin_register_vcpu_tb_exec_inline(tb, QEMU_PLUGIN_INLINE_ADD_U64, &g_instructions,
                                           qemu_plugin_tb_n_insns(tb));
}

void WriteCount(qemu_plugin_id_t /*id*/, void* /*data*/) {
  std::FILE* const file = std::fopen(g_file.c_str(), "w");
  if (file == nullptr) {
    std::perror(g_file.c_str());
    return;
  }
  std::fprintf(file, "%" PRIu64 "\n", g_instructions);
  std::fclose(file);
}

}  // namespace

int qemu_plugin_version = 1;

int qemu_plugin_install(qemu_plugin_id_t id, const void* /*info*/, int argc, char** argv) {
  constexpr std::string_view kOut = "out=";
  if (argc != 1 || !std::string_view(argv[0]).starts_with(kOut)) {
    std::fputs("count_instructions: give it out=FILE\n", stderr);
    return 1;
  }
  g_file = argv[0] + kOut.size();
  qemu_plugin_register_vcpu_tb_trans_cb(id, CountBlock);
  qemu_plugin_register_atexit_cb(id, WriteCount, nullptr);
  return 0;
}
// NOLINTEND(readability-identifier-naming)
