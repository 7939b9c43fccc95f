#include "tools/inspect/inspected_file.h"

#include <cstddef>
#include <cstring>
#include <functional>
#include <span>
#include <vector>

#include "settings/tuning_directory.h"
#include "tools/core/failure.h"
#include "tools/core/format.h"
#include "tools/core/text_file.h"
#include "tools/inspect/inspected_contents.h"
#include "tools/inspect/library_status.h"
#include "upmix-lib/binaural/hrir_format.h"
#include "upmix-lib/equalizer/equalizer_format.h"
#include "upmix-lib/files/config_file.h"
#include "upmix-lib/files/crc32.h"
#include "upmix-lib/files/data_file.h"
#include "upmix-lib/files/regular_file.h"
#include "upmix-lib/level/level_parameters.h"
#include "upmix-lib/upmix/cinema_parameters.h"
#include "upmix-lib/upmix/music_parameters.h"

namespace kelda::tools {
namespace {

using upmix_lib::DataHeader;
using upmix_lib::DataKind;
using upmix_lib::Status;

struct KnownKind {
  const DataKind* kind;
  const char* name;
  Contents (*read)(const std::string& path, std::span<const std::byte> file);
};

constexpr KnownKind kKinds[] = {
    {&upmix_lib::kHrirKind, file_kind::kHrirs, ReadHrirContents},
    {&upmix_lib::kEqualizerKind, file_kind::kEqualizer, ReadEqualizerContents},
    {&upmix_lib::kMusicKind, file_kind::kMusic, ReadMusicContents},
    {&upmix_lib::kCinemaKind, file_kind::kCinema, ReadCinemaContents},
    {&upmix_lib::kLevelKind, file_kind::kLevel, ReadLevelContents},
};

std::string Hex(uint32_t value) { return Format("%08x", value); }

// What the check of the header found, with the values that were compared.
std::string DescribeContainer(Status status, const DataKind& kind,
                              std::span<const std::byte> file) {
  DataHeader header{};
  std::memcpy(&header, file.data(), std::min(file.size(), sizeof(header)));
  std::string detail;
  if (status == upmix_lib::kDataBadVersion) {
    detail = std::to_string(header.version) + ", not " + std::to_string(kind.version);
  } else if (status == upmix_lib::kDataBadLength) {
    detail =
        std::to_string(header.byte_length) + " bytes, the file has " + std::to_string(file.size());
  } else if (status == upmix_lib::kDataBadCrc) {
    detail = Hex(header.crc32) + " in the header, " +
             Hex(upmix_lib::Crc32(file.subspan(sizeof(header)))) + " of the contents";
  }
  return DescribeStatus(status) + (detail.empty() ? "" : ": " + detail);
}

InspectedFile InspectData(const std::filesystem::path& path, const KnownKind& known) {
  InspectedFile result{known.name, "", "", {}};
  std::vector<std::byte> file;
  Status status = upmix_lib::ReadDataFile(path.string(), *known.kind, file);
  if (status != upmix_lib::kOk) {
    upmix_lib::RegularFile raw(path.string());
    std::vector<std::byte> bytes(
        static_cast<std::size_t>(std::min<uint64_t>(raw.size_bytes(), known.kind->max_bytes)));
    bytes.resize(static_cast<std::size_t>(std::max<std::ptrdiff_t>(raw.Read(bytes), 0)));
    result.problem = DescribeContainer(status, *known.kind, bytes);
    return result;
  }
  DataHeader header;
  std::memcpy(&header, file.data(), sizeof(header));
  Contents contents = known.read(path.string(), file);
  result.problem = contents.problem;
  if (result.problem.empty()) {
    result.summary = known.name + (contents.summary.empty() ? "" : ", " + contents.summary);
    result.text = std::string(known.name) + ", version " + std::to_string(header.version) + ", " +
                  std::to_string(file.size()) + " bytes, checksum " + Hex(header.crc32) +
                  " matches\n" + contents.text;
    result.json = {{"version", header.version},
                   {"bytes", file.size()},
                   {"crc32", Hex(header.crc32)},
                   {"contents", std::move(contents.json)}};
  }
  return result;
}

InspectedFile InspectConfig(const std::filesystem::path& path) {
  InspectedFile result{file_kind::kConfig, "", "", {}};
  const std::filesystem::path folder = path.has_parent_path() ? path.parent_path() : ".";
  std::string named;
  const Status status = upmix_lib::ReadConfigFile(folder.c_str(), path.filename().c_str(), named);
  if (status != upmix_lib::kOk) {
    result.problem = DescribeStatus(status);
    return result;
  }
  const std::string name = std::filesystem::path(named).filename().string();
  result.json = {{"names", name}};
  std::error_code error;
  if (!std::filesystem::exists(named, error)) {
    result.problem = "it names " + name + ", which is missing";
    return result;
  }
  result.summary = "configuration, names " + name;
  result.text = result.summary + "\n";
  return result;
}

InspectedFile InspectAppList(const std::filesystem::path& path) {
  InspectedFile result{file_kind::kAppList, "", "", {}};
  constexpr std::size_t kMostBytes = std::size_t{64} << 20;
  try {
    const Contents contents = ReadAppListContents(ReadWholeFile(path, kMostBytes));
    result.text = "tuned applications\n" + contents.text;
    result.summary = "tuned applications, " + contents.summary;
    result.json = contents.json;
  } catch (const Failure& failure) {
    const std::string reason = failure.what();  // begins with the path, which every caller shows
    result.problem = reason.substr(path.string().size() + 2);
  }
  return result;
}

}  // namespace

InspectedFile InspectFile(const std::filesystem::path& path) {
  if (const std::string reason = WhyUnreadable(path); !reason.empty()) {
    return {"", "cannot be read: " + reason, "", {}};
  }
  const std::string name = path.filename().string();
  if (name == tuning_file::kAppList.name) {
    return InspectAppList(path);
  }
  if (name.ends_with(".config")) {
    return InspectConfig(path);
  }
  char magic[4] = {};
  upmix_lib::RegularFile(path.string()).Read(std::as_writable_bytes(std::span(magic)));
  for (const KnownKind& known : kKinds) {
    if (std::memcmp(magic, known.kind->magic, sizeof(magic)) == 0) {
      return InspectData(path, known);
    }
  }
  return {"", "no tuning file: it begins with none of KHKI, KHEQ, KMUP, KCUP, KLEV", "", {}};
}

}  // namespace kelda::tools
