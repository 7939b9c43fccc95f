#include "tools/render/timeline.h"

#include <algorithm>
#include <charconv>
#include <cmath>
#include <optional>
#include <sstream>

#include "tools/core/failure.h"
#include "tools/core/file_problems.h"
#include "tools/core/text_file.h"

namespace kelda::tools {

namespace {

// "150", "2:30", "0:02:30.5": seconds, with minutes and hours before them. Nothing if it is
// no time from 0 to 1e7 seconds.
std::optional<double> ParseSeconds(std::string_view text) {
  constexpr double kMaxSeconds = 1e7;
  constexpr int kMostParts = 3;
  double seconds = 0;
  for (int part_number = 1; part_number <= kMostParts; ++part_number) {
    const std::size_t colon = text.find(':');
    const bool last = colon == std::string_view::npos;
    const std::string_view part = text.substr(0, colon);
    double value = 0;
    const auto [end, error] = std::from_chars(part.data(), part.data() + part.size(), value);
    const bool digits = part.find_first_not_of("0123456789") == std::string_view::npos;
    if (error != std::errc() || end != part.data() + part.size() || !(value >= 0) ||
        !(last || digits) || (part_number > 1 && value >= 60)) {
      return std::nullopt;
    }
    seconds = 60 * seconds + value;
    if (last) {
      return seconds <= kMaxSeconds ? std::optional(seconds) : std::nullopt;
    }
    text.remove_prefix(colon + 1);
  }
  return std::nullopt;
}

TimedSetting ParseChange(std::string_view time, std::string_view setting,
                         const std::string& origin) {
  const std::optional<double> seconds = ParseSeconds(time);
  if (!seconds) {
    throw Failure(ExitCode::kUsage,
                  "not a time: " + Quoted(time) + " (150 or 2:30, up to 10000000 seconds)");
  }
  return {std::llround(*seconds * kSampleRateHz), ParseSetting(setting), origin};
}

}  // namespace

TimedSetting ParseTimedSetting(std::string_view time, std::string_view setting,
                               const std::string& origin) {
  try {
    return ParseChange(time, setting, origin);
  } catch (const Failure& failure) {
    throw Failure(failure.code(), origin + ": " + failure.what());
  }
}

std::vector<TimedSetting> ReadScenario(const std::filesystem::path& file) {
  constexpr std::size_t kMaxBytes = std::size_t{16} << 20;
  const std::string text = ReadTextFile(file, kMaxBytes, ExitCode::kUsage);
  std::vector<TimedSetting> changes;
  FileProblems problems(file.string());
  std::string_view rest = text;
  for (std::size_t number = 1; !rest.empty(); ++number) {
    const std::string_view line = TakeLine(&rest);
    std::istringstream words(std::string(line.substr(0, line.find('#'))));
    std::string time;
    std::string setting;
    std::string surplus;
    if (!(words >> time)) {
      continue;
    }
    if (!(words >> setting) || words >> surplus) {
      problems.Add(number, "a line is 'TIME key=value', not " + Quoted(line));
      continue;
    }
    try {
      changes.push_back(ParseChange(time, setting, file.string() + ":" + std::to_string(number)));
    } catch (const Failure& failure) {
      problems.Add(number, failure.what());
    }
  }
  problems.ThrowIfAny("", ExitCode::kUsage);
  return changes;
}

std::vector<TimedSetting> InOrder(std::vector<TimedSetting> changes) {
  std::stable_sort(changes.begin(), changes.end(),
                   [](const auto& a, const auto& b) { return a.frame < b.frame; });
  return changes;
}

}  // namespace kelda::tools
