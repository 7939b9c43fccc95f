#include "upmix-lib/files/config_file.h"

#include <algorithm>
#include <string_view>

#include "upmix-lib/base/bytes.h"
#include "upmix-lib/files/regular_file.h"

namespace kelda::upmix_lib {
namespace {

constexpr std::string_view kWhitespace = " \t\n\v\f\r";

bool IsPlainName(std::string_view name) {
  const bool printable = std::none_of(name.begin(), name.end(), [](char character) {
    const auto code = static_cast<unsigned char>(character);
    return code < 0x20 || code == 0x7F;
  });
  return printable && name.size() <= kMaxNameBytes && name.find('/') == std::string_view::npos &&
         name.find("..") == std::string_view::npos;
}

}  // namespace

Status ReadConfigFile(const char* directory, const char* file, std::string& data_path) {
  if (directory == nullptr || file == nullptr) {
    return kNullPointer;
  }
  const std::string folder = std::string(directory) + "/";
  RegularFile config(folder + file);
  switch (config.error()) {
    case RegularFile::Error::kNone:
      break;
    case RegularFile::Error::kMissing:
      return kConfigMissing;
    case RegularFile::Error::kNotRegular:
      return kConfigNotRegular;
  }
  char text[kMaxConfigBytes];
  const std::ptrdiff_t count = config.Read(WritableBytesOf(text));
  if (count < 0) {
    return kConfigUnreadable;
  }
  std::string_view name(text, static_cast<std::size_t>(count));
  name.remove_prefix(std::min(name.find_first_not_of(kWhitespace), name.size()));
  const std::size_t end = name.find_first_of(kWhitespace);
  const bool cut = end == std::string_view::npos && count == std::ptrdiff_t{kMaxConfigBytes};
  name = name.substr(0, end);
  if (name.empty()) {
    return kConfigNoName;
  }
  if (cut || !IsPlainName(name)) {
    return kConfigBadName;
  }
  data_path = folder + std::string(name);
  return kOk;
}

}  // namespace kelda::upmix_lib
