#include "assurance/sound/ear_table.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <map>
#include <numbers>

#include "tools/ears/measured_ears.h"
#include "tools/ears/sofa_hrirs.h"
#include "tools/measure/band_power.h"
#include "tools/measure/ear_figures.h"
#include "tools/measure/hrir_cues.h"
#include "tools/measure/intelligibility.h"
#include "tools/measure/level_figures.h"
#include "tools/measure/room_figures.h"
#include "upmix-lib/base/audio_format.h"
#include "upmix-lib/level/limiter.h"

namespace kelda::sound {
namespace {

using enum Figure::Better;
using enum upmix_lib::Plane;
using tools::HeardNoise;
using tools::Image;
using upmix_lib::Db;

constexpr std::size_t kRate = 48000;

struct Table {
  std::string prefix;
  std::vector<Figure> figures;

  void Add(const std::string& what, double value, const char* unit, Figure::Better better) {
    figures.push_back({prefix + what, value, unit, better});
  }
};

const Mix& Named(const std::vector<Mix>& mixes, const std::string& name) {
  for (const Mix& mix : mixes) {
    if (mix.name == name) {
      return mix;
    }
  }
  throw std::runtime_error("there is no mix " + name);
}

// Music of some seconds at a loudness, the first seconds of it again and again.
Planes Programme(const std::vector<Mix>& mixes, double lufs, std::size_t seconds) {
  Planes music = upmix_lib::AtLoudness(Named(mixes, "pop").Sum(), lufs);
  for (Signal& channel : music) {
    const Signal once = channel;
    while (channel.size() < seconds * kRate) {
      channel.insert(channel.end(), once.begin(), once.end());
    }
    channel.resize(seconds * kRate);
  }
  return music;
}

// As it would be published: a limiter has taken off the peaks beyond -1 dBTP, which a stream cannot
// carry and which bypass would clip.
Planes Mastered(const Planes& mix) {
  upmix_lib::Limiter limiter(-1, 80);
  std::array<float, 2 * std::size_t{upmix_lib::kBlockFrames}> out;
  Planes mastered(2);
  for (std::size_t at = 0; at + upmix_lib::kBlockFrames <= mix[0].size();
       at += upmix_lib::kBlockFrames) {
    for (std::size_t i = 0; i < out.size(); ++i) {
      limiter.input()[i] = mix[i % 2][at + i / 2];
    }
    limiter.Process(out.data());
    for (std::size_t i = 0; i < out.size(); ++i) {
      mastered[i % 2].push_back(out[i]);
    }
  }
  return mastered;
}

// The ears of `sofa` themselves, nothing of their colour removed, turned by `azimuth_deg`: the
// set's centre is the direction that is asked for.
const upmix_lib::HrirSet& SetAt(const std::filesystem::path& sofa, double azimuth_deg, int taps) {
  static std::map<double, upmix_lib::HrirSet> made;  // by angle: one process measures one tuning
  if (made.count(azimuth_deg) > 0) {
    return made[azimuth_deg];
  }
  tools::MeasuredEars ears = tools::ReadMeasuredEars(sofa);
  for (auto& direction : ears.directions) {
    direction.azimuth_deg = static_cast<float>(
        std::remainder(static_cast<double>(direction.azimuth_deg) - azimuth_deg, 360.0));
  }
  tools::HrirOptions options;
  options.taps = taps;
  return made[azimuth_deg] = tools::DesignHrirs(ears, sofa.string(), options, [](double) {}).set;
}

// As HRIRs of the centre: the first `taps` from the earliest that counts.
upmix_lib::HrirSet AsSet(const Planes& responses, int taps) {
  upmix_lib::HrirSet set;
  set.taps = taps;
  set.responses.resize(std::size_t{upmix_lib::kPlanes * upmix_lib::kEars} *
                       static_cast<std::size_t>(taps));
  std::size_t first = responses[0].size();
  for (const Signal& ear : responses) {
    float peak = 0;
    for (std::size_t n = 0; n < 4800; ++n) {
      peak = std::max(peak, std::abs(ear[n]));
    }
    std::size_t n = 0;
    while (std::abs(ear[n]) < 0.1f * peak) {
      ++n;
    }
    first = std::min(first, n);
  }
  first = first < 16 ? 0 : first - 16;
  for (std::size_t ear = 0; ear < 2; ++ear) {
    const auto row = (static_cast<std::size_t>(kFC) * 2 + ear) * static_cast<std::size_t>(taps);
    std::copy_n(&responses[ear][first], taps, &set.responses[row]);
  }
  return set;
}

// Level difference in octaves from 500 Hz to 8 kHz.
std::vector<double> LevelDifferences(const upmix_lib::HrirSet& set, int plane) {
  static const tools::SpectrumAnalysis analysis(8192);
  const tools::Power left = analysis.PowerOf(set.response(plane, 0));
  const tools::Power right = analysis.PowerOf(set.response(plane, 1));
  std::vector<double> differences;
  for (const double hz : {500.0, 1000.0, 2000.0, 4000.0, 8000.0}) {
    const double low = hz / std::sqrt(2.0), high = hz * std::sqrt(2.0);
    const double db =
        Db(tools::BandSum(left, 8192, low, high)) - Db(tools::BandSum(right, 8192, low, high));
    differences.push_back(std::clamp(db, -40.0, 40.0));  // an ear may hear nothing
  }
  return differences;
}

}  // namespace

std::vector<Figure> EarFigures(const tools::StereoSystem& ears, const std::string& mode,
                               const std::vector<Mix>& mixes) {
  Table table{mode + ": ", {}};
  double line_db = -200;
  for (const auto& pair : tools::TonePairs()) {
    line_db = std::max(line_db, tools::MeasureLines(ears, pair).worst_db);
  }
  table.Add("worst inharmonic line, pairs of tones", line_db, "dB", kLower);
  table.Add("worst inharmonic line, organ chord",
            tools::MeasureLines(ears, tools::OrganChord()).worst_db, "dB", kLower);
  for (const auto& [name, image] :
       {std::pair("centre", Image::kCentre), {"left", Image::kLeft}, {"wide", Image::kDiffuse}}) {
    const HeardNoise heard = tools::Hear(ears, image);
    const std::string of = std::string(name) + ", ";
    table.Add(of + "third octaves peak to peak", tools::ColourDb(heard), "dB", kLower);
    table.Add(of + "8 kHz against the middle", tools::TrebleDb(heard), "dB", kNearZero);
    table.Add(of + "predicted colouration", tools::ColourationSone(heard), "sone", kLower);
    const tools::Externalisation cues = tools::MeasureExternalisation(heard.ears);
    table.Add(of + "coherence of the ears", cues.coherence, "", kLower);
    table.Add(of + "deviation of the level difference", cues.level_deviation_db, "dB", kHigher);
    if (image != Image::kDiffuse) {
      continue;
    }
    table.Add("wide, coherence off a diffuse field", tools::MeasureCoherence(heard.ears).Off(), "",
              kLower);
    table.Add("wide bass, 40 to 100 Hz against the whole", tools::BassDb(heard), "dB", kNearZero);
  }
  for (const Mix& mix : mixes) {
    table.Add(mix.name + ", side over middle", tools::WidthDb(ears(mix.Sum())), "dB", kHigher);
  }
  const Scene scene = DialogueScene(Named(mixes, "film"));
  const auto better_ear = [&](const Planes& heard) {
    return std::max(tools::Estoi(heard[0], scene.speech[0]),
                    tools::Estoi(heard[1], scene.speech[0]));
  };
  table.Add("ESTOI of speech in film sound, against bypass",
            better_ear(ears(scene.sound)) - better_ear(scene.sound), "", kHigher);
  return table.figures;
}

std::vector<Figure> LevelFigures(const tools::StereoSystem& ears, const std::string& mode,
                                 const std::vector<Mix>& mixes, std::optional<double> target_lufs) {
  Table table{mode + ": ", {}};
  const Planes quiet = Programme(mixes, -30, 5);
  table.Add("from the start to within 2 dB of the settled gain",
            tools::SettlingSeconds(ears, quiet, 2), "s", kLower);
  table.Add("more than 3 dB too loud after a jump of 18 LU", tools::JumpSeconds(ears, quiet), "s",
            kLower);
  if (target_lufs) {
    const Planes heard = ears(Programme(mixes, -30, 20));
    table.Add("programme of -30 LUFS, loudness 10 to 20 s after the start, off the target",
              upmix_lib::LoudnessLufs(heard, 10 * kRate) - *target_lufs, "LU", kNearZero);
  }
  for (const Figure& figure : LoudnessFigures(ears, mode, mixes)) {
    table.figures.push_back(figure);
  }
  return table.figures;
}

std::vector<Figure> LoudnessFigures(const tools::StereoSystem& ears, const std::string& system,
                                    const std::vector<Mix>& mixes) {
  Table table{system + ": ", {}};
  double lowest = 1e9, highest = -1e9;
  for (const Mix& mix : mixes) {
    for (const double lufs : {-11.0, -16.0, -21.0}) {
      if (mix.name == "hall") {
        continue;
      }
      const Planes in = Mastered(upmix_lib::AtLoudness(mix.Sum(), lufs));
      const double change =
          upmix_lib::LoudnessLufs(ears(in), 8 * kRate) - upmix_lib::LoudnessLufs(in, 8 * kRate);
      lowest = std::min(lowest, change);
      highest = std::max(highest, change);
    }
  }
  table.Add("loudness over bypass, nine programmes, least", lowest, "LU", kNearZero);
  table.Add("loudness over bypass, nine programmes, most", highest, "LU", kNearZero);
  table.Add("loudness over bypass, nine programmes, most less least", highest - lowest, "LU",
            kLower);
  return table.figures;
}

std::vector<Figure> HandoverFigures(const tools::ModalSystem& system,
                                    const std::vector<Mix>& mixes) {
  Table table{"change of mode, ", {}};
  const Planes quiet = Programme(mixes, -30, 23);
  for (const auto& [from, to] :
       {std::pair("music", "cinema"), {"cinema", "music"}, {"off", "music"}}) {
    table.Add(std::string(from) + " to " + to + ": level falls short by",
              tools::HandoverDb(tools::HandoverGainsDb(system, quiet, from, to)), "dB", kLower);
  }
  return table.figures;
}

std::vector<Figure> DirectionFigures(const tools::StereoSystem& ears, const std::string& mode,
                                     const std::filesystem::path& sofa,
                                     const std::filesystem::path& hki) {
  Table table{mode + ": ", {}};
  upmix_lib::HrirSet planes;
  if (LoadHrirSet(hki, planes) != upmix_lib::kOk) {
    throw std::runtime_error(hki.string() + ": no HRIRs");
  }
  double delay_off_us = 0, level_off_db = 0;
  for (const double angle_deg : {6.6, 13.4, 21.1, 30.0}) {
    // By the law of tangents, the loudspeakers at 30 degrees.
    const double ratio =
        std::tan(angle_deg * std::numbers::pi / 180) / std::tan(std::numbers::pi / 6);
    const double left = (1 + ratio) / std::sqrt(2 + 2 * ratio * ratio);
    const double right = (1 - ratio) / std::sqrt(2 + 2 * ratio * ratio);
    const tools::StereoSystem panned = [&](const Planes& in) {
      Planes stereo(2, Signal(in[0].size()));
      upmix_lib::AddTo(stereo[0], in[0], static_cast<float>(left));
      upmix_lib::AddTo(stereo[1], in[0], static_cast<float>(right));
      return ears(stereo);
    };
    const upmix_lib::HrirSet heard =
        AsSet(tools::EarResponses(panned, Image::kCentre), planes.taps);
    const upmix_lib::HrirSet& true_set = SetAt(sofa, angle_deg, planes.taps);
    const double off_us =
        tools::MeasureCues(heard, kFC).delay_us - tools::MeasureCues(true_set, kFC).delay_us;
    if (std::abs(off_us) > std::abs(delay_off_us)) {
      delay_off_us = off_us;
    }
    const std::vector<double> got = LevelDifferences(heard, kFC),
                              wanted = LevelDifferences(true_set, kFC);
    for (std::size_t i = 0; i < got.size(); ++i) {
      level_off_db +=
          (got[i] - wanted[i]) * (got[i] - wanted[i]) / static_cast<double>(4 * got.size());
    }
    if (angle_deg == 30.0) {
      table.Add("source at 30 degrees, delay between the ears off by", off_us, "us", kNearZero);
    }
  }
  table.Add("sources panned to 6.6 to 30 degrees, delay between the ears off by, worst",
            delay_off_us, "us", kNearZero);
  table.Add("sources panned to 6.6 to 30 degrees, level difference off by, rms",
            std::sqrt(level_off_db), "dB", kLower);
  return table.figures;
}

std::vector<Figure> RoomFigures(const std::function<Planes(const Planes&)>& virtualize,
                                const std::filesystem::path& hki) {
  Table table{"room: ", {}};
  upmix_lib::HrirSet set;
  if (LoadHrirSet(hki, set) != upmix_lib::kOk) {
    throw std::runtime_error(hki.string() + ": no HRIRs");
  }
  double surround_db = -1e9;
  for (const int plane : {kFL, kSL, kBL, kFC}) {
    Planes in(upmix_lib::kPlanes, Signal(65536));
    in[static_cast<std::size_t>(plane)][0] = 1;
    const Planes out = virtualize(in);
    const double ratio_db = tools::DirectOverReverberantDb(out);
    if (plane == kFL) {
      table.Add("front left, direct over reverberant", ratio_db, "dB", kLower);
    } else if (plane == kFC) {
      Planes bare;
      for (const int ear : {0, 1}) {
        const auto taps = set.response(plane, ear);
        bare.emplace_back(taps.begin(), taps.end());
      }
      table.Add("ripple added to the centre, third octaves peak to peak",
                tools::RoomRippleDb(out, bare), "dB", kLower);
    } else {
      surround_db = std::max(surround_db, ratio_db);
    }
  }
  table.Add("surround planes, direct over reverberant", surround_db, "dB", kLower);
  return table.figures;
}

std::vector<Figure> CinemaRoomFigures(const tools::StereoSystem& with_room,
                                      const tools::StereoSystem& room) {
  Table table{"room: cinema, ", {}};
  // Above what the room leaves out, and behind the first second.
  const Signal noise = upmix_lib::PinkNoise(1, 8 * kRate, 500.0f);
  for (const auto& [name, right] : {std::pair("hard left", 0.0f), {"opposite polarity", -1.0f}}) {
    Planes in = {noise, Signal(noise.size())};
    upmix_lib::AddTo(in[1], noise, right);
    const Planes added = room(in);
    Planes direct = with_room(in);
    AddTo(direct, added, -1);
    table.Add(std::string(name) + ", direct over reverberant",
              upmix_lib::Db(upmix_lib::Power(direct[0], kRate) / upmix_lib::Power(added[0], kRate)),
              "dB", kLower);
  }
  return table.figures;
}

}  // namespace kelda::sound
