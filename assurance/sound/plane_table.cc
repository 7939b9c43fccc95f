#include "assurance/sound/plane_table.h"

#include <cmath>
#include <numbers>
#include <numeric>

#include "tools/measure/band_power.h"
#include "tools/measure/intelligibility.h"
#include "upmix-lib/base/audio_format.h"

namespace kelda::sound {
namespace {

using enum upmix_lib::Plane;
using enum Figure::Better;
using upmix_lib::Db;
using upmix_lib::PinkNoise;
using upmix_lib::Power;

constexpr std::size_t kSecond = 48000;

Signal Sum(const Signal& a, const Signal& b) {
  Signal sum = a;
  upmix_lib::AddTo(sum, b);
  return sum;
}

// Of zero-lag, between -1 and 1, behind the first second.
double Correlation(const Signal& a, const Signal& b) {
  double cross = 0;
  for (std::size_t n = kSecond; n < a.size(); ++n) {
    cross += double{a[n]} * double{b[n]};
  }
  return cross / (static_cast<double>(a.size() - kSecond) *
                  std::sqrt(Power(a, kSecond) * Power(b, kSecond)));
}

// The powers of a signal in third octaves, 125 Hz to 10 kHz, behind the first second.
tools::Power ThirdOctavesOf(const Signal& signal) {
  return tools::ThirdOctavePowers(tools::MeasurePower(std::span(signal).subspan(kSecond)),
                                  tools::CrossSpectra::kSize, tools::ThirdOctaves());
}

Planes Panned(const Signal& source, double left, double right) {
  Planes stereo(2, Signal(source.size()));
  upmix_lib::AddTo(stereo[0], source, static_cast<float>(left));
  upmix_lib::AddTo(stereo[1], source, static_cast<float>(right));
  return stereo;
}

}  // namespace

std::vector<Figure> MixFigures(const tools::Upmix& upmix, const Mix& mix) {
  std::vector<Figure> figures;
  const auto add = [&](const std::string& what, double value, const char* unit,
                       Figure::Better better) {
    figures.push_back({mix.name + ": " + what, value, unit, better});
  };
  const Planes sum = mix.Sum(), planes = upmix(sum);
  double power = 0, in_place = 0, in_centre = 0;
  for (const Stem& stem : mix.stems) {
    if (stem.place != Place::kLeft && stem.place != Place::kRight) {
      continue;
    }
    const Planes by_plane = tools::StemByPlane(upmix, sum, stem.signal);
    for (const Signal& plane : by_plane) {
      power += Power(plane);
    }
    in_place += Power(by_plane[stem.place == Place::kLeft ? kFL : kFR]);
    in_centre += Power(by_plane[kFC]);
  }
  add("stems hard at a side, in their own front plane", 100 * in_place / power, "%", kHigher);
  add("stems hard at a side, in the centre plane", 100 * in_centre / power, "%", kLower);
  const Signal centred = mix.Sum(Place::kCentre)[0];
  add("centre plane against the centred stems, SI-SDR", tools::SiSdrDb(planes[kFC], centred), "dB",
      kHigher);
  if (mix.name == "film") {
    const Scene scene = DialogueScene(mix);
    add("centre plane alone, ESTOI of the dialogue at 0 dB",
        tools::Estoi(upmix(scene.sound)[kFC], scene.speech[0]), "", kHigher);
    add("plain mid, ESTOI of the dialogue at 0 dB",
        tools::Estoi(Sum(scene.sound[0], scene.sound[1]), scene.speech[0]), "", kHigher);
  }
  Planes ambience = mix.Sum(Place::kAmbience);
  Planes direct = sum;
  AddTo(direct, ambience, -1);
  const Planes ambience_by_plane = tools::StemByPlane(upmix, sum, ambience);
  const Planes direct_by_plane = tools::StemByPlane(upmix, sum, direct);
  const std::array<double, 7> shares = tools::Shares(ambience_by_plane);
  add("ambience in the surround planes",
      100 * (shares[kSL] + shares[kSR] + shares[kBL] + shares[kBR]), "%", kHigher);
  double direct_power = 0, ambience_power = 0, kurtosis = 0, sounding = 0;
  for (const int p : {kSL, kSR, kBL, kBR}) {
    direct_power += Power(direct_by_plane[static_cast<std::size_t>(p)]);
    ambience_power += Power(ambience_by_plane[static_cast<std::size_t>(p)]);
    if (Power(ambience_by_plane[static_cast<std::size_t>(p)]) == 0) {
      continue;
    }
    kurtosis += tools::LogKurtosis(ambience_by_plane[static_cast<std::size_t>(p)]);
    ++sounding;
  }
  add("direct over ambience in the surround planes", Db(direct_power / ambience_power), "dB",
      kLower);
  add("log-kurtosis of a surround plane's ambience over its input's",
      kurtosis / sounding - (tools::LogKurtosis(ambience[0]) + tools::LogKurtosis(ambience[1])) / 2,
      "", kNearZero);
  return figures;
}

std::vector<Figure> MadeFigures(const tools::Upmix& upmix, const Signal& guitar) {
  std::vector<Figure> figures;
  const auto add = [&](const std::string& what, double value, const char* unit,
                       Figure::Better better) {
    figures.push_back({what, value, unit, better});
  };

  Planes doubled = {guitar, upmix_lib::Delayed({guitar}, 528)[0]};
  std::array<double, 7> shares = tools::Shares(upmix(doubled));
  add("doubled guitar, 11 ms apart: in the three front planes",
      100 * (shares[kFL] + shares[kFR] + shares[kFC]), "%", kHigher);

  const std::size_t frames = 16 * kSecond;
  const Signal one = PinkNoise(1, frames), two = PinkNoise(2, frames),
               centre = PinkNoise(3, frames);
  Planes mixed = upmix({Sum(centre, one), Sum(centre, two)});
  add("ambience left against right beside an equal centre, correlation",
      Correlation(Sum(mixed[kSL], mixed[kBL]), Sum(mixed[kSR], mixed[kBR])), "", kNearZero);

  const Planes wide = upmix({one, two});
  const tools::Power in = ThirdOctavesOf(one);
  double worst = 0, apart = 0;
  for (const int p : {kSL, kSR, kBL, kBR}) {
    const auto plane = static_cast<std::size_t>(p);
    worst = std::max(worst, tools::PeakToPeakDb(ThirdOctavesOf(wide[plane]), in));
  }
  for (const int p : {kSL, kBL}) {
    const tools::Power left = ThirdOctavesOf(wide[static_cast<std::size_t>(p)]);
    const tools::Power right = ThirdOctavesOf(wide[static_cast<std::size_t>(p) + 1]);
    for (std::size_t i = 0; i < left.size(); ++i) {
      apart = std::max(apart, std::abs(Db(left[i] / right[i])));
    }
  }
  add("wide noise, worst surround plane, third octaves peak to peak", worst, "dB", kLower);
  add("wide noise, surround planes left against right, worst third octave", apart, "dB", kLower);
  Signal minus = one;
  for (float& sample : minus) {
    sample = -sample;
  }
  add("antiphase noise, back left, third octaves peak to peak",
      tools::PeakToPeakDb(ThirdOctavesOf(upmix({one, minus})[kBL]), in), "dB", kLower);

  // Bursts hard left of 50 ms, every 0.5 s, 40 dB above a wide bed.
  constexpr std::size_t kBurst = 2400, kEvery = 24000;
  const Signal noise = upmix_lib::Noise(frames, 4);
  Planes burst(2, Signal(frames)), mix = {one, two};
  for (Signal& channel : mix) {
    for (float& sample : channel) {
      sample *= 0.003f;
    }
  }
  for (std::size_t start = kEvery; start + kEvery <= frames; start += kEvery) {
    std::copy_n(&noise[start], kBurst, &burst[0][start]);
  }
  AddTo(mix, burst);
  const Planes attack = tools::StemByPlane(upmix, mix, burst);
  double before = 0;
  for (std::size_t start = kEvery; start + kEvery <= frames; start += kEvery) {
    for (const Signal& plane : attack) {
      before += Power(std::span(plane).subspan(start - 480, 480));
    }
  }
  constexpr double kBurstsPerBlock = double{kEvery} / kBurst;
  const std::size_t bursts = frames / kEvery - 1;
  add("attacks: in their plane", 100 * tools::Shares(attack)[kFL], "%", kHigher);
  add("attacks: pre-echo, 10 ms before",
      Db(before / static_cast<double>(bursts) / (Power(burst[0]) * kBurstsPerBlock)), "dB", kLower);

  for (const auto& [name, left, right] :
       {std::tuple("centre", std::sqrt(0.5), std::sqrt(0.5)), std::tuple("left", 1.0, 0.0),
        std::tuple("half left", 0.924, 0.383)}) {
    shares = tools::Shares(upmix(Panned(one, left, right)));
    if (left < 1) {
      add(std::string("lone source, ") + name + ": centre plane", 100 * shares[kFC], "%", kHigher);
    }
    if (left > right) {
      add(std::string("lone source, ") + name + ": left plane", 100 * shares[kFL], "%", kHigher);
    }
  }
  return figures;
}

std::vector<Figure> CinemaPlaneFigures(const tools::Upmix& cinema, const std::vector<Mix>& mixes) {
  std::vector<Figure> figures;
  // Above the crossover: what is below goes past the planes.
  const Signal source = PinkNoise(1, 8 * kSecond, 300.0f);
  const Planes planes = cinema(Panned(source, 1, 0));
  double power = 0;
  for (const Signal& plane : planes) {
    power += Power(plane, kSecond);
  }
  figures.push_back({"cinema: lone source, left: in the side planes",
                     100 * (Power(planes[kSL], kSecond) + Power(planes[kSR], kSecond)) / power, "%",
                     kLower});
  figures.push_back({"cinema: lone source, left: level of all planes",
                     Db(power / Power(source, kSecond)), "dB", kNearZero});
  for (const Mix& mix : mixes) {
    double in_sides = 0, in_all = 0;
    for (const Stem& stem : mix.stems) {
      if (stem.place != Place::kLeft && stem.place != Place::kRight) {
        continue;
      }
      const Planes by_plane = tools::StemByPlane(cinema, mix.Sum(), stem.signal);
      for (const Signal& plane : by_plane) {
        in_all += Power(plane);
      }
      in_sides += Power(by_plane[kSL]) + Power(by_plane[kSR]);
    }
    figures.push_back({"cinema: " + mix.name + ": stems hard at a side, in the side planes",
                       100 * in_sides / in_all, "%", kLower});
  }
  return figures;
}

}  // namespace kelda::sound
