// How the room's responses are made up; room.cc renders them.
#include <algorithm>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <random>
#include <utility>

#include "platform/math_constants.h"
#include "upmix-lib/base/decibels.h"
#include "upmix-lib/base/input_guard.h"
#include "upmix-lib/binaural/room.h"
#include "upmix-lib/filters/biquad_design.h"
#include "upmix-lib/transforms/fft.h"

namespace kelda::upmix_lib {
namespace {

constexpr double kSoundSpeedMPerS = 343.0;
constexpr double kRadians = kPi / 180.0;

// ---- Early reflections ---------------------------------------------------------------

// A shoebox in proportions that spread its modes (Sepmeyer, 1965: 1 : 1.39 : 1.54 and
// neighbours); the listener sits on its middle line, somewhat ahead of the centre.
// Axes: x ahead, y left, z up; the origin is the listener.
struct Shoebox {
  double ahead, behind, side, up, down, speaker_distance;  // in metres
};

Shoebox ShoeboxOf(double size_m) {
  return {.ahead = 0.45 * size_m,
          .behind = 0.55 * size_m,
          .side = 0.36 * size_m,
          .up = 0.29 * size_m,
          .down = 0.21 * size_m,
          .speaker_distance = 0.3 * size_m};
}

// One coordinate of the `order`-th image between walls at -`low` and `high`.
double ImageCoordinate(double source, int order, double low, double high) {
  const int trips = order / 2;  // there and back
  const double pair = 2 * trips * (low + high);
  if (order % 2 == 0) {
    return source + pair;
  }
  return (order > 0 ? 2 * high : -2 * low) - source + pair;
}

struct Reflection {
  double delay_s;  // after the direct sound
  double gain;     // relative to the direct sound
  double azimuth_deg, elevation_deg;
  int order;
};

constexpr int kMaxOrder = 2;  // of reflections

std::vector<Reflection> Reflections(double size_m, double source_azimuth_deg) {
  constexpr double kWallReflection = 0.7;
  const Shoebox box = ShoeboxOf(size_m);
  const double distance = box.speaker_distance;
  const double source_x = distance * std::cos(source_azimuth_deg * kRadians);
  const double source_y = distance * std::sin(source_azimuth_deg * kRadians);

  std::vector<Reflection> reflections;
  for (int i = -kMaxOrder; i <= kMaxOrder; ++i) {
    for (int j = -kMaxOrder; j <= kMaxOrder; ++j) {
      for (int k = -kMaxOrder; k <= kMaxOrder; ++k) {
        const int order = std::abs(i) + std::abs(j) + std::abs(k);
        if (order < 1 || order > kMaxOrder) {
          continue;
        }
        const double x = ImageCoordinate(source_x, i, box.behind, box.ahead);
        const double y = ImageCoordinate(source_y, j, box.side, box.side);
        const double z = ImageCoordinate(0.0, k, box.down, box.up);
        const double path = std::hypot(x, y, z);
        reflections.push_back({.delay_s = (path - distance) / kSoundSpeedMPerS,
                               .gain = distance / path * std::pow(kWallReflection, order),
                               .azimuth_deg = std::atan2(y, x) / kRadians,
                               .elevation_deg = std::asin(z / path) / kRadians,
                               .order = order});
      }
    }
  }
  return reflections;
}

int NearestPlane(double azimuth_deg, double elevation_deg) {
  int nearest = 0;
  double best_cosine = -2.0;
  for (int plane = 0; plane < kPlanes; ++plane) {
    const HrirPlane& direction = kPlaneDirections[plane];
    const double a = elevation_deg * kRadians, b = direction.elevation_deg * kRadians;
    const double turn = (azimuth_deg - direction.azimuth_deg) * kRadians;
    const double cosine = std::sin(a) * std::sin(b) + std::cos(a) * std::cos(b) * std::cos(turn);
    if (cosine > best_cosine) {
      best_cosine = cosine;
      nearest = plane;
    }
  }
  return nearest;
}

// `taps` damped by one pole at `corner_hz` for each of `order` walls.
std::vector<double> Damped(std::span<const float> taps, double corner_hz, int order) {
  std::vector<double> damped(taps.begin(), taps.end());
  const double pole = std::exp(-2.0 * kPi * corner_hz / kSampleRateHz);
  for (int i = 0; i < order; ++i) {
    double state = 0.0;
    for (double& tap : damped) {
      tap = state = (1.0 - pole) * tap + pole * state;
    }
  }
  return damped;
}

using Responses = std::vector<double>;  // [side][ear][tap]

// The room adds nothing below these. The tail would boom there, and the listener could not tell
// whether room or headphone booms. The few early reflections are as late as a period of 300 Hz is
// long: below 500 Hz they would colour the direct sound by more than 2 dB.
constexpr float kLateLowCutHz = 250.0f;
constexpr float kEarlyLowCutHz = 500.0f;

// A Butterworth high-pass of the second order.
void CutEarlyLows(double* taps, int count) {
  const Biquad section = DesignBiquad({BandType::kHighPass, kEarlyLowCutHz, 0.0f, 0.70710678f});
  double x1 = 0, x2 = 0, y1 = 0, y2 = 0;
  for (int n = 0; n < count; ++n) {
    const double x = taps[n];
    taps[n] =
        section.b0 * x + section.b1 * x1 + section.b2 * x2 - section.a1 * y1 - section.a2 * y2;
    x2 = std::exchange(x1, x);
    y2 = std::exchange(y1, taps[n]);
  }
}

// Scales what is not silent.
void ScaleToEnergy(double energy, Responses* responses) {
  double sum = 0.0;
  for (const double tap : *responses) {
    sum += tap * tap;
  }
  if (sum == 0.0) {
    return;
  }
  const double gain = std::sqrt(kRoomSides * energy / sum);
  for (double& tap : *responses) {
    tap *= gain;
  }
}

constexpr double kSideAzimuthDeg = 60.0;  // between front and side plane

// `taps` is at least EarlyTaps.
Responses EarlyResponses(const RoomParameters& room, const HrirSet& hrirs, int taps) {
  Responses early(static_cast<std::size_t>(kRoomSides * kEars * taps));
  std::vector<double> damped[kPlanes][kEars][kMaxOrder + 1];
  for (int side = 0; side < kRoomSides; ++side) {
    const double azimuth_deg = side == 0 ? kSideAzimuthDeg : -kSideAzimuthDeg;
    for (const Reflection& reflection : Reflections(room.size_m, azimuth_deg)) {
      const int plane = NearestPlane(reflection.azimuth_deg, reflection.elevation_deg);
      const int start = static_cast<int>(std::lround(reflection.delay_s * kSampleRateHz));
      for (int ear = 0; ear < kEars; ++ear) {
        std::vector<double>& echo = damped[plane][ear][reflection.order];
        if (echo.empty()) {
          echo = Damped(hrirs.response(plane, ear), room.damping_hz, reflection.order);
        }
        double* to = early.data() + (side * kEars + ear) * taps + start;
        for (const double tap : echo) {
          *to++ += reflection.gain * tap;
        }
      }
    }
    for (int ear = 0; ear < kEars; ++ear) {
      CutEarlyLows(&early[(side * kEars + ear) * taps], taps);
    }
  }
  return early;
}

int EarlyTaps(const RoomParameters& room, const HrirSet& hrirs) {
  double longest_s = 0.0;
  for (const Reflection& reflection : Reflections(room.size_m, kSideAzimuthDeg)) {
    longest_s = std::max(longest_s, reflection.delay_s);
  }
  return static_cast<int>(std::lround(longest_s * kSampleRateHz)) + hrirs.taps;
}

// ---- Late tail -----------------------------------------------------------------------

constexpr int kGrainFrames = 512;  // pieces of noise, half overlapping
constexpr int kGrainHopFrames = kGrainFrames / 2;

// The tail sets in about when sound has crossed the room once.
int LateStart(const RoomParameters& room) {
  return static_cast<int>(0.7 * room.size_m / kSoundSpeedMPerS * kSampleRateHz);
}

int LateTaps(const RoomParameters& room) {
  return LateStart(room) +
         std::max(kGrainFrames, static_cast<int>(room.decay_s * static_cast<float>(kSampleRateHz)));
}

double DiffuseCoherence(double freq_hz) {
  const double argument = kPi * freq_hz / 550.0;
  const double sinc = argument == 0.0 ? 1.0 : std::sin(argument) / argument;
  return sinc * std::max(0.0, 1.0 - freq_hz / 2700.0);
}

// A bin's share of two independent noises, a and b, in the first grain, and by what both
// fall from grain to grain.
struct LateBin {
  double a, b, decay;
};

// For every bin but the first and the last, which stay silent.
std::vector<LateBin> LateBins(const RoomParameters& room) {
  std::vector<LateBin> bins;
  for (int bin = 1; bin < kGrainFrames / 2; ++bin) {
    const double freq_hz = static_cast<double>(bin) * kSampleRateHz / kGrainFrames;
    const double decay_s = room.decay_s / (1.0 + freq_hz / room.damping_hz);
    const double gain = 1.0 / std::hypot(1.0, kLateLowCutHz / freq_hz);
    const double angle = 0.5 * std::acos(DiffuseCoherence(freq_hz));
    bins.push_back({gain * std::cos(angle), gain * std::sin(angle),
                    std::pow(10.0, -3.0 * kGrainHopFrames / kSampleRateHz / decay_s)});
  }
  return bins;
}

// Half a sine: overlapping noise keeps its power.
std::vector<double> GrainWindow() {
  std::vector<double> window(kGrainFrames);
  for (std::size_t n = 0; n < window.size(); ++n) {
    window[n] = std::sin(kPi * (static_cast<double>(n) + 0.5) / kGrainFrames);
  }
  return window;
}

// Adds grains of noise to either ear, shaped in the frequency domain: with a and b
// independent, a cos t + b sin t and a cos t - b sin t have the coherence cos 2t.
void AddLateSide(std::vector<LateBin> late, int grains, std::mt19937* generator, double* left,
                 double* right) {
  const std::vector<double> window = GrainWindow();
  const RealFft fft(kGrainFrames);
  const auto bins = static_cast<std::size_t>(fft.bins());
  std::vector<float> scratch(static_cast<std::size_t>(fft.scratch_floats()));
  std::vector<float> grain(kGrainFrames);
  std::vector<float> ear_re[kEars], ear_im[kEars];
  for (int ear = 0; ear < kEars; ++ear) {
    ear_re[ear].resize(bins);
    ear_im[ear].resize(bins);
  }
  const auto random = [&] {  // uniform, portable: std's distributions are not
    return static_cast<double>((*generator)()) / 4294967296.0 - 0.5;
  };

  for (int g = 0; g < grains; ++g) {
    for (std::size_t bin = 1; bin <= late.size(); ++bin) {
      auto& [a, b, decay] = late[bin - 1];
      const double a_re = a * random(), a_im = a * random();
      const double b_re = b * random(), b_im = b * random();
      ear_re[0][bin] = static_cast<float>(a_re + b_re);
      ear_im[0][bin] = static_cast<float>(a_im + b_im);
      ear_re[1][bin] = static_cast<float>(a_re - b_re);
      ear_im[1][bin] = static_cast<float>(a_im - b_im);
      a *= decay;
      b *= decay;
    }
    for (int ear = 0; ear < kEars; ++ear) {
      fft.Inverse(ear_re[ear].data(), ear_im[ear].data(), grain.data(), scratch.data());
      double* to = (ear == 0 ? left : right) + g * kGrainHopFrames;
      for (std::size_t n = 0; n < window.size(); ++n) {
        to[n] += window[n] * grain[n];
      }
    }
  }
}

Responses LateResponses(const RoomParameters& room, int taps) {
  constexpr uint32_t kSeed = 2;  // of three, the one that keeps the ears nearest to a diffuse field
  std::mt19937 generator(kSeed);
  Responses late(static_cast<std::size_t>(kRoomSides * kEars * taps));
  const int start = LateStart(room);
  const int grains = (LateTaps(room) - start) / kGrainHopFrames - 1;
  for (int side = 0; side < kRoomSides; ++side) {
    double* left = late.data() + side * kEars * taps + start;
    AddLateSide(LateBins(room), grains, &generator, left, left + taps);
  }
  // Half of the right side's power is the left side's, mirrored and turned: what both sides hear
  // alike, the centre, is then wide in the room rather than louder or softer by chance.
  const double half = std::sqrt(0.5);
  for (int ear = 0; ear < kEars; ++ear) {
    const double* mirrored = late.data() + (1 - ear) * taps;
    double* to = late.data() + (kEars + ear) * taps;
    for (int n = 0; n < taps; ++n) {
      to[n] = half * (to[n] - mirrored[n]);
    }
  }
  return late;
}

// The mean over the planes of the energy at both ears.
double DirectEnergy(const HrirSet& hrirs) {
  double energy = 0.0;
  for (const float tap : hrirs.responses) {
    energy += double{tap} * double{tap};
  }
  return energy / kPlanes;
}

}  // namespace

RoomResponses MakeRoomResponses(const RoomParameters& room, const HrirSet& hrirs) {
  const double direct_energy = DirectEnergy(hrirs);
  const bool early = room.early_level_db > kRoomOffDb;
  const bool late = room.late_level_db > kRoomOffDb;
  if (!early && !late) {
    return {};
  }

  const int early_taps = early ? EarlyTaps(room, hrirs) : 0, late_taps = late ? LateTaps(room) : 0;
  const int taps = std::max(early_taps, late_taps);
  RoomResponses made{taps, std::vector<float>(static_cast<std::size_t>(kRoomSides * kEars * taps))};
  const auto add = [&](Responses part, int part_taps, double level_db) {
    ScaleToEnergy(direct_energy * PowerFromDb(level_db), &part);
    for (int row = 0; row < kRoomSides * kEars; ++row) {
      const double* from = part.data() + row * part_taps;
      float* to = made.responses.data() + row * taps;
      for (int n = 0; n < part_taps; ++n) {
        to[n] += static_cast<float>(DropTiny(from[n]));
      }
    }
  };
  if (early) {
    add(EarlyResponses(room, hrirs, early_taps), early_taps, room.early_level_db);
  }
  if (late) {
    add(LateResponses(room, late_taps), late_taps, room.late_level_db);
  }
  return made;
}

}  // namespace kelda::upmix_lib
