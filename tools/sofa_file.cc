#include "tools/sofa_file.h"

#include <mysofa.h>

#include <cmath>
#include <memory>
#include <numbers>

#include "tools/failure.h"

namespace kelda::tools {
namespace {

using upmix_lib::HrirPlane;
using upmix_lib::kEars;

struct FreeHrtf {
  void operator()(MYSOFA_HRTF* hrtf) const { mysofa_free(hrtf); }
};

Failure Unusable(const std::string& path, const std::string& why) {
  return Failure(ExitCode::kInput, path + ": " + why);
}

// Great-circle distance, in degrees.
double Distance_deg(const HrirPlane& a, const HrirPlane& b) {
  constexpr double kRadians = std::numbers::pi / 180.0;
  const double cosine =
      std::sin(a.elevation_deg * kRadians) * std::sin(b.elevation_deg * kRadians) +
      std::cos(a.elevation_deg * kRadians) * std::cos(b.elevation_deg * kRadians) *
          std::cos((a.azimuth_deg - b.azimuth_deg) * kRadians);
  return std::acos(std::fmin(1.0, std::fmax(-1.0, cosine))) / kRadians;
}

}  // namespace

SofaFile ReadSofaFile(const std::string& path) {
  int error = MYSOFA_OK;
  const std::unique_ptr<MYSOFA_HRTF, FreeHrtf> hrtf(mysofa_load(path.c_str(), &error));
  if (!hrtf) throw Unusable(path, "no SOFA file (libmysofa error " + std::to_string(error) + ")");
  if (mysofa_check(hrtf.get()) != MYSOFA_OK || hrtf->R != kEars) {
    throw Unusable(path, "not free-field impulse responses of two ears");
  }
  mysofa_tospherical(hrtf.get());

  SofaFile sofa;
  sofa.sample_rate_hz = hrtf->DataSamplingRate.values[0];
  sofa.taps = hrtf->N;
  if (hrtf->DataIR.elements != std::size_t{hrtf->M} * hrtf->R * hrtf->N ||
      hrtf->SourcePosition.elements != std::size_t{hrtf->M} * hrtf->C) {
    throw Unusable(path, "its sizes contradict each other");
  }
  sofa.responses.assign(hrtf->DataIR.values, hrtf->DataIR.values + hrtf->DataIR.elements);
  for (std::size_t m = 0; m < hrtf->M; ++m) {
    const float* position = hrtf->SourcePosition.values + m * hrtf->C;
    sofa.directions.push_back({position[0], position[1]});
  }
  return sofa;
}

std::size_t NearestMeasurement(const SofaFile& sofa, const HrirPlane& direction) {
  constexpr double kFarthest_deg = 5.0;
  std::size_t nearest = 0;
  double least_deg = 360.0;
  for (std::size_t m = 0; m < sofa.directions.size(); ++m) {
    const double distance_deg = Distance_deg(sofa.directions[m], direction);
    if (distance_deg < least_deg) {
      least_deg = distance_deg;
      nearest = m;
    }
  }
  if (least_deg > kFarthest_deg) {
    throw Failure(ExitCode::kInput, "the nearest measurement to azimuth " +
                                        std::to_string(direction.azimuth_deg) + ", elevation " +
                                        std::to_string(direction.elevation_deg) + " is " +
                                        std::to_string(least_deg) + " degrees away, more than " +
                                        std::to_string(kFarthest_deg));
  }
  return nearest;
}

}  // namespace kelda::tools
