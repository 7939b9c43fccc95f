#include "tools/measure/level_figures.h"

#include <algorithm>
#include <cmath>

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
  Channels in(2);
  for (int i = 0; i < 8; ++i) {
    Append(&in, programme, 1);
  }
  const std::size_t length = programme[0].size();
  const Channels out = system(in);
  // What follows is compared with the last time that the programme was played.
  double settled = 0;
  for (std::size_t turn = 0; turn < 7; ++turn) {
    const std::vector<double> gains_db =
        GainsOffDb(Part(out, turn * length, length), Part(out, 7 * length, length));
    for (std::size_t i = 0; i < gains_db.size(); ++i) {
      if (std::abs(gains_db[i]) > within_db) {
        settled = static_cast<double>(turn * gains_db.size() + i + 1) / 10;
      }
    }
  }
  return settled;
}

double JumpSeconds(const StereoSystem& system, const Channels& programme) {
  Channels in(2);
  for (int i = 0; i < 8; ++i) {
    Append(&in, programme, i < 4 ? 1 : std::pow(10.0, 18.0 / 20));
  }
  const std::size_t length = programme[0].size();
  const Channels out = system(in);
  double high = 0;
  for (std::size_t turn = 4; turn < 7; ++turn) {
    const std::vector<double> gains_db =
        GainsOffDb(Part(out, turn * length, length), Part(out, 7 * length, length));
    for (std::size_t i = 0; i < gains_db.size(); ++i) {
      if (gains_db[i] > 3) {
        high = static_cast<double>((turn - 4) * gains_db.size() + i + 1) / 10;
      }
    }
  }
  return high;
}

}  // namespace kelda::tools
