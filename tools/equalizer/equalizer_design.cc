#include "tools/equalizer/equalizer_design.h"

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <vector>

#include "tools/core/decibels.h"
#include "tools/core/file_problems.h"
#include "tools/core/format.h"
#include "tools/measure/spectrum.h"
#include "upmix-lib/base/audio_format.h"

namespace kelda::tools {
namespace {

using upmix_lib::EqualizerForm;
using upmix_lib::EqualizerTuning;

constexpr std::size_t kFftSize = 65536;
constexpr double kBinHz = double{upmix_lib::kSampleRateHz} / kFftSize;
constexpr double kGoodDb = 0.05;
constexpr double kFloorDb = -150;  // where a filter has a zero

// Gain at each bin, in dB relative to the largest.
std::vector<double> TargetDb(const EqualizerResponse& response, double largest_db) {
  std::vector<double> target_db(kFftSize / 2 + 1);
  for (std::size_t k = 0; k < target_db.size(); ++k) {
    const double gain_db = response.GainDb(static_cast<double>(k) * kBinHz) - largest_db;
    target_db[k] = std::max(gain_db, kFloorDb);
  }
  return target_db;
}

// The first `count` samples, the last eighth of them fading out.
std::vector<float> Cut(const std::vector<double>& response, std::size_t count) {
  std::vector<float> taps(count);
  for (std::size_t n = 0; n < count; ++n) {
    taps[n] = static_cast<float>(FadeOut(n, count) * response[n]);
  }
  return taps;
}

double DeviationDb(const SpectrumAnalysis& analysis, const std::vector<float>& taps,
                   const std::vector<double>& target_db) {
  constexpr double kAudibleHz[] = {20, 20000};
  constexpr double kFaintDb = -60;  // below it a deviation is not heard
  const Power power = analysis.PowerOf(taps);
  double deviation_db = 0;
  for (auto k = static_cast<std::size_t>(kAudibleHz[0] / kBinHz);
       static_cast<double>(k) * kBinHz <= kAudibleHz[1]; ++k) {
    if (target_db[k] < kFaintDb) {
      continue;
    }
    const double gain_db = PowerToDb(power[k]);
    deviation_db = std::max(deviation_db, std::abs(gain_db - target_db[k]));
  }
  return deviation_db;
}

void DesignFir(const EqualizerResponse& response, EqualizerDesign* design) {
  const SpectrumAnalysis analysis(kFftSize);
  const std::vector<double> target_db = TargetDb(response, design->peak.gain_db);
  Power power(target_db.size());
  std::transform(target_db.begin(), target_db.end(), power.begin(),
                 [](double db) { return std::pow(10, db / 10); });
  const std::vector<double> whole = analysis.Inverse(analysis.MinimumPhase(power));

  EqualizerTuning::Curve& curve = design->tuning.curves.front();
  for (std::size_t count = 256; count <= upmix_lib::kMaxEqualizerTaps; count *= 2) {
    curve.taps = Cut(whole, count);
    design->deviation_db = DeviationDb(analysis, curve.taps, target_db);
    if (design->deviation_db <= kGoodDb) {
      break;
    }
  }
  design->tuning.form = EqualizerForm::kFir;
  design->tuning.preamp_db = static_cast<float>(design->peak.gain_db);
}

}  // namespace

EqualizerDesign DesignEqualizer(const EqualizerText& text, const std::string& name) {
  const EqualizerResponse response(text);
  const EqualizerResponse::Peak peak = response.FindPeak();
  EqualizerDesign design{{}, peak, 0, text.preamp_db - peak.gain_db};
  design.tuning.curves.resize(1);
  if (text.graphic_curves.empty() && text.bands.size() <= upmix_lib::kMaxEqualizerBands) {
    design.tuning.form = EqualizerForm::kBands;
    design.tuning.preamp_db = static_cast<float>(text.preamp_db);
    design.tuning.curves.front().bands = text.bands;
    return design;
  }
  if (!(design.peak.gain_db >= upmix_lib::kPreampMinDb &&
        design.peak.gain_db <= upmix_lib::kPreampMaxDb)) {
    FileProblems problems(name);
    problems.Add(0, "the largest gain is out of range (" + std::to_string(design.peak.gain_db) +
                        " dB, -60 to 24 dB)");
    problems.ThrowIfAny();
  }
  DesignFir(response, &design);
  return design;
}

std::string DescribeEqualizer(const EqualizerDesign& design) {
  const EqualizerTuning& tuning = design.tuning;
  const EqualizerTuning::Curve& curve = tuning.curves.front();
  const std::string form =
      tuning.form == EqualizerForm::kBands
          ? Format("equalizer       %zu band%s, preamp %.2f dB\n", curve.bands.size(),
                   curve.bands.size() == 1 ? "" : "s", static_cast<double>(tuning.preamp_db))
          : Format(
                "equalizer       minimum-phase FIR of %zu taps, within %.3f dB of the text "
                "(20 Hz to 20 kHz)\n",
                curve.taps.size(), design.deviation_db);
  return form + Format(
                    "response peak   %+.2f dB at %.0f Hz\n"
                    "headroom left   %.2f dB\n",
                    design.peak.gain_db, design.peak.freq_hz, -design.peak.gain_db);
}

std::string ClippingWarning(const EqualizerDesign& design, const std::string& name) {
  constexpr double kInaudibleDb = 0.2;
  constexpr double kRoundingDb = 0.005;
  if (design.peak.gain_db < kInaudibleDb - kRoundingDb) {
    return {};
  }
  return "kelda: " + name +
         Format(
             ": warning: amplifies by up to %.2f dB at %.0f Hz, so that loud music may clip; "
             "a safe preamp is %.1f dB",
             design.peak.gain_db, design.peak.freq_hz,
             std::floor(10 * (design.safe_preamp_db + kRoundingDb)) / 10);
}

}  // namespace kelda::tools
