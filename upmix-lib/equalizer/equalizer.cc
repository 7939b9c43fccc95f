#include "upmix-lib/equalizer/equalizer.h"

#include <algorithm>
#include <iterator>
#include <memory>
#include <vector>

#include "upmix-lib/base/audio_format.h"
#include "upmix-lib/base/decibels.h"
#include "upmix-lib/base/input_guard.h"
#include "upmix-lib/equalizer/equalizer_bands.h"
#include "upmix-lib/files/data_file.h"
#include "upmix-lib/filters/biquad_design.h"
#include "upmix-lib/filters/convolver.h"

namespace kelda::upmix_lib {
namespace {

std::vector<Biquad> DesignAll(const std::vector<EqualizerBand>& bands) {
  std::vector<Biquad> biquads(bands.size());
  std::transform(bands.begin(), bands.end(), biquads.begin(), DesignBiquad);
  return biquads;
}

class BandEqualizer final : public Equalizer {
 public:
  explicit BandEqualizer(const EqualizerTuning& tuning)
      : cascade_(DesignAll(tuning.curves.front().bands), DesignAll(tuning.curves.back().bands),
                 AmplitudeFromDb<double>(tuning.preamp_db)) {}

  void Process(float* left, float* right) override { cascade_.Process(left, right); }
  void Flush() override { cascade_.Flush(); }

 private:
  BandCascade cascade_;
};

class FirEqualizer final : public Equalizer {
 public:
  explicit FirEqualizer(const EqualizerTuning& tuning)
      : convolver_(std::make_shared<const ConvolverResponses>(
            2, static_cast<int>(tuning.curves.front().taps.size()), Responses(tuning))) {}

  void Process(float* left, float* right) override {
    GuardSamples(left, left, kBlockFrames);
    GuardSamples(right, right, kBlockFrames);
    const float* const inputs[2] = {left, right};
    convolver_.Process(inputs, left, right);
    GuardSamples(left, left, kBlockFrames);  // the end of a tail may be tiny
    GuardSamples(right, right, kBlockFrames);
  }
  void Flush() override { convolver_.Clear(); }

 private:
  // [input][ear][tap]: each channel's taps, and none from one channel to the other.
  static std::vector<float> Responses(const EqualizerTuning& tuning) {
    const auto gain = static_cast<float>(AmplitudeFromDb<double>(tuning.preamp_db));
    const std::vector<float>& left = tuning.curves.front().taps;
    const std::vector<float>& right = tuning.curves.back().taps;
    std::vector<float> responses(4 * left.size());
    const auto scale = [gain](float tap) { return gain * tap; };
    std::transform(left.begin(), left.end(), responses.begin(), scale);
    std::transform(right.begin(), right.end(),
                   responses.end() - static_cast<std::ptrdiff_t>(right.size()), scale);
    return responses;
  }

  Convolver convolver_;
};

}  // namespace

Status Equalizer::Load(const std::string& path, std::unique_ptr<Equalizer>& equalizer) {
  std::vector<std::byte> file;
  if (const Status status = ReadDataFile(path, kEqualizerKind, file); status != kOk) {
    return status;
  }
  EqualizerTuning tuning;
  if (const Status status = ParseEqualizer(file, tuning); status != kOk) {
    return status;
  }
  equalizer = Make(tuning);
  return kOk;
}

std::unique_ptr<Equalizer> Equalizer::Make(const EqualizerTuning& tuning) {
  if (tuning.form == EqualizerForm::kFir) {
    return std::make_unique<FirEqualizer>(tuning);
  }
  return std::make_unique<BandEqualizer>(tuning);
}

}  // namespace kelda::upmix_lib
