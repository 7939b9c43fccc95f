#include "settings/tuned_app_list.h"

#include <algorithm>
#include <cstddef>
#include <optional>
#include <string_view>
#include <utility>

#include "platform/data_directory.h"
#include "platform/log.h"
#include "settings/tuning_directory.h"
#include "settings/tuning_files.h"

namespace kelda {
namespace {

constexpr char kTrimmed[] = " \"\t\v\r\n";

// So that a file in which every line is bad does not fill the log.
constexpr int kMostWarnings = 32;

// Reads a text file line by line; only one line is in memory.
class LineReader {
 public:
  explicit LineReader(const std::string& path) : file_(path) {}

  // Stores the next line, without its newline, in *line; false at the end of the file. Stores
  // kLongestTextBytes + 1 bytes of a longer line, which shows that it is too long.
  bool Next(std::string* line) {
    line->clear();
    bool any = false;
    while (next_ < end_ || Fill()) {
      const std::string_view rest(block_ + next_, end_ - next_);
      const std::string_view piece = rest.substr(0, rest.find('\n'));
      any = true;
      line->append(piece.substr(0, kLongestTextBytes + 1 - line->size()));
      next_ += std::min(piece.size() + 1, rest.size());
      if (piece.size() < rest.size()) {
        break;
      }
    }
    return any;
  }

 private:
  bool Fill() {
    next_ = 0;
    end_ = file_.Read(block_, sizeof(block_));
    return end_ > 0;
  }

  ReadableFile file_;
  char block_[4096] = {};
  std::size_t next_ = 0, end_ = 0;  // of what is left in the block
};

void Warn(const std::string& text) { LogWarning(log_tag::kAppList, "%s", text.c_str()); }

// Returns what precedes the next `separator` or the end of *rest, and removes it and the
// separator from *rest; nothing if *rest is empty.
std::optional<std::string_view> TakePiece(std::string_view* rest, char separator) {
  if (rest->empty()) {
    return std::nullopt;
  }
  const std::string_view piece = rest->substr(0, rest->find(separator));
  rest->remove_prefix(std::min(piece.size() + 1, rest->size()));
  return piece;
}

}  // namespace

TunedAppList::TunedAppList() : TunedAppList(DataPath(tuning_file::kAppList.name)) {}

TunedAppList::TunedAppList(std::string path)
    : path_(std::move(path)),
      mode_names_{
          {"OFF", UpmixMode::Off}, {"MUSIC", UpmixMode::Music}, {"CINEMA", UpmixMode::Cinema}} {}

void TunedAppList::Reload() {
  std::map<std::string, UpmixMode> applications;
  LineReader lines(path_);
  std::string line;
  int warnings = 0;
  for (int line_number = 1; lines.Next(&line); ++line_number) {
    std::string key, warning;
    UpmixMode mode = UpmixMode::Off;
    if (TakeEntry(line_number, line, &key, &mode, &warning)) {
      applications[key] = mode;
    }
    if (!warning.empty() && ++warnings <= kMostWarnings) {
      Warn(warning);
    }
  }
  if (warnings > kMostWarnings) {
    Warn(std::to_string(warnings - kMostWarnings) + " more warnings of this list are not logged.");
  }
  applications_.swap(applications);
}

bool TunedAppList::IsExist(const std::string& package) const {
  return applications_.find(package) != applications_.end();
}

UpmixMode TunedAppList::GetValue(const std::string& package) const {
  const auto entry = applications_.find(package);
  return entry != applications_.end() ? entry->second : UpmixMode::Off;
}

UpmixMode TunedAppList::ModeOf(const std::string& package, bool flag) const {
  if (IsExist(package)) {
    return GetValue(package);
  }
  return flag ? UpmixMode::Cinema : UpmixMode::Music;
}

bool TunedAppList::IsValidKeyValue(int line_number, const std::string& line, std::string* key,
                                   UpmixMode* mode) const {
  std::string warning;
  const bool valid = TakeEntry(line_number, line, key, mode, &warning);
  if (!warning.empty()) {
    Warn(warning);
  }
  return valid;
}

bool TunedAppList::TakeEntry(int line_number, const std::string& line, std::string* key,
                             UpmixMode* mode, std::string* warning) const {
  if (line.size() > kLongestTextBytes) {
    return false;
  }
  const auto warn = [&](const std::string& text) {
    *warning = "Line(" + std::to_string(line_number) + "): " + text;
    return false;
  };
  std::string_view rest = line;
  const auto package = TakePiece(&rest, ',');
  if (!package) {
    return false;
  }
  *key = Trim(std::string(*package));
  const auto mode_word = TakePiece(&rest, ',');
  if (!mode_word) {
    return false;
  }
  const std::string mode_name = Trim(std::string(*mode_word));
  const auto entry = mode_names_.find(mode_name);
  if (entry == mode_names_.end()) {
    return warn(std::string("Invalid mode was specified. '") + mode_name.c_str() + "'");
  }
  *mode = entry->second;
  if (TakePiece(&rest, ',')) {
    return warn("There are more separator descriptions than expected.");
  }
  return true;
}

std::string TunedAppList::Trim(const std::string& text) const {
  const std::size_t first = text.find_first_not_of(kTrimmed);
  if (first == std::string::npos) {
    return text;
  }
  return text.substr(first, text.find_last_not_of(kTrimmed) - first + 1);
}

}  // namespace kelda
