#include "assurance/sound/mixes.h"

#include <bit>
#include <cmath>
#include <numbers>
#include <random>

#include "tools/measure/spectrum.h"

namespace kelda::sound {
namespace {

constexpr std::size_t kFrames = 16 * 48000;
constexpr const char* kPlaces[] = {"centre",    "left", "right",   "halfleft",
                                   "halfright", "wide", "ambience"};

double LevelDb(const Planes& planes) {
  double power = 0;
  for (const Signal& plane : planes) {
    power += upmix_lib::Power(plane);
  }
  return upmix_lib::Db(power);
}

void Scale(Planes& planes, double gain_db) {
  for (Signal& plane : planes) {
    for (float& sample : plane) {
      sample *= static_cast<float>(std::pow(10.0, gain_db / 20));
    }
  }
}

Signal DryStem(const std::filesystem::path& path) {
  Planes mono(1, Signal(kFrames));
  for (const Signal& channel : ReadPlanes(path)) {
    AddTo(mono, {channel});
  }
  const double level_db = LevelDb(mono);
  if (level_db < -120) {
    throw std::runtime_error(path.string() + ": silent");
  }
  Scale(mono, -level_db);
  return mono[0];
}

Planes Placed(const Signal& mono, Place place) {
  constexpr double kQuarter = std::numbers::pi / 4;
  const double angle = place == Place::kCentre     ? kQuarter
                       : place == Place::kLeft     ? 0
                       : place == Place::kHalfLeft ? kQuarter / 2
                       : place == Place::kRight    ? 2 * kQuarter
                                                   : 1.5 * kQuarter;
  Planes stereo(2, Signal(mono.size()));
  upmix_lib::AddTo(stereo[0], mono, static_cast<float>(std::cos(angle)));
  upmix_lib::AddTo(stereo[1], mono, static_cast<float>(std::sin(angle)));
  if (place == Place::kLeft) {
    std::fill(stereo[1].begin(), stereo[1].end(), 0.0f);
  }
  if (place == Place::kRight) {
    std::fill(stereo[0].begin(), stereo[0].end(), 0.0f);
  }
  return stereo;
}

// Decaying noise, 60 dB in 1.4 s, duller the later, that begins after 12 ms: the late part of a
// hall (Moorer, "About this reverberation business", 1979).
Signal Hall(uint32_t seed) {
  constexpr double kDecayS = 1.4, kPredelayS = 0.012;
  std::mt19937 random(seed);
  std::normal_distribution<double> normal;
  Signal hall(static_cast<std::size_t>(1.5 * kDecayS * 48000));
  double smooth = 0;
  for (auto n = static_cast<std::size_t>(kPredelayS * 48000); n < hall.size(); ++n) {
    const double seconds = static_cast<double>(n) / 48000;
    const double corner_hz = 2500 + 7000 * std::exp(-seconds / 0.3);
    smooth += (1 - std::exp(-2 * std::numbers::pi * corner_hz / 48000)) * (normal(random) - smooth);
    hall[n] = static_cast<float>(smooth * std::pow(10.0, -3 * seconds / kDecayS));
  }
  return hall;
}

Signal Convolved(const Signal& signal, const Signal& response) {
  const tools::SpectrumAnalysis analysis(std::bit_ceil(signal.size() + response.size()));
  tools::Spectrum product = analysis.Forward(std::vector<double>(signal.begin(), signal.end()));
  const auto filter = analysis.Forward(std::vector<double>(response.begin(), response.end()));
  for (std::size_t k = 0; k < product.size(); ++k) {
    product[k] *= filter[k];
  }
  const std::vector<double> result = analysis.Inverse(product);
  Signal out(signal.size());
  for (std::size_t n = 0; n < out.size(); ++n) {
    out[n] = static_cast<float>(result[n]);
  }
  return out;
}

// Noise with drops in it, each a short ring of its own pitch on one side or the other.
Planes Rain() {
  std::mt19937 random(7);
  std::uniform_real_distribution<> unit(0, 1);
  Planes rain = {upmix_lib::PinkNoise(71, kFrames, 2500), upmix_lib::PinkNoise(72, kFrames, 2500)};
  for (int drop = 0; drop < 3000; ++drop) {
    const auto start = static_cast<std::size_t>(unit(random) * (kFrames - 1000));
    const double hz = 1500 + 6000 * unit(random), size = 4 * unit(random) * unit(random);
    const double share = unit(random);
    for (std::size_t n = 0; n < 900; ++n) {
      const double t = static_cast<double>(n) / 48000;
      const double ring =
          size * std::exp(-t / 0.003) * std::sin(2 * std::numbers::pi * hz * t * (1 + 8 * t));
      rain[0][start + n] += static_cast<float>(share * ring);
      rain[1][start + n] += static_cast<float>((1 - share) * ring);
    }
  }
  return rain;
}

}  // namespace

const std::vector<MixPlan>& MixPlans() {
  using enum Place;
  static const std::vector<MixPlan> plans = {
      {"pop",
       {{"voice", kCentre, 4.1, {{"pop-words", 0}, {"pop-oohs", 0}}},
        {"bass", kCentre, 5.9, {{"pop-bass", 0}}},
        {"drums", kCentre, 0, {{"pop-drums", 0}}},
        {"guitar", kLeft, 0.8, {{"pop-guitar", 0}}},
        {"piano", kRight, -2.2, {{"pop-piano", 0}}},
        {"hats", kHalfLeft, -12.2, {{"pop-hats", 0}}},
        {"brass", kHalfRight, -2.2, {{"pop-brass", 0}}}},
       8},
      {"rock",
       {{"voice", kCentre, -1, {{"rock-words", 0}, {"rock-lead", -3}}},
        {"bass", kCentre, 0, {{"rock-bass", 0}}},
        {"drums", kCentre, 0, {{"rock-drums", 0}}},
        {"guitar", kLeft, 0.2, {{"rock-guitar-left", 0}}},
        {"guitar", kRight, 2, {{"rock-guitar-right", 0}}}},
       8},
      {"film",
       {{"dialogue", kCentre, 2.4, {{"film-man", 0}, {"film-woman", 0}}},
        {"score", kWide, -11.7, {{"film-strings", 0}, {"film-horn", 0}}},
        {"effect", kRight, 3, {{"film-effect", 0}}}},
       6,
       9},
      {"hall",
       {{"horns", kCentre, -8, {{"hall-horns", 0}}},
        {"timpani", kCentre, -9.1, {{"hall-timpani", 0}}},
        {"violins", kLeft, 5.6, {{"hall-violins", 0}}},
        {"cellos", kRight, -1.2, {{"hall-cellos", 0}}},
        {"flute", kHalfLeft, -3.2, {{"hall-flute", 0}}},
        {"oboe", kHalfRight, -0.7, {{"hall-oboe", 0}}}},
       -3}};
  return plans;
}

Planes Mix::Sum() const {
  Planes sum(2, Signal(kFrames));
  for (const Stem& stem : stems) {
    AddTo(sum, stem.signal);
  }
  return sum;
}

Planes Mix::Sum(Place place) const {
  Planes sum(2, Signal(kFrames));
  for (const Stem& stem : stems) {
    if (stem.place == place) {
      AddTo(sum, stem.signal);
    }
  }
  return sum;
}

Scene DialogueScene(const Mix& film) {
  Scene scene{film.Sum(Place::kCentre), film.Sum(Place::kWide)};
  AddTo(scene.sound, film.Sum(Place::kAmbience));
  Scale(scene.sound, LevelDb(scene.speech) - LevelDb(scene.sound));
  AddTo(scene.sound, scene.speech);
  return scene;
}

Mix MakeMix(const MixPlan& plan, const std::filesystem::path& dry_stems) {
  Mix mix{plan.name, {}};
  Signal sent(kFrames);
  for (const PlannedStem& planned : plan.stems) {
    Planes stereo(2, Signal(kFrames));
    for (std::size_t i = 0; i < planned.files.size(); ++i) {
      const auto& [file, level_db] = planned.files[i];
      Place place = planned.place;
      if (place == Place::kWide) {
        place = 2 * i < planned.files.size() ? Place::kLeft : Place::kRight;
      }
      AddTo(stereo, Placed(DryStem(dry_stems / (std::string(file) + ".wav")), place),
            static_cast<float>(std::pow(10.0, level_db / 20)));
    }
    Scale(stereo, planned.level_db - LevelDb(stereo));
    for (const Signal& channel : stereo) {
      upmix_lib::AddTo(sent, channel);
    }
    mix.stems.push_back({planned.name, planned.place, stereo});
  }
  const double direct_db = LevelDb(mix.Sum());
  Planes ambience = {Convolved(sent, Hall(1)), Convolved(sent, Hall(2))};
  mix.stems.push_back({"reverb", Place::kAmbience, ambience});
  if (plan.rain_db > -100) {
    Planes rain = Rain();
    Scale(rain, LevelDb(ambience) + plan.rain_db - LevelDb(rain));
    mix.stems.push_back({"rain", Place::kAmbience, rain});
  }
  const double ambience_db = LevelDb(mix.Sum(Place::kAmbience));
  for (Stem& stem : mix.stems) {
    if (stem.place == Place::kAmbience) {
      Scale(stem.signal, direct_db - plan.direct_over_ambience_db - ambience_db);
    }
  }
  constexpr double kMixDb = -20;  // RMS of both channels together
  const double sum_db = LevelDb(mix.Sum());
  for (Stem& stem : mix.stems) {
    Scale(stem.signal, kMixDb - sum_db);
  }
  return mix;
}

void SaveMix(const Mix& mix, const std::filesystem::path& folder) {
  std::filesystem::create_directories(folder / mix.name);
  for (const Stem& stem : mix.stems) {
    const std::string place = kPlaces[static_cast<std::size_t>(stem.place)];
    WritePlanes(folder / mix.name / (place + "-" + stem.name + ".wav"), stem.signal);
  }
}

Mix LoadMix(const std::filesystem::path& folder, const std::string& name) {
  Mix mix{name, {}};
  std::vector<std::filesystem::path> files;
  for (const auto& entry : std::filesystem::directory_iterator(folder / name)) {
    if (entry.path().extension() == ".wav") {
      files.push_back(entry.path());
    }
  }
  std::sort(files.begin(), files.end());
  for (const std::filesystem::path& file : files) {
    const std::string stem = file.stem();
    const std::size_t dash = stem.find('-');
    const auto* const place =
        std::find(std::begin(kPlaces), std::end(kPlaces), stem.substr(0, dash));
    if (dash == std::string::npos || place == std::end(kPlaces)) {
      continue;
    }
    mix.stems.push_back(
        {stem.substr(dash + 1), static_cast<Place>(place - std::begin(kPlaces)), ReadPlanes(file)});
  }
  return mix;
}

}  // namespace kelda::sound
