// Shows how much of a render is done.
#ifndef KELDA_TOOLS_AUDIO_PROGRESS_H_
#define KELDA_TOOLS_AUDIO_PROGRESS_H_

#include <chrono>
#include <cstdint>
#include <optional>
#include <string>

#include "tools/core/status_line.h"

namespace kelda::tools {

// "[=====>              ]  27%  4:05 of 15:00  98x real time  0:07 left"; without
// a total only the time and the speed. Times are minutes:seconds. If `columns` are too few for all
// of it, the bar is shorter or left out.
std::string FormatProgress(double done_seconds, std::optional<double> total_seconds,
                           double elapsed_seconds, std::size_t columns);

// Shows the progress in the status line, a few times a second.
class Progress {
 public:
  // Frames at 48 kHz, as everywhere here.
  explicit Progress(std::optional<int64_t> total_frames);
  void Update(int64_t done_frames);

 private:
  using Clock = std::chrono::steady_clock;
  StatusLine line_;
  std::optional<double> total_seconds_;
  Clock::time_point start_ = Clock::now();
  Clock::time_point next_ = start_;
};

}  // namespace kelda::tools

#endif  // KELDA_TOOLS_AUDIO_PROGRESS_H_
