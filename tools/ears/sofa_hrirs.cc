#include "tools/ears/sofa_hrirs.h"

#include <algorithm>
#include <bit>
#include <cmath>
#include <cstddef>
#include <vector>

#include "tools/core/failure.h"
#include "tools/core/format.h"
#include "tools/ears/hrir_spectra.h"
#include "tools/ears/hrtf_directions.h"

namespace kelda::tools {
namespace {

using upmix_lib::HrirPlane;
using upmix_lib::kEars;
using upmix_lib::kPlaneDirections;
using upmix_lib::kPlanes;
using upmix_lib::kSampleRateHz;

constexpr std::size_t kTapsFftSize = 8192;

// Large enough for bins as narrow as those of the taps, and for twice the length of the response.
std::size_t MeasuredFftSize(const MeasuredEars& sofa) {
  const auto as_narrow =
      static_cast<std::size_t>(kTapsFftSize * sofa.sample_rate_hz / kSampleRateHz);
  return std::bit_ceil(std::max(as_narrow, 2 * sofa.taps));
}

// What was measured for a direction, before it is equalised.
struct Measured {
  Power power[kEars];
  double interaural_s;  // how much later the right ear hears it
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
    for (std::size_t p = 0; p < kPlanes; ++p) {
      design.origins[p] = AddPlane(kPlaneDirections[p], &design.set.responses);
    }
    return design;
  }

 private:
  // The power mean of both ears over the measured part of the sphere.
  Power DiffuseField(const std::function<void(double)>& progress) const {
    constexpr std::size_t kBetweenReports = 32;
    Power mean(measured_.bins());
    for (std::size_t m = 0; m < sofa_.directions.size(); ++m) {
      if (m % kBetweenReports == 0) {
        progress(static_cast<double>(m) / static_cast<double>(sofa_.directions.size()));
      }
      const double weight = shares_.of_measurement[m] / (kEars * shares_.covered);
      if (weight == 0) {
        continue;
      }
      for (std::size_t ear = 0; ear < kEars; ++ear) {
        const Power power = measured_.PowerOf(sofa_.response(m, ear));
        for (std::size_t k = 0; k < mean.size(); ++k) {
          mean[k] += weight * power[k];
        }
      }
    }
    return mean;
  }

  std::vector<WeightedMeasurement> Near(const HrirPlane& direction) const {
    auto found = MeasurementsAt(sofa_.directions, direction);
    if (!found.empty()) {
      return found;
    }
    double nearest_deg = 360;
    for (const HrirPlane& measured : sofa_.directions) {
      nearest_deg = std::min(nearest_deg, DistanceDeg(measured, direction));
    }
    throw Failure(
        ExitCode::kInput,
        name_ + ": " +
            Format("no measurements around azimuth %g, elevation %g degrees (the nearest is %.1f "
                   "degrees away; at most %g, or %g if there are some on every side)",
                   static_cast<double>(direction.azimuth_deg),
                   static_cast<double>(direction.elevation_deg), nearest_deg, kFarthestAloneDeg,
                   kFarthestNeighbourDeg));
  }

  Measured At(const std::vector<WeightedMeasurement>& measurements) const {
    const double bin_hz = sofa_.sample_rate_hz / static_cast<double>(measured_.size());
    Measured at{{Power(measured_.bins()), Power(measured_.bins())}, 0};
    for (const WeightedMeasurement& m : measurements) {
      Spectrum spectra[kEars];
      for (std::size_t ear = 0; ear < kEars; ++ear) {
        const auto taps = sofa_.response(m.index, ear);
        spectra[ear] = measured_.Forward(std::vector<double>(taps.begin(), taps.end()));
        for (std::size_t k = 0; k < spectra[ear].size(); ++k) {
          at.power[ear][k] += m.weight * std::norm(spectra[ear][k]);
        }
      }
      at.interaural_s += m.weight * (sofa_.delay_s(m.index, 1) - sofa_.delay_s(m.index, 0) +
                                     LagS(spectra[0], spectra[1], bin_hz));
    }
    return at;
  }

  // The mean of a direction and the mirrored one, whose ears are exchanged.
  static Measured Mean(const Measured& a, const Measured& mirrored) {
    Measured mean = a;
    for (std::size_t ear = 0; ear < kEars; ++ear) {
      for (std::size_t k = 0; k < mean.power[ear].size(); ++k) {
        mean.power[ear][k] = 0.5 * (a.power[ear][k] + mirrored.power[1 - ear][k]);
      }
    }
    mean.interaural_s = 0.5 * (a.interaural_s - mirrored.interaural_s);
    return mean;
  }

  // Adds the taps of the left and of the right ear to `responses`.
  HrirPlaneOrigin AddPlane(const HrirPlane& direction, std::vector<float>* responses) const {
    const auto here = Near(direction);
    Measured measured = At(here);
    if (options_.symmetric) {
      measured = Mean(measured, At(Near({-direction.azimuth_deg, direction.elevation_deg})));
    }
    Power powers[kEars];
    for (std::size_t ear = 0; ear < kEars; ++ear) {
      powers[ear] = Equalized(Smoothed(measured.power[ear]), diffuse_, measured_,
                              sofa_.sample_rate_hz, tapped_);
    }
    TameColour(options_.colour_removed, &powers[0], &powers[1]);
    const Spectrum spectra[kEars] = {SoftMinimumPhase(tapped_, powers[0]),
                                     SoftMinimumPhase(tapped_, powers[1])};

    HrirPlaneOrigin origin{static_cast<int>(here.size()), 360, 0, measured.interaural_s, {}};
    for (const WeightedMeasurement& m : here) {
      origin.nearest_deg = std::min(origin.nearest_deg, m.distance_deg);
      origin.farthest_deg = std::max(origin.farthest_deg, m.distance_deg);
    }
    // Between the minimum phases of different magnitudes there is already a delay.
    const double right_later_s =
        measured.interaural_s -
        LagS(spectra[0], spectra[1], double{kSampleRateHz} / static_cast<double>(tapped_.size()));
    const double delays_s[kEars] = {std::max(0.0, -right_later_s), std::max(0.0, right_later_s)};
    for (std::size_t ear = 0; ear < kEars; ++ear) {
      const CutTaps cut =
          MakeTaps(tapped_, spectra[ear], delays_s[ear], static_cast<std::size_t>(options_.taps));
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

// `text`, cut to at most `bytes` bytes and not inside a character of UTF-8.
std::string Cut(std::string text, std::size_t bytes) {
  if (text.size() <= bytes) {
    return text;
  }
  while (bytes > 0 && (static_cast<unsigned char>(text[bytes]) & 0xC0) == 0x80) {
    --bytes;
  }
  text.resize(bytes);
  return text;
}

std::string SourceOf(const MeasuredEars& sofa) {
  std::string source;
  for (const std::string* part : {&sofa.database, &sofa.listener, &sofa.author}) {
    if (part->empty()) {
      continue;
    }
    if (!source.empty()) {
      source += ", ";
    }
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
