#include "tools/ears/hrtf_directions.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstddef>
#include <numbers>
#include <optional>

namespace kelda::tools {
namespace {

using upmix_lib::HrirPlane;

constexpr double kDegree = std::numbers::pi / 180.0;

using Vector = std::array<double, 3>;

Vector UnitVector(const HrirPlane& direction) {
  const double azimuth = direction.azimuth_deg * kDegree;
  const double elevation = direction.elevation_deg * kDegree;
  return {std::cos(elevation) * std::cos(azimuth), std::cos(elevation) * std::sin(azimuth),
          std::sin(elevation)};
}

double Dot(const Vector& a, const Vector& b) { return a[0] * b[0] + a[1] * b[1] + a[2] * b[2]; }

Vector Cross(const Vector& a, const Vector& b) {
  return {a[1] * b[2] - a[2] * b[1], a[2] * b[0] - a[0] * b[2], a[0] * b[1] - a[1] * b[0]};
}

double AngleDeg(const Vector& a, const Vector& b) {
  return std::acos(std::clamp(Dot(a, b), -1.0, 1.0)) / kDegree;
}

struct Candidate {
  std::size_t index;
  Vector at;
  double distance_deg;
};

using Weights = std::vector<double>;

// The weights with which the directions of `corners` add up to that of `target`. Returns nothing if
// a weight would be negative, which means that `target` is outside, or if the corners are too close
// to a line.
std::optional<Weights> WeightsOn(std::span<const Candidate* const> corners, const Vector& target) {
  constexpr double kFlat = 1e-6, kRounding = 1e-9;
  Weights weights;
  if (corners.size() == 2) {
    const Vector &a = corners[0]->at, &b = corners[1]->at;
    const double ab = Dot(a, b), at = Dot(a, target), bt = Dot(b, target);
    const double flat = 1 - ab * ab;
    if (flat < kFlat) {
      return std::nullopt;
    }
    weights = {(at - ab * bt) / flat, (bt - ab * at) / flat};
    Vector sum{};
    for (std::size_t i = 0; i < 3; ++i) {
      sum[i] = weights[0] * a[i] + weights[1] * b[i];
    }
    const double length = std::sqrt(Dot(sum, sum));
    for (double& x : sum) {
      x /= length;
    }
    if (AngleDeg(sum, target) > kSameDirectionDeg) {
      return std::nullopt;
    }
  } else {
    const Vector &a = corners[0]->at, &b = corners[1]->at, &c = corners[2]->at;
    const double volume = Dot(a, Cross(b, c));
    if (std::abs(volume) < kFlat) {
      return std::nullopt;
    }
    weights = {Dot(target, Cross(b, c)) / volume, Dot(target, Cross(c, a)) / volume,
               Dot(target, Cross(a, b)) / volume};
  }
  double sum = 0;
  for (double& weight : weights) {
    if (weight < -kRounding) {
      return std::nullopt;
    }
    weight = std::max(weight, 0.0);
    sum += weight;
  }
  for (double& weight : weights) {
    weight /= sum;
  }
  return weights;
}

// The arc or triangle around `target` with the smallest weighted distance of its corners.
std::vector<WeightedMeasurement> Surrounding(std::span<const Candidate> candidates,
                                             const Vector& target) {
  std::vector<WeightedMeasurement> best;
  double best_deg = 360.0;
  const auto consider = [&](std::initializer_list<const Candidate*> corners) {
    const auto weights = WeightsOn(corners, target);
    if (!weights) {
      return;
    }
    double mean_deg = 0;
    std::vector<WeightedMeasurement> found;
    std::size_t i = 0;
    for (const Candidate* corner : corners) {
      const double weight = (*weights)[i++];
      mean_deg += weight * corner->distance_deg;
      if (weight > 0) {
        found.push_back({corner->index, weight, corner->distance_deg});
      }
    }
    if (mean_deg < best_deg) {
      best_deg = mean_deg;
      best = std::move(found);
    }
  };
  for (std::size_t a = 0; a < candidates.size(); ++a) {
    for (std::size_t b = a + 1; b < candidates.size(); ++b) {
      consider({&candidates[a], &candidates[b]});
      for (std::size_t c = b + 1; c < candidates.size(); ++c) {
        consider({&candidates[a], &candidates[b], &candidates[c]});
      }
    }
  }
  return best;
}

}  // namespace

double DistanceDeg(const HrirPlane& a, const HrirPlane& b) {
  return AngleDeg(UnitVector(a), UnitVector(b));
}

std::vector<WeightedMeasurement> MeasurementsAt(std::span<const HrirPlane> measured,
                                                const HrirPlane& direction) {
  constexpr std::size_t kMaxCandidates = 48;
  constexpr double kRoundingDeg = 1e-4;  // positions are floats
  const Vector target = UnitVector(direction);
  std::vector<Candidate> candidates;
  for (std::size_t m = 0; m < measured.size(); ++m) {
    const Vector at = UnitVector(measured[m]);
    const double distance_deg = AngleDeg(at, target);
    if (distance_deg <= kFarthestNeighbourDeg + kRoundingDeg) {
      candidates.push_back({m, at, distance_deg});
    }
  }
  std::stable_sort(
      candidates.begin(), candidates.end(),
      [](const Candidate& a, const Candidate& b) { return a.distance_deg < b.distance_deg; });
  if (candidates.size() > kMaxCandidates) {
    candidates.resize(kMaxCandidates);
  }
  if (candidates.empty()) {
    return {};
  }
  const Candidate& nearest = candidates.front();
  const WeightedMeasurement alone{nearest.index, 1.0, nearest.distance_deg};
  if (nearest.distance_deg <= kSameDirectionDeg) {
    return {alone};
  }
  if (auto found = Surrounding(candidates, target); !found.empty()) {
    return found;
  }
  if (nearest.distance_deg <= kFarthestAloneDeg) {
    return {alone};
  }
  return {};
}

SphereShares ShareSphere(std::span<const HrirPlane> measured) {
  // Points on a Fibonacci spiral have equal areas (Gonzalez, "Measurement of areas on a
  // sphere using Fibonacci and latitude-longitude lattices", 2010).
  constexpr int kPoints = 4000;
  const double golden_angle = std::numbers::pi * (3 - std::sqrt(5.0));
  const double farthest = std::cos(kFarthestNeighbourDeg * kDegree);
  std::vector<Vector> at;
  for (const HrirPlane& direction : measured) {
    at.push_back(UnitVector(direction));
  }
  SphereShares shares{std::vector<double>(measured.size()), 0};
  for (int i = 0; i < kPoints; ++i) {
    const double z = 1 - (2.0 * i + 1) / kPoints;
    const double radius = std::sqrt(1 - z * z);
    const Vector point = {radius * std::cos(golden_angle * i), radius * std::sin(golden_angle * i),
                          z};
    std::size_t nearest = 0;
    double closest = -2;
    for (std::size_t m = 0; m < at.size(); ++m) {
      if (const double cosine = Dot(at[m], point); cosine > closest) {
        closest = cosine;
        nearest = m;
      }
    }
    if (closest < farthest) {
      continue;
    }
    shares.of_measurement[nearest] += 1.0 / kPoints;
    shares.covered += 1.0 / kPoints;
  }
  return shares;
}

}  // namespace kelda::tools
