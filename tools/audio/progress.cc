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

}  // namespace

std::string FormatProgress(double done_seconds, std::optional<double> total_seconds,
                           double elapsed_seconds) {
  constexpr int kBarWidth = 20;
  const double speed = elapsed_seconds > 0.0 ? done_seconds / elapsed_seconds : 0.0;
  const std::string text = Format("  %.*fx real time", speed < 10.0 ? 1 : 0, speed);
  if (!total_seconds || *total_seconds <= 0.0) {
    return Minutes(done_seconds) + text;
  }
  const double part = std::clamp(done_seconds / *total_seconds, 0.0, 1.0);
  const int filled = static_cast<int>(part * kBarWidth);
  std::string bar(static_cast<size_t>(filled), '=');
  if (filled < kBarWidth) {
    bar += '>';
    bar.resize(kBarWidth, ' ');
  }
  const int percent = static_cast<int>(part * 100.0);
  std::string progress = "[" + bar + "] " +
                         (percent < 10    ? "  "
                          : percent < 100 ? " "
                                          : "") +
                         std::to_string(percent) + "%  " + Minutes(done_seconds) + " of " +
                         Minutes(*total_seconds) + text;
  if (speed > 0.0) {
    progress += "  " + Minutes((*total_seconds - done_seconds) / speed) + " left";
  }
  return progress;
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
                            elapsed.count()));
}

}  // namespace kelda::tools
