#include "tools/sofa_hrirs.h"

#include <algorithm>
#include <bit>
#include <cmath>
#include <cstdio>
#include <vector>

#include "tools/file_problems.h"
#include "tools/hrir_spectra.h"
#include "tools/hrtf_directions.h"

namespace kelda::tools {
namespace {

using upmix_lib::HrirPlane;
using upmix_lib::kEars;
using upmix_lib::kPlaneDirections;
using upmix_lib::kPlanes;
using upmix_lib::kSampleRateHz;

constexpr std::size_t kTapsFftSize = 8192;

// Bins as narrow as those of the taps, and room for the whole response twice.
std::size_t MeasuredFftSize(const MeasuredEars& sofa) {
  const auto as_narrow =
      static_cast<std::size_t>(kTapsFftSize * sofa.sample_rate_hz / kSampleRateHz);
  return std::bit_ceil(std::max(as_narrow, 2 * sofa.taps));
}

// What a direction has at one ear, before it is equalised.
struct Measured {
  Power power;
  double delay_s;
};

class Designer {
 public:
  Designer(const MeasuredEars& sofa, const std::string& name, const HrirOptions& options,
           const std::function<void(double)>& progress)
      : sofa_(sofa),
        name_(name),
        options_(options),
        measured_(MeasuredFftSize(sofa)),
        tapped_(kTapsFftSize),
        shares_(ShareSphere(sofa.directions)),
        diffuse_(Smoothed(DiffuseField(progress))) {}

  HrirDesign Design() {
    HrirDesign design;
    design.set.room = options_.room;
    design.set.taps = options_.taps;
    design.sphere_covered = shares_.covered;
    std::copy_n(kPlaneDirections, kPlanes, design.set.directions.begin());
    for (std::size_t p = 0; p < kPlanes; ++p) {
      design.origins[p] = AddPlane(kPlaneDirections[p], &design.set.responses);
    }
    return design;
  }

 private:
  // The power mean of both ears over the sphere, as far as it was measured.
  Power DiffuseField(const std::function<void(double)>& progress) const {
    constexpr std::size_t kBetweenReports = 32;
    Power mean(measured_.bins());
    for (std::size_t m = 0; m < sofa_.directions.size(); ++m) {
      if (m % kBetweenReports == 0) {
        progress(static_cast<double>(m) / static_cast<double>(sofa_.directions.size()));
      }
      const double weight = shares_.of_measurement[m] / (kEars * shares_.covered);
      if (weight == 0) continue;
      for (std::size_t ear = 0; ear < kEars; ++ear) {
        const Power power = measured_.PowerOf(sofa_.response(m, ear));
        for (std::size_t k = 0; k < mean.size(); ++k) mean[k] += weight * power[k];
      }
    }
    return mean;
  }

  std::vector<WeightedMeasurement> Near(const HrirPlane& direction) const {
    auto found = MeasurementsAt(sofa_.directions, direction);
    if (!found.empty()) return found;
    double nearest_deg = 360;
    for (const HrirPlane& measured : sofa_.directions) {
      nearest_deg = std::min(nearest_deg, Distance_deg(measured, direction));
    }
    char text[256];
    std::snprintf(text, sizeof(text),
                  "no measurements around azimuth %g, elevation %g degrees (the nearest is %.1f "
                  "degrees away, at most %g, or %g on every side)",
                  static_cast<double>(direction.azimuth_deg),
                  static_cast<double>(direction.elevation_deg), nearest_deg, kFarthestAlone_deg,
                  kFarthestNeighbour_deg);
    throw FileFailure(name_ + ": " + text);
  }

  Measured At(const std::vector<WeightedMeasurement>& measurements, std::size_t ear) const {
    Measured at{Power(measured_.bins()), 0};
    for (const WeightedMeasurement& m : measurements) {
      const auto taps = sofa_.response(m.index, ear);
      const Power power = measured_.PowerOf(taps);
      for (std::size_t k = 0; k < power.size(); ++k) at.power[k] += m.weight * power[k];
      at.delay_s += m.weight * (sofa_.delay_s(m.index, ear) +
                                PureDelay_s(measured_, taps, sofa_.sample_rate_hz));
    }
    return at;
  }

  // The mean of a direction's ear and the other ear of the mirrored direction.
  static Measured Mean(const Measured& a, const Measured& b) {
    Measured mean = a;
    for (std::size_t k = 0; k < mean.power.size(); ++k) {
      mean.power[k] = 0.5 * (a.power[k] + b.power[k]);
    }
    mean.delay_s = 0.5 * (a.delay_s + b.delay_s);
    return mean;
  }

  // Adds the taps of the left and of the right ear to `responses`.
  HrirPlaneOrigin AddPlane(const HrirPlane& direction, std::vector<float>* responses) const {
    const auto here = Near(direction);
    HrirPlaneOrigin origin{static_cast<int>(here.size()), 360, 0, {}, {}};
    for (const WeightedMeasurement& m : here) {
      origin.nearest_deg = std::min(origin.nearest_deg, m.distance_deg);
      origin.farthest_deg = std::max(origin.farthest_deg, m.distance_deg);
    }
    Measured ears[kEars] = {At(here, 0), At(here, 1)};
    if (options_.symmetric) {
      const auto mirrored = Near({-direction.azimuth_deg, direction.elevation_deg});
      ears[0] = Mean(ears[0], At(mirrored, 1));
      ears[1] = Mean(ears[1], At(mirrored, 0));
      // Measured apart, each from its own loudspeaker position: only differences count.
      if (direction.azimuth_deg == 0.0f) ears[0].delay_s = ears[1].delay_s;
    }
    Power powers[kEars];
    for (std::size_t ear = 0; ear < kEars; ++ear) {
      powers[ear] =
          Equalized(Smoothed(ears[ear].power), diffuse_, measured_, sofa_.sample_rate_hz, tapped_);
    }
    TameColour(options_.colour_removed, &powers[0], &powers[1]);
    const double earlier_s = std::min(ears[0].delay_s, ears[1].delay_s);
    for (std::size_t ear = 0; ear < kEars; ++ear) {
      origin.delay_s[ear] = ears[ear].delay_s - earlier_s;
      const CutTaps cut = MakeTaps(tapped_, powers[ear], origin.delay_s[ear],
                                   static_cast<std::size_t>(options_.taps));
      origin.lost[ear] = cut.lost;
      responses->insert(responses->end(), cut.taps.begin(), cut.taps.end());
    }
    return origin;
  }

  const MeasuredEars& sofa_;
  const std::string& name_;
  const HrirOptions& options_;
  const SpectrumAnalysis measured_;  // at the file's sampling rate
  const SpectrumAnalysis tapped_;    // at 48 kHz
  const SphereShares shares_;
  const Power diffuse_;
};

// Cut to `bytes`, between characters of UTF-8.
std::string Cut(std::string text, std::size_t bytes) {
  if (text.size() <= bytes) return text;
  while (bytes > 0 && (static_cast<unsigned char>(text[bytes]) & 0xC0) == 0x80) --bytes;
  text.resize(bytes);
  return text;
}

std::string SourceOf(const MeasuredEars& sofa) {
  std::string source;
  for (const std::string* part : {&sofa.database, &sofa.listener, &sofa.author}) {
    if (part->empty()) continue;
    if (!source.empty()) source += ", ";
    source += *part;
  }
  return source;
}

}  // namespace

HrirDesign DesignHrirs(const MeasuredEars& sofa, const std::string& name,
                       const HrirOptions& options, const std::function<void(double)>& progress) {
  HrirDesign design = Designer(sofa, name, options, progress).Design();
  design.set.source = Cut(options.source.empty() ? SourceOf(sofa) : options.source,
                          sizeof(upmix_lib::HrirInfo::source) - 1);
  design.set.licence = Cut(options.licence.empty() ? sofa.licence : options.licence,
                           sizeof(upmix_lib::HrirInfo::licence) - 1);
  return design;
}

}  // namespace kelda::tools
