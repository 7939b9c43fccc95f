#include "tools/audio/stereo_fold.h"

#include <algorithm>
#include <cstddef>
#include <numbers>

#include "tools/core/failure.h"

namespace kelda::tools {
namespace {

std::array<float, 2> Gains(ChannelPlace place) {
  constexpr float kMinus3Db = 1 / std::numbers::sqrt2_v<float>;
  switch (place) {
    case ChannelPlace::kLeft:
      return {1, 0};
    case ChannelPlace::kRight:
      return {0, 1};
    case ChannelPlace::kCentre:
      return {kMinus3Db, kMinus3Db};
    case ChannelPlace::kBackLeft:
    case ChannelPlace::kSideLeft:
      return {kMinus3Db, 0};
    case ChannelPlace::kBackRight:
    case ChannelPlace::kSideRight:
      return {0, kMinus3Db};
    case ChannelPlace::kBackCentre:
      return {0.5f, 0.5f};
    case ChannelPlace::kLfe:
    case ChannelPlace::kOther:
      return {0, 0};
  }
  return {0, 0};
}

}  // namespace

StereoFold::StereoFold(const SoundFormat& format, const std::string& name) {
  if (format.channels == 1) {
    gains_ = {{1, 1}};
    return;
  }
  if (format.channels == 2) {
    gains_ = {{1, 0}, {0, 1}};  // Fold copies
    return;
  }
  const std::vector<ChannelPlace>& places = format.places;
  const auto has = [&](ChannelPlace place) {
    return std::find(places.begin(), places.end(), place) != places.end();
  };
  if (places.size() != format.channels || has(ChannelPlace::kOther)) {
    throw Failure(ExitCode::kInput, name + ": cannot be read: it has " +
                                        std::to_string(format.channels) +
                                        " channels, and not every one has a known place");
  }
  std::transform(places.begin(), places.end(), std::back_inserter(gains_), Gains);
  const bool with_lfe = has(ChannelPlace::kLfe);
  const bool two_pairs = has(ChannelPlace::kBackLeft) && has(ChannelPlace::kSideLeft);
  const std::size_t full = format.channels - (with_lfe ? 1 : 0);
  note_ = std::to_string(full) + (with_lfe ? ".1" : ".0") + " is folded to stereo (ITU-R BS.775" +
          (two_pairs ? ", the back pair added to the sides" : "") +
          (with_lfe ? ", the LFE left out)" : ")");
}

void StereoFold::Fold(const float* interleaved, std::size_t frames, float* stereo) const {
  const std::size_t channels = gains_.size();
  if (channels == 2) {  // to the bit: a sum would lose the sign of a zero
    std::copy_n(interleaved, 2 * frames, stereo);
    return;
  }
  for (std::size_t i = 0; i < frames; ++i, interleaved += channels, stereo += 2) {
    stereo[0] = stereo[1] = 0;
    for (std::size_t channel = 0; channel < channels; ++channel) {
      stereo[0] += gains_[channel][0] * interleaved[channel];
      stereo[1] += gains_[channel][1] * interleaved[channel];
    }
  }
}

}  // namespace kelda::tools
