// Chooses the measurements for a direction, which may lie between them.
#ifndef KELDA_TOOLS_EARS_HRTF_DIRECTIONS_H_
#define KELDA_TOOLS_EARS_HRTF_DIRECTIONS_H_

#include <cstddef>
#include <span>
#include <vector>

#include "upmix-lib/binaural/hrir_format.h"

namespace kelda::tools {

// Great-circle distance, 0..180 degrees.
double DistanceDeg(const upmix_lib::HrirPlane& a, const upmix_lib::HrirPlane& b);

struct WeightedMeasurement {
  std::size_t index;
  double weight;  // above 0; those of one direction add up to 1
  double distance_deg;
};

inline constexpr double kSameDirectionDeg = 0.5;
inline constexpr double kFarthestNeighbourDeg = 15.0;
inline constexpr double kFarthestAloneDeg = 5.0;

// The measurements for `direction`, the nearest first:
// - the nearest alone, if it is within kSameDirectionDeg;
// - else the closest two or three, each within kFarthestNeighbourDeg, whose arc or triangle on the
//   sphere contains `direction` (weights as in V. Pulkki, "Virtual sound source positioning using
//   vector base amplitude panning", 1997);
// - else the nearest alone, if it is within kFarthestAloneDeg;
// - else none.
std::vector<WeightedMeasurement> MeasurementsAt(std::span<const upmix_lib::HrirPlane> measured,
                                                const upmix_lib::HrirPlane& direction);

// For each measurement, the share of the sphere that is nearer to it than to any other. Only the
// part of the sphere within kFarthestNeighbourDeg of a measurement counts.
struct SphereShares {
  std::vector<double> of_measurement;
  double covered;  // their sum, 0..1
};
SphereShares ShareSphere(std::span<const upmix_lib::HrirPlane> measured);

}  // namespace kelda::tools

#endif  // KELDA_TOOLS_EARS_HRTF_DIRECTIONS_H_
