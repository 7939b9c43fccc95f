#include "tools/default_tuning.h"

#include <algorithm>
#include <cmath>
#include <span>
#include <string_view>

#include "tools/kemar_hrirs.h"
#include "upmix-lib/biquad_design.h"
#include "upmix-lib/data_file.h"
#include "upmix-lib/equalizer_file.h"
#include "upmix-lib/hrir_set.h"

namespace kelda::tools {
namespace {

using upmix_lib::BandType;
using upmix_lib::CinemaParameters;
using upmix_lib::DefaultParameters;
using upmix_lib::EqualizerBand;
using upmix_lib::EqualizerTuning;
using upmix_lib::LevelParameters;
using upmix_lib::MusicParameters;

TuningFile Text(std::string name, std::string_view text) {
  const auto bytes = std::as_bytes(std::span(text));
  return {std::move(name), {bytes.begin(), bytes.end()}};
}

template <typename Parameters>
TuningFile Blob(std::string name, const Parameters& parameters) {
  const auto bytes = std::as_bytes(std::span(&parameters, 1));
  return {std::move(name), {bytes.begin(), bytes.end()}};
}

// Ten octave bands for headphones that measure flat in the diffuse field: more bass, as
// listeners prefer it on headphones (Olive, Welti and McMullin, "Listener preferences for
// different headphone target response curves", 2013), at half of their strength, and a
// little less treble.
EqualizerTuning HeadphoneCurve() {
  constexpr float kOctaveQ = 1.41f;
  EqualizerTuning tuning;
  tuning.curves = {{{{BandType::kPeaking, 31.25f, 3.0f, kOctaveQ},
                     {BandType::kPeaking, 62.5f, 2.5f, kOctaveQ},
                     {BandType::kPeaking, 125, 1.5f, kOctaveQ},
                     {BandType::kPeaking, 250, 0.5f, kOctaveQ},
                     {BandType::kPeaking, 500, 0, kOctaveQ},
                     {BandType::kPeaking, 1000, 0, kOctaveQ},
                     {BandType::kPeaking, 2000, 0, kOctaveQ},
                     {BandType::kPeaking, 4000, -0.5f, kOctaveQ},
                     {BandType::kPeaking, 8000, -1.0f, kOctaveQ},
                     {BandType::kPeaking, 16000, -1.5f, kOctaveQ}},
                    {}}};
  // The preamp takes back the largest boost, so that no sine comes out louder than it was.
  double largest_db = 0;
  for (int i = 0; i < 1000; ++i) {
    const double freq_hz = 10 * std::pow(2400.0, i / 1000.0);
    double gain_db = 0;
    for (const EqualizerBand& band : tuning.curves[0].bands) {
      gain_db += upmix_lib::ResponseDb(upmix_lib::DesignBiquad(band), freq_hz);
    }
    largest_db = std::max(largest_db, gain_db);
  }
  tuning.preamp_db = static_cast<float>(-largest_db);
  return tuning;
}

// Films have wider dynamics than music: a little lower, so that the peaks have room, and
// sooner at the level of a scene.
LevelParameters CinemaLevel() {
  auto level = DefaultParameters<LevelParameters>(upmix_lib::kLevelKind, upmix_lib::kLevelFields);
  level.target_lufs = -18;
  level.max_boost_db = 18;
  level.window_s = 15;
  upmix_lib::Seal(std::as_writable_bytes(std::span(&level, 1)), upmix_lib::kLevelKind);
  return level;
}

}  // namespace

std::vector<TuningFile> MakeDefaultTuning(const std::string& sofa_path) {
  const auto music =
      DefaultParameters<MusicParameters>(upmix_lib::kMusicKind, upmix_lib::kMusicFields);
  const auto cinema =
      DefaultParameters<CinemaParameters>(upmix_lib::kCinemaKind, upmix_lib::kCinemaFields);
  return {
      // Placeholders: whoever ships the effect lists the applications of the phone.
      Text("tunedapp_list",
           "com.example.music,MUSIC\n"
           "com.example.video,CINEMA\n"
           "com.example.game,OFF\n"),
      Text("wired.hki.config", "standard.hki\n"),
      Text("bluetooth.hki.config", "standard.hki\n"),
      {"standard.hki", upmix_lib::EncodeHrirSet(MakeKemarHrirs(sofa_path))},
      Text("wired.ba.config", "personalized.ba\n"),
      Text("bluetooth.ba.config", "personalized.ba\n"),
      {"personalized.ba", upmix_lib::BuildEqualizerFile(HeadphoneCurve())},
      Blob("upmix.music.hps.bin", music),
      Blob("upmix.music.hpp.bin", music),
      Blob("upmix.cinema.hps.bin", cinema),
      Blob("upmix.cinema.hpp.bin", cinema),
      Blob("upl.music.bin",
           DefaultParameters<LevelParameters>(upmix_lib::kLevelKind, upmix_lib::kLevelFields)),
      Blob("upl.cinema.bin", CinemaLevel()),
  };
}

}  // namespace kelda::tools
