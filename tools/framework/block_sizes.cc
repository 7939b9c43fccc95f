#include "tools/framework/block_sizes.h"

#include <charconv>
#include <cstddef>
#include <optional>
#include <string>

#include "tools/core/failure.h"
#include "tools/core/text_file.h"

namespace kelda::tools {
namespace {

std::optional<std::size_t> ParseFrames(std::string_view text) {
  std::size_t frames = 0;
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), frames);
  const bool valid = error == std::errc() && end == text.data() + text.size() && frames >= 1 &&
                     frames <= kMaxBlockFrames;
  return valid ? std::optional(frames) : std::nullopt;
}

}  // namespace

BlockRange ParseBlockRange(std::string_view text) {
  constexpr std::string_view kRandom = "random";
  constexpr BlockRange kDefaultRandom{1, 3840};  // up to 80 ms, as deep a buffer as phones use
  if (text == kRandom) {
    return kDefaultRandom;
  }
  std::optional<std::size_t> min;
  std::optional<std::size_t> max;
  if (text.starts_with("random:")) {
    const std::string_view range = text.substr(kRandom.size() + 1);
    const std::size_t separator = range.find('-');
    if (separator != std::string_view::npos) {
      min = ParseFrames(range.substr(0, separator));
      max = ParseFrames(range.substr(separator + 1));
    }
  } else {
    min = max = ParseFrames(text);
  }
  if (!min || !max || *min > *max) {
    throw Failure(ExitCode::kUsage, "not a block size: " + Quoted(text) + " (1 to " +
                                        std::to_string(kMaxBlockFrames) +
                                        " frames, random, or random:MIN-MAX)");
  }
  return {*min, *max};
}

std::size_t BlockSizes::Next() {
  if (!range_.random()) {
    return range_.min_frames;
  }
  std::size_t frames = kPeriodFrames;
  while (frames == kPeriodFrames) {
    frames = range_.min_frames + random_() % (range_.max_frames - range_.min_frames + 1);
  }
  return frames;
}

}  // namespace kelda::tools
