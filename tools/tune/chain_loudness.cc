#include "tools/tune/chain_loudness.h"

#include <array>
#include <cstddef>
#include <memory>
#include <numeric>

#include "tools/measure/test_signal.h"
#include "upmix-lib/base/decibels.h"
#include "upmix-lib/binaural/virtualizer.h"
#include "upmix-lib/equalizer/equalizer.h"
#include "upmix-lib/level/k_weighting.h"
#include "upmix-lib/upmix/cinema.h"
#include "upmix-lib/upmix/music_upmix.h"

namespace kelda::tools {
namespace {

using upmix_lib::kBlockFrames;
using upmix_lib::kPlanes;

constexpr double kLevelDb = -23;
constexpr std::size_t kSettlingPeriods = 3, kMeasuredPeriods = 3;

std::shared_ptr<upmix_lib::Equalizer> MakeEqualizer(const upmix_lib::EqualizerTuning* tuning) {
  return tuning == nullptr ? nullptr : upmix_lib::Equalizer::Make(*tuning);
}

class MusicSystem {
 public:
  MusicSystem(const upmix_lib::MusicParameters& parameters, const upmix_lib::HrirSet& ears)
      : upmix_(upmix_lib::MusicTuning(parameters)), virtualizer_(ears) {}

  void Process(float* left, float* right) {
    for (int at = 0; at < kBlockFrames; at += upmix_lib::kHopFrames) {
      const float* const in[2] = {left + at, right + at};
      float* out[kPlanes];
      for (int plane = 0; plane < kPlanes; ++plane) {
        out[plane] =
            &planes_[static_cast<std::size_t>(plane) * kBlockFrames + static_cast<std::size_t>(at)];
      }
      upmix_.Process(in, out);
    }
    constexpr int32_t kAudible[kPlanes] = {};
    virtualizer_.Process(kBlockFrames, planes_.data(), kAudible, left, right);
  }
  const float* plane(int plane) const {
    return &planes_[static_cast<std::size_t>(plane) * kBlockFrames];
  }

 private:
  upmix_lib::PlaneUpmix upmix_;
  upmix_lib::Virtualizer virtualizer_;
  std::array<float, std::size_t{kPlanes} * kBlockFrames> planes_;
};

class CinemaSystem {
 public:
  CinemaSystem(const upmix_lib::CinemaParameters& parameters, const upmix_lib::HrirSet& ears)
      : cinema_(parameters, ears) {}

  void Process(float* left, float* right) {
    std::copy_n(left, kBlockFrames, in_[0].data());
    std::copy_n(right, kBlockFrames, in_[1].data());
    const float* const in[2] = {in_[0].data(), in_[1].data()};
    float* const out[2] = {left, right};
    cinema_.Process(in, planes_.data(), out);
  }
  const float* plane(int plane) const {
    return &planes_[static_cast<std::size_t>(plane) * kBlockFrames];
  }

 private:
  upmix_lib::Cinema cinema_;
  std::array<std::array<float, kBlockFrames>, 2> in_;
  std::array<float, std::size_t{kPlanes} * kBlockFrames> planes_;
};

template <typename System, typename Parameters>
Chain MakeChain(const Parameters& parameters, const upmix_lib::HrirSet& ears,
                const upmix_lib::EqualizerTuning* tuning, PlanePowers* planes) {
  const auto system = std::make_shared<System>(parameters, ears);
  const auto equalizer = MakeEqualizer(tuning);
  return [system, equalizer, planes](float* left, float* right) {
    system->Process(left, right);
    for (int plane = 0; planes != nullptr && plane < kPlanes; ++plane) {
      const float* const samples = system->plane(plane);
      (*planes)[static_cast<std::size_t>(plane)] =
          std::inner_product(samples, samples + kBlockFrames, samples, 0.0) / kBlockFrames;
    }
    if (equalizer) {
      equalizer->Process(left, right);
    }
  };
}

// K-weighted energy of both channels of what comes out over that of what goes in.
double GainLu(const Chain& chain, Image image) {
  const TestSignal signal(image, Waveform::kNoise, upmix_lib::AmplitudeFromDb(kLevelDb));
  const std::vector<float>& frames = signal.frames();
  static_assert(TestSignal::kPeriod % kBlockFrames == 0);
  upmix_lib::KWeighting weigh_in, weigh_out;
  double in = 0, out = 0;
  for (std::size_t period = 0; period < kSettlingPeriods + kMeasuredPeriods; ++period) {
    for (std::size_t at = 0; at < frames.size(); at += 2 * std::size_t{kBlockFrames}) {
      std::array<float, kBlockFrames> left, right;
      for (std::size_t n = 0; n < kBlockFrames; ++n) {
        left[n] = frames[at + 2 * n];
        right[n] = frames[at + 2 * n + 1];
      }
      chain(left.data(), right.data());
      std::array<float, 2 * std::size_t{kBlockFrames}> heard;
      for (std::size_t n = 0; n < kBlockFrames; ++n) {
        heard[2 * n] = left[n];
        heard[2 * n + 1] = right[n];
      }
      const double in_energy = weigh_in.Energy(&frames[at], kBlockFrames);
      const double out_energy = weigh_out.Energy(heard.data(), kBlockFrames);
      if (period >= kSettlingPeriods) {
        in += in_energy;
        out += out_energy;
      }
    }
  }
  return upmix_lib::DbFromPower(out / in);
}

}  // namespace

Chain MusicChain(const upmix_lib::MusicParameters& parameters, const upmix_lib::HrirSet& ears,
                 const upmix_lib::EqualizerTuning* equalizer, PlanePowers* planes) {
  return MakeChain<MusicSystem>(parameters, ears, equalizer, planes);
}

Chain CinemaChain(const upmix_lib::CinemaParameters& parameters, const upmix_lib::HrirSet& ears,
                  const upmix_lib::EqualizerTuning* equalizer, PlanePowers* planes) {
  return MakeChain<CinemaSystem>(parameters, ears, equalizer, planes);
}

ChainLoudness MeasureChain(const std::function<Chain()>& make_chain) {
  return {GainLu(make_chain(), Image::kCentre), GainLu(make_chain(), Image::kLeft),
          GainLu(make_chain(), Image::kDiffuse)};
}

}  // namespace kelda::tools
