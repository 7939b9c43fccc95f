#include "engine/tuned_app_list.h"

#include <android/log.h>

#include <cstddef>
#include <sstream>

#include "engine/tuning_files.h"
#include "platform/data_directory.h"

namespace kelda {
namespace {

constexpr char kTag[] = "EffectUpmix";
constexpr char kTrimmed[] = " \"\t\v\r\n";

}  // namespace

TunedAppList::TunedAppList()
    : mode_names_{
          {"OFF", UpmixMode::Off}, {"MUSIC", UpmixMode::Music}, {"CINEMA", UpmixMode::Cinema}} {}

void TunedAppList::Reload() {
  applications_.clear();
  std::istringstream text(ReadText(DataPath("tunedapp_list")).value_or(""));
  std::string line;
  for (int line_number = 1; std::getline(text, line); ++line_number) {
    std::string key;
    UpmixMode mode = UpmixMode::Off;
    if (IsValidKeyValue(line_number, line, &key, &mode)) applications_[key] = mode;
  }
}

bool TunedAppList::IsExist(const std::string& package) const {
  return applications_.find(package) != applications_.end();
}

UpmixMode TunedAppList::GetValue(const std::string& package) const {
  const auto entry = applications_.find(package);
  return entry != applications_.end() ? entry->second : UpmixMode::Off;
}

bool TunedAppList::IsValidKeyValue(int line_number, const std::string& line, std::string* key,
                                   UpmixMode* mode) const {
  std::istringstream fields(line);
  std::string field;
  if (!std::getline(fields, field, ',')) return false;
  *key = Trim(field);
  if (!std::getline(fields, field, ',')) return false;
  const std::string mode_name = Trim(field);
  const auto entry = mode_names_.find(mode_name);
  if (entry == mode_names_.end()) {
    __android_log_print(ANDROID_LOG_WARN, kTag, "Line(%d): Invalid mode was specified. '%s'",
                        line_number, mode_name.c_str());
    return false;
  }
  *mode = entry->second;
  if (std::getline(fields, field, ',')) {
    __android_log_print(ANDROID_LOG_WARN, kTag,
                        "Line(%d): There are more separator descriptions than expected.",
                        line_number);
    return false;
  }
  return true;
}

std::string TunedAppList::Trim(const std::string& text) const {
  const std::size_t first = text.find_first_not_of(kTrimmed);
  if (first == std::string::npos) return text;
  return text.substr(first, text.find_last_not_of(kTrimmed) - first + 1);
}

}  // namespace kelda
