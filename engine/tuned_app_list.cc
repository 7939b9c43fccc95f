#include "engine/tuned_app_list.h"

#include <android/log.h>

#include <algorithm>
#include <cstddef>
#include <optional>
#include <string_view>

#include "engine/tuning_files.h"
#include "platform/data_directory.h"

namespace kelda {
namespace {

constexpr char kTag[] = "EffectUpmix";
constexpr char kTrimmed[] = " \"\t\v\r\n";

// Takes what precedes the next `separator`, or the end, off the front of *rest,
// separator included; nothing if nothing is left.
std::optional<std::string_view> TakePiece(std::string_view* rest, char separator) {
  if (rest->empty()) return std::nullopt;
  const std::string_view piece = rest->substr(0, rest->find(separator));
  rest->remove_prefix(std::min(piece.size() + 1, rest->size()));
  return piece;
}

}  // namespace

TunedAppList::TunedAppList()
    : mode_names_{
          {"OFF", UpmixMode::Off}, {"MUSIC", UpmixMode::Music}, {"CINEMA", UpmixMode::Cinema}} {}

void TunedAppList::Reload() {
  applications_.clear();
  const std::string text = ReadText(DataPath("tunedapp_list")).value_or("");
  std::string_view rest = text;
  int line_number = 0;
  while (const auto line = TakePiece(&rest, '\n')) {
    std::string key;
    UpmixMode mode = UpmixMode::Off;
    if (IsValidKeyValue(++line_number, std::string(*line), &key, &mode)) applications_[key] = mode;
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
  std::string_view rest = line;
  const auto package = TakePiece(&rest, ',');
  if (!package) return false;
  *key = Trim(std::string(*package));
  const auto mode_word = TakePiece(&rest, ',');
  if (!mode_word) return false;
  const std::string mode_name = Trim(std::string(*mode_word));
  const auto entry = mode_names_.find(mode_name);
  if (entry == mode_names_.end()) {
    __android_log_print(ANDROID_LOG_WARN, kTag, "Line(%d): Invalid mode was specified. '%s'",
                        line_number, mode_name.c_str());
    return false;
  }
  *mode = entry->second;
  if (TakePiece(&rest, ',')) {
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
