#include "tools/measure/level_figures.h"

#include <algorithm>
#include <cmath>
#include <functional>
#include <span>

#include "tools/core/decibels.h"

namespace kelda::tools {
namespace {

// The sum of all channels' powers from frame `first` on.
double MeanPower(const Channels& signal, std::size_t first, std::size_t count) {
  double sum = 0;
  for (const std::vector<float>& channel : signal) {
    for (std::size_t n = first; n < first + count; ++n) {
      sum += double{channel[n]} * double{channel[n]};
    }
  }
  return sum / static_cast<double>(count);
}

void Append(Channels* to, const Channels& from, double gain) {
  for (std::size_t c = 0; c < to->size(); ++c) {
    for (const float sample : from[c]) {
      (*to)[c].push_back(static_cast<float>(gain * double{sample}));
    }
  }
}

// Windows of 0.1 s of `out` over those of `settled`, in dB: what the gain is off.
std::vector<double> GainsOffDb(const Channels& out, const Channels& settled) {
  constexpr std::size_t kWindow = kSoundRate / 10;
  std::vector<double> gains_db;
  for (std::size_t at = 0; at + kWindow <= std::min(out[0].size(), settled[0].size());
       at += kWindow) {
    gains_db.push_back(
        PowerToDb(MeanPower(out, at, kWindow) / std::max(MeanPower(settled, at, kWindow), 1e-20)));
  }
  return gains_db;
}

// `programme` is played as often as `gains` says, each time with its gain; the last time counts as
// settled. For how long from turn `first` on, in s, `off` holds for what the level is off it, in
// dB.
double SecondsOff(const StereoSystem& system, const Channels& programme,
                  std::span<const double> gains, std::size_t first,
                  const std::function<bool(double)>& off) {
  Channels in(2);
  for (const double gain : gains) {
    Append(&in, programme, gain);
  }
  const Channels out = system(in);
  const std::size_t length = programme[0].size(), last = gains.size() - 1;
  const Channels settled = Part(out, last * length, length);
  double seconds = 0;
  for (std::size_t turn = first; turn < last; ++turn) {
    const std::vector<double> gains_db = GainsOffDb(Part(out, turn * length, length), settled);
    for (std::size_t i = 0; i < gains_db.size(); ++i) {
      if (off(gains_db[i])) {
        seconds = static_cast<double>((turn - first) * gains_db.size() + i + 1) / 10;
      }
    }
  }
  return seconds;
}

}  // namespace

std::vector<double> HandoverGainsDb(const ModalSystem& system, const Channels& programme,
                                    const std::string& from, const std::string& to) {
  constexpr std::size_t kChange = 20 * kSoundRate;
  return GainsOffDb(system(programme, from, to, kChange), system(programme, to, to, kChange));
}

double HandoverDb(const std::vector<double>& gains_db) {
  return -*std::min_element(gains_db.begin() + kChangeWindow + 2,
                            gains_db.begin() + kChangeWindow + 15);
}

double SettlingSeconds(const StereoSystem& system, const Channels& programme, double within_db) {
  constexpr double kEven[] = {1, 1, 1, 1, 1, 1, 1, 1};
  return SecondsOff(system, programme, kEven, 0,
                    [within_db](double db) { return std::abs(db) > within_db; });
}

double JumpSeconds(const StereoSystem& system, const Channels& programme) {
  const double high = std::pow(10.0, 18.0 / 20);
  const double gains[] = {1, 1, 1, 1, high, high, high, high};
  return SecondsOff(system, programme, gains, 4, [](double db) { return db > 3; });
}

}  // namespace kelda::tools
