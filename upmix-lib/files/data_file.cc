#include "upmix-lib/files/data_file.h"

#include <cmath>

#include "upmix-lib/files/crc32.h"
#include "upmix-lib/files/regular_file.h"

namespace kelda::upmix_lib {

Status CheckHeader(const DataHeader& header, const DataKind& kind, std::size_t byte_length) {
  if (std::memcmp(header.magic, kind.magic, sizeof(kind.magic)) != 0) {
    return kDataBadMagic;
  }
  if (header.version != kind.version) {
    return kDataBadVersion;
  }
  return header.byte_length == byte_length ? kOk : kDataBadLength;
}

Status CheckContainer(std::span<const std::byte> data, const DataKind& kind) {
  const auto size_bytes = static_cast<std::size_t>(data.size());
  if (size_bytes < sizeof(DataHeader)) {
    return kDataTooShort;
  }
  DataHeader header;
  std::memcpy(&header, data.data(), sizeof(header));
  if (const Status status = CheckHeader(header, kind, size_bytes); status != kOk) {
    return status;
  }
  return header.crc32 == Crc32(data.subspan(sizeof(DataHeader))) ? kOk : kDataBadCrc;
}

Status ReadDataFile(const std::string& path, const DataKind& kind, std::vector<std::byte>& data) {
  RegularFile file(path);
  switch (file.error()) {
    case RegularFile::Error::kNone:
      break;
    case RegularFile::Error::kMissing:
      return kDataMissing;
    case RegularFile::Error::kNotRegular:
      return kDataNotRegular;
  }
  if (file.size_bytes() < sizeof(DataHeader)) {
    return kDataTooShort;
  }
  if (file.size_bytes() > kind.max_bytes) {
    return kDataTooLong;
  }
  std::vector<std::byte> read(static_cast<std::size_t>(file.size_bytes()));
  if (file.Read(read) != static_cast<std::ptrdiff_t>(read.size())) {
    return kDataUnreadable;
  }
  if (const Status status = CheckContainer(read, kind); status != kOk) {
    return status;
  }
  data = std::move(read);
  return kOk;
}

void Seal(std::span<std::byte> data, const DataKind& kind) {
  DataHeader header;
  std::memcpy(header.magic, kind.magic, sizeof(header.magic));
  header.version = kind.version;
  header.byte_length = static_cast<uint32_t>(data.size());
  header.crc32 = Crc32(data.subspan(sizeof(DataHeader)));
  std::memcpy(data.data(), &header, sizeof(header));
}

Status CheckFields(std::span<const std::byte> parameters, std::span<const ParameterField> fields) {
  for (const ParameterField& field : fields) {
    float value;
    std::memcpy(&value, parameters.data() + field.offset_bytes, sizeof(value));
    if (!std::isfinite(value)) {
      return kNotFinite;
    }
    if (value < field.min || value > field.max) {
      return kOutOfRange;
    }
  }
  return kOk;
}

void SetDefaults(std::span<std::byte> parameters, std::span<const ParameterField> fields) {
  for (const ParameterField& field : fields) {
    std::memcpy(parameters.data() + field.offset_bytes, &field.initial, sizeof(field.initial));
  }
}

}  // namespace kelda::upmix_lib
