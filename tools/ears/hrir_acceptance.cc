#include "tools/ears/hrir_acceptance.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstddef>
#include <span>

#include "tools/core/decibels.h"
#include "tools/core/file_problems.h"
#include "tools/core/format.h"
#include "tools/measure/hrir_cues.h"
#include "tools/measure/spectrum.h"

namespace kelda::tools {
namespace {

using upmix_lib::HrirSet;
using upmix_lib::kEars;
using upmix_lib::kPlaneDirections;
using upmix_lib::kPlanes;

constexpr std::array<int, kPlanes> kMirrored = {1, 0, 2, 4, 3, 6, 5};
constexpr std::size_t kFftSize = 4096;

// The gains of a set over frequency, in dB.
class Gains {
 public:
  explicit Gains(const HrirSet& set) : analysis_(kFftSize) {
    for (int plane = 0; plane < kPlanes; ++plane) {
      for (int ear = 0; ear < kEars; ++ear) {
        Power gains_db = analysis_.PowerOf(set.response(plane, ear));
        for (double& gain : gains_db) {
          gain = PowerToDb(gain);
        }
        gains_db_.push_back(std::move(gains_db));
      }
    }
  }

  double PeakDb(std::size_t plane, std::size_t ear) const {
    const Power& gains_db = at(plane, ear);
    return *std::max_element(gains_db.begin(), gains_db.end());
  }

  // How much both ears differ from the opposite ears of the mirrored loudspeaker, on average.
  double AsymmetryDb(std::size_t plane) const {
    const auto mirrored = static_cast<std::size_t>(kMirrored[plane]);
    return 0.5 *
           (DistanceDb(at(plane, 0), at(mirrored, 1)) + DistanceDb(at(plane, 1), at(mirrored, 0)));
  }

  // How much the two ears differ from each other, on average.
  double InterauralDb(std::size_t plane) const { return DistanceDb(at(plane, 0), at(plane, 1)); }

 private:
  // The mean difference from 200 Hz to 16 kHz; every octave has the same weight.
  static double DistanceDb(const Power& a_db, const Power& b_db) {
    constexpr double kBinHz = double{upmix_lib::kSampleRateHz} / kFftSize;
    double sum = 0, weights = 0;
    for (auto k = static_cast<std::size_t>(200 / kBinHz); static_cast<double>(k) * kBinHz < 16000;
         ++k) {
      const double weight = 1.0 / static_cast<double>(k);
      sum += weight * std::abs(a_db[k] - b_db[k]);
      weights += weight;
    }
    return sum / weights;
  }

  const Power& at(std::size_t plane, std::size_t ear) const {
    return gains_db_[plane * kEars + ear];
  }

  SpectrumAnalysis analysis_;
  std::vector<Power> gains_db_;  // [plane][ear]
};

double InterauralUs(const HrirPlaneOrigin& origin) { return 1e6 * origin.interaural_s; }

void CheckPlane(const HrirDesign& design, const Gains& gains, std::size_t plane,
                FileProblems* problems) {
  const HrirPlaneOrigin& origin = design.origins[plane];
  const auto azimuth_deg = double{kPlaneDirections[plane].azimuth_deg};
  const double interaural_us = InterauralUs(origin);
  if (std::abs(interaural_us) > kMaxInterauralDelayUs) {
    problems->Add(0, Format("the interaural delay at azimuth %g is too long for a head (%.0f us, "
                            "at most %g us)",
                            azimuth_deg, std::abs(interaural_us), kMaxInterauralDelayUs));
  } else if (interaural_us * azimuth_deg < 0) {
    problems->Add(0, Format("the ears are exchanged: sound from azimuth %g reaches the farther ear "
                            "first (by %.0f us, allowed: none)",
                            azimuth_deg, std::abs(interaural_us)));
  }
  for (std::size_t ear = 0; ear < kEars; ++ear) {
    const char* const side = ear == 0 ? "left" : "right";
    if (const double lost_db = PowerToDb(origin.lost[ear]); lost_db > kMaxLostDb) {
      problems->Add(0, Format("too much of the response at azimuth %g, %s ear, is cut off (%.1f dB "
                              "of its energy, at most %g dB)",
                              azimuth_deg, side, lost_db, kMaxLostDb));
    }
    if (const double peak_db = gains.PeakDb(plane, ear); !(peak_db <= kMaxPeakDb)) {
      problems->Add(0, Format("the gain at azimuth %g, %s ear, is too large (%.1f dB, at most %g "
                              "dB)",
                              azimuth_deg, side, peak_db, kMaxPeakDb));
    }
  }
}

// A warning if the ears differ too little in delay, or in delay and level, to give a direction. The
// limits are the smallest differences that can be heard (Blauert, "Spatial Hearing", 1997).
std::string DirectionWarning(double longest_us, double apart_db) {
  constexpr double kJustHeardUs = 10, kJustHeardDb = 0.5;
  if (longest_us >= kJustHeardUs) {
    return "";
  }
  if (apart_db >= kJustHeardDb) {
    return "warning         no loudspeaker has a delay between the ears: they place sounds by "
           "level\n"
           "                alone. Are the delays missing in the file (Data.Delay)?\n";
  }
  return "warning         these ears give no direction: every loudspeaker reaches both ears at "
         "once\n"
         "                and equally loud. All sound will be in the middle of the head\n";
}

}  // namespace

void CheckHrirs(const HrirDesign& design, const std::string& name) {
  const Gains gains(design.set);
  FileProblems problems(name);
  for (std::size_t plane = 0; plane < kPlanes; ++plane) {
    CheckPlane(design, gains, plane, &problems);
  }
  for (const float tap : design.set.responses) {
    if (!(std::fabs(tap) <= upmix_lib::kMaxHrirTap)) {
      problems.Add(0, Format("a tap is out of range (%g, -16 to 16)", static_cast<double>(tap)));
      break;
    }
  }
  problems.ThrowIfAny();
}

std::string DescribeHrirs(const HrirDesign& design, const MeasuredEars& sofa) {
  const HrirSet& set = design.set;
  const Gains gains(set);
  std::string text;
  text += "source          " + (set.source.empty() ? "(not named)" : set.source) + "\n";
  text += "licence         " + (set.licence.empty() ? "(not named)" : set.licence) + "\n";
  text += "  in the file   " + (sofa.licence.empty() ? "(none)" : sofa.licence) + "; database " +
          (sofa.database.empty() ? "(not named)" : sofa.database) + "\n";
  text += Format("measurements    %zu at %g m, %zu taps at %g Hz, around %.0f %% of the sphere\n",
                 sofa.directions.size(), sofa.distance_m, sofa.taps, sofa.sample_rate_hz,
                 100 * design.sphere_covered);
  text += Format("responses       %d x 2 of %d taps at %d Hz\n\n", kPlanes, set.taps,
                 upmix_lib::kSampleRateHz);
  text +=
      "speaker  azimuth  made of  nearest  farthest   peak gain, dB   right ear     cut off, dB\n"
      "             deg              deg       deg     left   right   later, us    left   right\n";
  double worst_db = 0, worst_us = 0, apart_db = 0, longest_us = 0, shortest_us = 1e9,
         peak_db = -1000;
  for (std::size_t p = 0; p < kPlanes; ++p) {
    const HrirPlaneOrigin& origin = design.origins[p];
    text += Format("%-7s  %+7.0f  %7d  %7.1f  %8.1f  %+7.1f %+7.1f  %+10.0f  %6.0f  %6.0f\n",
                   PlaneName(static_cast<int>(p)), double{kPlaneDirections[p].azimuth_deg},
                   origin.measurements, origin.nearest_deg, origin.farthest_deg, gains.PeakDb(p, 0),
                   gains.PeakDb(p, 1), InterauralUs(origin), PowerToDb(origin.lost[0]),
                   PowerToDb(origin.lost[1]));
    worst_db = std::max(worst_db, gains.AsymmetryDb(p));
    apart_db = std::max(apart_db, gains.InterauralDb(p));
    const HrirPlaneOrigin& mirrored = design.origins[static_cast<std::size_t>(kMirrored[p])];
    worst_us = std::max(worst_us, std::abs(InterauralUs(origin) + InterauralUs(mirrored)));
    longest_us = std::max(longest_us, std::abs(InterauralUs(origin)));
    shortest_us = std::min(shortest_us, std::abs(InterauralUs(origin)));
    peak_db = std::max({peak_db, gains.PeakDb(p, 0), gains.PeakDb(p, 1)});
  }
  text += Format(
      "\nsymmetry        left and right differ by %.1f dB and %.0f us at most\n"
      "peak gain       %+.1f dB\n"
      "delay range     %.0f to %.0f us between the ears\n",
      worst_db, worst_us, peak_db, shortest_us, longest_us);
  return text + DirectionWarning(longest_us, apart_db);
}

}  // namespace kelda::tools
