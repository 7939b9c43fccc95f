// The container that every data file shares: reading, checking, sealing.
// Control.
#ifndef KELDA_UPMIX_LIB_FILES_DATA_FILE_H_
#define KELDA_UPMIX_LIB_FILES_DATA_FILE_H_

#include <cstddef>
#include <cstring>
#include <span>
#include <string>
#include <vector>

#include "upmix-lib/base/bytes.h"
#include "upmix-lib/base/status.h"
#include "upmix-lib/files/data_header.h"

namespace kelda::upmix_lib {

// Checks the header of data of `byte_length` bytes: magic, version, length.
Status CheckHeader(const DataHeader& header, const DataKind& kind, std::size_t byte_length);

// Checks the container of `data`, a whole file: magic, version, length, CRC-32. Says
// nothing about the contents.
Status CheckContainer(std::span<const std::byte> data, const DataKind& kind);

// Reads the regular file `path` whole and checks its container. `data` receives the
// file, header included, on success only. Throws std::bad_alloc.
Status ReadDataFile(const std::string& path, const DataKind& kind, std::vector<std::byte>& data);

// Writes the header of `data`, whose first sizeof(DataHeader) bytes are free for it.
void Seal(std::span<std::byte> data, const DataKind& kind);

// Checks every field of a parameter struct: finite and within its range.
Status CheckFields(std::span<const std::byte> parameters, std::span<const ParameterField> fields);

// Sets every field of a parameter struct to its default.
void SetDefaults(std::span<std::byte> parameters, std::span<const ParameterField> fields);

// Reads a parameter struct from `blob`, which comes without a length and may have any
// alignment: nothing after the header is read unless the header declares exactly
// sizeof(Parameters). `parameters` is written on success only.
template <typename Parameters>
Status LoadParameters(const void* blob, const DataKind& kind,
                      std::span<const ParameterField> fields, Parameters& parameters) {
  if (blob == nullptr) {
    return kNullPointer;
  }
  DataHeader header;
  std::memcpy(&header, blob, sizeof(header));
  if (const Status status = CheckHeader(header, kind, sizeof(Parameters)); status != kOk) {
    return status;
  }
  Parameters loaded;
  std::memcpy(static_cast<void*>(&loaded), blob, sizeof(loaded));
  const auto bytes = BytesOf(loaded);
  if (const Status status = CheckContainer(bytes, kind); status != kOk) {
    return status;
  }
  if (const Status status = CheckFields(bytes, fields); status != kOk) {
    return status;
  }
  parameters = loaded;
  return kOk;
}

// The default parameters of a kind, sealed.
template <typename Parameters>
Parameters DefaultParameters(const DataKind& kind, std::span<const ParameterField> fields) {
  Parameters parameters{};
  const auto bytes = WritableBytesOf(parameters);
  SetDefaults(bytes, fields);
  Seal(bytes, kind);
  return parameters;
}

}  // namespace kelda::upmix_lib

#endif  // KELDA_UPMIX_LIB_FILES_DATA_FILE_H_
