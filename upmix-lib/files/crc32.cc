#include "upmix-lib/files/crc32.h"

#include <array>

namespace kelda::upmix_lib {
namespace {

constexpr std::array<uint32_t, 256> MakeTable() {
  std::array<uint32_t, 256> table{};
  for (uint32_t byte = 0; byte < 256; ++byte) {
    uint32_t remainder = byte;
    for (int bit = 0; bit < 8; ++bit) {
      remainder = (remainder >> 1) ^ ((remainder & 1u) != 0 ? 0xEDB88320u : 0u);
    }
    table[byte] = remainder;
  }
  return table;
}

constexpr std::array<uint32_t, 256> kTable = MakeTable();

}  // namespace

uint32_t Crc32(std::span<const std::byte> bytes) {
  uint32_t crc = ~0u;
  for (const std::byte byte : bytes) {
    crc = (crc >> 8) ^ kTable[(crc ^ std::to_integer<uint32_t>(byte)) & 0xFFu];
  }
  return ~crc;
}

}  // namespace kelda::upmix_lib
