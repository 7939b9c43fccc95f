#include "tools/audio/progress.h"

#include <algorithm>
#include <cmath>

#include "tools/core/format.h"
#include "tools/framework/effect_session.h"

namespace kelda::tools {
namespace {

std::string Minutes(double seconds) {
  const auto whole = static_cast<long>(std::max(seconds, 0.0));
  return Format("%ld:%02ld", whole / 60, whole % 60);
}

// "[=====>    ] " of at most `columns`, or nothing if they are too few.
std::string Bar(double part, std::size_t columns) {
  constexpr std::size_t kFrame = 3;  // brackets and blank
  constexpr std::size_t kLeast = 5;
  constexpr std::size_t kMost = 20;
  if (columns < kLeast + kFrame) {
    return "";
  }
  const std::size_t width = std::min(columns - kFrame, kMost);
  const auto filled = static_cast<std::size_t>(part * static_cast<double>(width));
  std::string bar(filled, '=');
  if (filled < width) {
    bar += '>';
    bar.resize(width, ' ');
  }
  return "[" + bar + "] ";
}

}  // namespace

std::string FormatProgress(double done_seconds, std::optional<double> total_seconds,
                           double elapsed_seconds, std::size_t columns) {
  const double speed = elapsed_seconds > 0.0 ? done_seconds / elapsed_seconds : 0.0;
  const std::string text = Format("  %.*fx real time", speed < 10.0 ? 1 : 0, speed);
  if (!total_seconds || *total_seconds <= 0.0) {
    return Minutes(done_seconds) + text;
  }
  const double part = std::clamp(done_seconds / *total_seconds, 0.0, 1.0);
  const int percent = static_cast<int>(part * 100.0);
  std::string progress = std::string(percent < 10    ? "  "
                                     : percent < 100 ? " "
                                                     : "") +
                         std::to_string(percent) + "%  " + Minutes(done_seconds) + " of " +
                         Minutes(*total_seconds) + text;
  if (speed > 0.0) {
    progress += "  " + Minutes((*total_seconds - done_seconds) / speed) + " left";
  }
  return Bar(part, columns - std::min(columns, progress.size())) + progress;
}

Progress::Progress(std::optional<int64_t> total_frames) {
  if (total_frames) {
    total_seconds_ = static_cast<double>(*total_frames) / kSampleRateHz;
  }
}

void Progress::Update(int64_t done_frames) {
  constexpr auto kInterval = std::chrono::milliseconds(100);
  if (!line_.visible() || Clock::now() < next_) {
    return;
  }
  next_ = Clock::now() + kInterval;
  const std::chrono::duration<double> elapsed = Clock::now() - start_;
  line_.Show(FormatProgress(static_cast<double>(done_frames) / kSampleRateHz, total_seconds_,
                            elapsed.count(), line_.columns()));
}

}  // namespace kelda::tools
