#include "tools/render/timeline.h"

#include <algorithm>
#include <charconv>
#include <cmath>
#include <cstring>
#include <fstream>
#include <sstream>

#include "tools/core/failure.h"

namespace kelda::tools {

TimedSetting ParseTimedSetting(std::string_view seconds, std::string_view setting,
                               const std::string& origin) {
  constexpr double kMaxSeconds = 1e7;
  double time = 0.0;
  const auto [end, error] = std::from_chars(seconds.data(), seconds.data() + seconds.size(), time);
  if (error != std::errc() || end != seconds.data() + seconds.size() ||
      !(time >= 0.0 && time <= kMaxSeconds)) {
    throw Failure(ExitCode::kUsage, origin + ": not a time in seconds: '" + std::string(seconds) +
                                        "' (0 to 10000000)");
  }
  try {
    return {std::llround(time * kSampleRateHz), ParseSetting(setting), origin};
  } catch (const Failure& failure) {
    throw Failure(failure.code(), origin + ": " + failure.what());
  }
}

std::vector<TimedSetting> ReadScenario(const std::filesystem::path& file) {
  std::ifstream stream(file);
  std::vector<TimedSetting> changes;
  std::string line;
  for (int number = 1; std::getline(stream, line); ++number) {
    std::istringstream words(line.substr(0, line.find('#')));
    std::string seconds;
    std::string setting;
    std::string surplus;
    if (!(words >> seconds)) {
      continue;
    }
    const std::string origin = file.string() + ":" + std::to_string(number);
    if (!(words >> setting) || words >> surplus) {
      std::string message = origin;
      message.append(": a line is 'SECONDS key=value', not '").append(line).append("'");
      throw Failure(ExitCode::kUsage, message);
    }
    changes.push_back(ParseTimedSetting(seconds, setting, origin));
  }
  if (!stream.eof()) {
    throw Failure(ExitCode::kUsage, file.string() + ": cannot be read");
  }
  return changes;
}

std::vector<TimedSetting> InOrder(std::vector<TimedSetting> changes) {
  std::stable_sort(changes.begin(), changes.end(),
                   [](const auto& a, const auto& b) { return a.frame < b.frame; });
  return changes;
}

}  // namespace kelda::tools
