#include "tools/tune/app_list_check.h"

#include <algorithm>
#include <map>
#include <vector>

#include "settings/tuned_app_list.h"
#include "settings/tuning_files.h"
#include "tools/core/text_file.h"
#include "tools/framework/log_capture.h"
#include "tools/framework/setting.h"

namespace kelda::tools {
namespace {

constexpr std::size_t kShownBytes = 200;

// Android's package names are Java package names with at least two parts.
bool MayBePackage(std::string_view name) {
  const auto part = [](char c) {
    return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') || c == '_' ||
           c == '.';
  };
  return name.find('.') != std::string_view::npos && std::all_of(name.begin(), name.end(), part);
}

std::string WhySkipped(std::string_view line) {
  if (line.find_first_not_of(" \t\r") == std::string_view::npos) {
    return "skipped: empty";
  }
  if (line.size() > kLongestTextBytes) {
    return "skipped: longer than 4096 bytes";
  }
  if (line.find(',') == std::string_view::npos) {
    return "skipped: no comma in " + Quoted(line);
  }
  return "skipped: no mode after " + Quoted(line);
}

}  // namespace

AppListCheck CheckAppList(const std::string& name, std::string_view list) {
  AppListCheck check{{}, 0, FileProblems(name), FileProblems(name)};
  const TunedAppList reader;
  LogCapture log;
  std::vector<std::string> verdicts;
  std::map<std::string, std::size_t> line_of;  // the last line of each application
  std::size_t number = 0;
  for (std::string_view rest = list; !rest.empty();) {
    const std::string_view line = TakeLine(&rest);
    ++number;
    std::string package;
    UpmixMode mode = UpmixMode::Off;
    const bool valid =
        reader.IsValidKeyValue(static_cast<int>(number), std::string(line), &package, &mode);
    const std::vector<LogLine> warnings = log.Take();
    if (!valid) {
      verdicts.push_back(warnings.empty() ? WhySkipped(line)
                                          : "rejected: " + warnings.front().message);
      for (const LogLine& warning : warnings) {
        check.rejected.Add(number, "the engine rejects it: " + warning.message);
      }
      continue;
    }
    const std::string shown = Quoted(package, kShownBytes);
    verdicts.push_back(shown + " plays in mode " + kModeNames[static_cast<std::size_t>(mode)]);
    if (!MayBePackage(package)) {
      check.doubtful.Add(number, "warning: no application has the package name " + shown);
    }
    if (const auto [earlier, fresh] = line_of.try_emplace(package, number); !fresh) {
      verdicts[earlier->second - 1] += ", but line " + std::to_string(number) + " replaces it";
      earlier->second = number;
    }
  }
  for (std::size_t i = 0; i < verdicts.size(); ++i) {
    check.report.append(name).append(":").append(std::to_string(i + 1)).append(": ");
    check.report.append(verdicts[i]).append("\n");
  }
  check.entries = line_of.size();
  return check;
}

}  // namespace kelda::tools
