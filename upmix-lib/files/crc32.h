#ifndef KELDA_UPMIX_LIB_FILES_CRC32_H_
#define KELDA_UPMIX_LIB_FILES_CRC32_H_

#include <cstddef>
#include <cstdint>
#include <span>

namespace kelda::upmix_lib {

// CRC-32 as of ISO 3309, Ethernet and zip: polynomial 0x04C11DB7, reflected, preset
// and final inversion. The check value of "123456789" is 0xCBF43926.
uint32_t Crc32(std::span<const std::byte> bytes);

}  // namespace kelda::upmix_lib

#endif  // KELDA_UPMIX_LIB_FILES_CRC32_H_
