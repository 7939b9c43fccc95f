#include "tools/capture/capture_layout.h"

#include <algorithm>
#include <cmath>
#include <cstddef>

#include "tools/core/format.h"

namespace kelda::tools {
namespace {

// The effect delivers stereo. Another number of channels is chosen only if the energy of its steps
// is below this share of the energy with interleaved stereo. For noise, whatever its layout, the
// share is 1.
constexpr double kClearlySmaller = 0.6;

double Sample(float value) { return std::isfinite(value) ? static_cast<double>(value) : 0.0; }

// Mean square of the steps x[i + distance] - x[i] over every i = first + k * stride.
double StepEnergy(std::span<const float> samples, std::size_t distance, std::size_t first,
                  std::size_t stride) {
  double sum = 0;
  std::size_t count = 0;
  for (std::size_t i = first; i + distance < samples.size(); i += stride, ++count) {
    const double step = Sample(samples[i + distance]) - Sample(samples[i]);
    sum += step * step;
  }
  return count == 0 ? 0 : sum / static_cast<double>(count);
}

// Whether the samples are those of a single channel. In pairs of similar channels, the step within
// a pair is much smaller than the step to the next pair.
bool StepsAlike(std::span<const float> samples) {
  const double within = StepEnergy(samples, 1, 0, 2);
  const double between = StepEnergy(samples, 1, 1, 2);
  return std::max(within, between) < 1.5 * std::min(within, between);
}

// Whether the samples jump at the seams between planes and nowhere else.
bool JumpsAtPlanes(std::span<const float> samples) {
  constexpr std::size_t kPlane = CaptureLayout::kPlaneFrames;
  constexpr std::size_t kFewestSeams = 8;
  if (samples.size() < kFewestSeams * kPlane) {
    return false;
  }
  // The other places are even and odd ones, because these differ in interleaved stereo.
  double elsewhere = 0;
  for (const std::size_t place : {kPlane / 2, kPlane / 2 - 1, kPlane / 4, kPlane / 4 - 1}) {
    elsewhere = std::max(elsewhere, StepEnergy(samples, 1, place, kPlane));
  }
  return StepEnergy(samples, 1, kPlane - 1, kPlane) > 4 * elsewhere;
}

// `samples` without the silence at their start, from which nothing can be guessed.
std::span<const float> Sounding(std::span<const float> samples) {
  const auto first =
      std::find_if(samples.begin(), samples.end(), [](float value) { return Sample(value) != 0; });
  // Only whole groups are removed, because the position in the file decides the channel of a
  // sample.
  const auto skipped = static_cast<std::size_t>(first - samples.begin());
  constexpr std::size_t kPair = 2 * CaptureLayout::kPlaneFrames;
  return samples.subspan(skipped / kPair * kPair);
}

std::string Percent(double share) { return Format("%.0f %%", 100 * share); }

LayoutGuess GuessFromSamples(std::span<const float> samples) {
  const CaptureLayout stereo;
  const double stereo_steps = StepEnergy(samples, 2, 0, 1);
  if (stereo_steps == 0) {
    return {stereo, "there is no sound to judge by, and the effect's output is stereo"};
  }
  if (JumpsAtPlanes(samples)) {
    return {{2, true}, "the samples follow each other for 1024 frames and then jump"};
  }
  int best = 2;
  double best_steps = stereo_steps;
  for (int channels = 1; channels <= kMaxCaptureChannels; ++channels) {
    const double steps = StepEnergy(samples, static_cast<std::size_t>(channels), 0, 1);
    if (steps < best_steps && (channels != 1 || StepsAlike(samples))) {
      best = channels;
      best_steps = steps;
    }
  }
  if (best != 2 && best_steps < kClearlySmaller * stereo_steps) {
    return {{best, false},
            "the steps from frame to frame are then smallest, " +
                Percent(std::sqrt(best_steps / stereo_steps)) + " of those of two channels"};
  }
  const double mono_steps = StepEnergy(samples, 1, 0, 1);
  if (stereo_steps < kClearlySmaller * mono_steps || !StepsAlike(samples)) {
    return {stereo, "the samples come in pairs"};
  }
  return {stereo, "the samples do not tell, and the effect's output is stereo"};
}

}  // namespace

LayoutGuess GuessLayout(const std::string& name, std::span<const float> samples) {
  if (name.starts_with("rawfile_") && name.ends_with("_hpeq.raw")) {
    return {{2, true}, "the name is that of an equalizer's capture"};
  }
  return GuessFromSamples(Sounding(samples));
}

std::string Describe(const CaptureLayout& layout) {
  return std::to_string(layout.channels) + (layout.channels == 1 ? " channel" : " channels") +
         (layout.planar ? ", planar in blocks of 1024 frames" : ", interleaved");
}

}  // namespace kelda::tools
