#include "tools/report/sound_measurement.h"

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <optional>
#include <utility>
#include <vector>

#include "tools/audio/loudness_meter.h"
#include "tools/framework/effect_chain.h"
#include "tools/measure/band_power.h"
#include "tools/measure/ear_figures.h"
#include "tools/measure/level_figures.h"
#include "tools/measure/room_figures.h"
#include "tools/measure/test_signal.h"
#include "tools/report/report_curves.h"
#include "upmix-lib/binaural/hrir_set.h"

namespace kelda::tools {
namespace {

constexpr std::size_t kRate = kSampleRateHz;

struct Place {
  const char* name;
  Image image;
};
constexpr Place kPlaces[] = {
    {"centre", Image::kCentre}, {"left", Image::kLeft}, {"wide", Image::kDiffuse}};

// The worst of the pairs, and the chord.
Json LinesJson(const StereoSystem& ears) {
  std::vector<LineSpectrum> pairs;
  for (const std::vector<PannedTone>& pair : TonePairs()) {
    pairs.push_back(MeasureLines(ears, pair));
  }
  const LineSpectrum& worst = *std::max_element(
      pairs.begin(), pairs.end(),
      [](const LineSpectrum& a, const LineSpectrum& b) { return a.worst_db < b.worst_db; });
  const LineSpectrum chord = MeasureLines(ears, OrganChord());
  const auto spectrum = [](const LineSpectrum& lines) {
    return Json{{"worst_db", Decibels(lines.worst_db)},
                {"freq_hz", Rounded(lines.freq_hz, 1)},
                {"tones_db", Decibels(lines.tones_db)},
                {"rest_db", Decibels(lines.rest_db)}};
  };
  return {{"pairs", spectrum(worst)}, {"chord", spectrum(chord)}};
}

// The colour of pink noise from each place, and the coherence of both ears for wide noise.
void AddHeard(const StereoSystem& ears, Json* json) {
  constexpr std::size_t kFrames = 1048576;  // 22 s
  const std::vector<double> centres = ThirdOctaves(31.5, 16000);
  Json colour{{"freq_hz", Rounded(centres, 1)}};
  for (const auto& [name, image] : kPlaces) {
    const HeardNoise heard = Hear(ears, image, kFrames);
    const Externalisation cues = MeasureExternalisation(heard.ears);
    colour[name] = {{"gain_db", Decibels(GainsDb(heard, centres))},
                    {"peak_to_peak_db", Decibels(ColourDb(heard))},
                    {"treble_db", Decibels(TrebleDb(heard))},
                    {"bass_db", Decibels(BassDb(heard))},
                    {"colouration_sone", Rounded(ColourationSone(heard), 2)},
                    {"coherence", Rounded(cues.coherence, 2)},
                    {"level_deviation_db", Decibels(cues.level_deviation_db)}};
    if (image == Image::kDiffuse) {
      const CoherenceCurve curve = MeasureCoherence(heard.ears);
      (*json)["coherence"] = {{"freq_hz", Rounded(curve.freq_hz, 1)},
                              {"heard", Rounded(curve.heard, 3)},
                              {"diffuse", Rounded(curve.diffuse, 2)},
                              {"off", Rounded(curve.Off(), 3)}};
    }
  }
  (*json)["colour"] = std::move(colour);
}

// The HRIRs of the centre that the decision's stages use, if they can be read.
std::optional<Channels> CentreHrirs(const Decision& decision, const std::filesystem::path& tuning) {
  for (const Stage& stage : decision.stages) {
    for (const StageFile& file : stage.files) {
      upmix_lib::HrirSet set;
      if (stage.runs && file.role == "hki" &&
          upmix_lib::LoadHrirSet((tuning / file.names).string(), set) == upmix_lib::kOk) {
        Channels bare;
        for (const int ear : {0, 1}) {
          const auto taps = set.response(static_cast<int>(upmix_lib::kFC), ear);
          bare.emplace_back(taps.begin(), taps.end());
        }
        return bare;
      }
    }
  }
  return std::nullopt;
}

Json RoomJson(const StereoSystem& ears, const std::optional<Channels>& centre_hrirs) {
  constexpr std::size_t kHeard = kRate / 2, kSteps = 100;
  constexpr double kStepMs = 2;
  std::vector<double> times_ms(kSteps);
  for (std::size_t i = 0; i < kSteps; ++i) {
    times_ms[i] = kStepMs * static_cast<double>(i);
  }
  Json json{{"times_ms", times_ms}, {"ripple_db", nullptr}};
  for (const auto& [name, image] : {kPlaces[0], kPlaces[1]}) {
    const Channels response = Part(EarResponses(ears, image), 0, kHeard);
    json[name] = {{"direct_over_reverberant_db", Decibels(DirectOverReverberantDb(response))},
                  {"decay_db", Decibels(EnergyDecayDb(response, kStepMs, kSteps))}};
    if (image == Image::kCentre && centre_hrirs) {
      json["ripple_db"] = Decibels(RoomRippleDb(response, *centre_hrirs));
    }
  }
  return json;
}

// A sound that repeats `period`, which is interleaved.
Channels Programme(const std::vector<float>& period, std::size_t frames) {
  Channels planes(kChannels, std::vector<float>(frames));
  for (std::size_t i = 0; i < kChannels * frames; ++i) {
    planes[i % kChannels][i / kChannels] = period[i % period.size()];
  }
  return planes;
}

double LoudnessLufs(const Channels& planes, std::size_t from) {
  std::vector<float> stereo;
  for (std::size_t n = from; n < planes[0].size(); ++n) {
    stereo.push_back(planes[0][n]);
    stereo.push_back(planes[1][n]);
  }
  LoudnessMeter meter;
  meter.Add(stereo.data(), stereo.size() / kChannels);
  return meter.Finish().loudness_lufs.value_or(-200);
}

Channels Louder(Channels planes, double gain_db) {
  const auto gain = static_cast<float>(std::pow(10.0, gain_db / 20));
  for (std::vector<float>& plane : planes) {
    for (float& sample : plane) {
      sample *= gain;
    }
  }
  return planes;
}

// How much louder than bypass, by place and loudness, behind the first 8 s of 11.
Json LoudnessJson(const StereoSystem& ears) {
  constexpr std::size_t kFrames = 11 * kRate, kSettled = 8 * kRate;
  const std::vector<double> levels_lufs = {-31, -21, -11};
  Json json{{"in_lufs", levels_lufs}};
  for (const auto& [name, image] : kPlaces) {
    const TestSignal noise(image, Waveform::kNoise, 0.05);
    const Channels in = Programme(noise.frames(), kFrames);
    const double in_lufs = LoudnessLufs(in, kSettled);
    std::vector<double> over_db;
    over_db.reserve(levels_lufs.size());
    for (const double lufs : levels_lufs) {
      over_db.push_back(LoudnessLufs(ears(Louder(in, lufs - in_lufs)), kSettled) - lufs);
    }
    json[name] = Decibels(over_db);
  }
  return json;
}

Json HandoverJson(const ModalSystem& system, const std::string& from, const std::string& to) {
  constexpr std::size_t kFrames = 23 * kRate, kFirst = kChangeWindow - 10;
  const Channels noise = Programme(HalfCentredNoise(0.05), kFrames);
  const std::vector<double> gains_db = HandoverGainsDb(
      system, Louder(noise, -30 - LoudnessLufs(noise, kFrames - 3 * kRate)), from, to);
  std::vector<double> times_s, shown_db;
  for (std::size_t i = kFirst; i < gains_db.size(); ++i) {
    times_s.push_back((static_cast<double>(i) - kChangeWindow + 0.5) / 10);
    shown_db.push_back(gains_db[i]);
  }
  return {{"from", from},
          {"to", to},
          {"short_db", Decibels(HandoverDb(gains_db))},
          {"times_s", Rounded(times_s, 2)},
          {"gain_db", Decibels(shown_db)}};
}

const Decision* Find(const DecisionTable& table, const std::string& mode) {
  for (const Decision& decision : table.decisions) {
    if (decision.device == "wired" && decision.hrtf == "standard" && decision.mode == mode) {
      return &decision;
    }
  }
  return nullptr;
}

}  // namespace

Json MeasureSound(const EffectLibrary& library, const DecisionTable& decisions,
                  const std::filesystem::path& tuning,
                  const std::function<void(const std::string&)>& progress) {
  const EffectChain chain(library,
                          {ParseSetting("device=wired"), ParseSetting("wired-hrtf=standard")});
  Json modes = Json::array();
  std::vector<std::string> whole;  // modes whose stages all load
  for (const std::string mode : {"music", "cinema"}) {
    const Decision* const decision = Find(decisions, mode);
    Json json{
        {"mode", mode},
        {"problems", decision == nullptr ? std::vector<std::string>{"the engine was not asked"}
                                         : decision->problems}};
    if (json["problems"].empty()) {
      progress("measuring the sound of " + mode);
      const StereoSystem ears = [&](const Channels& in) { return chain.Render(in, mode); };
      json["lines"] = LinesJson(ears);
      AddHeard(ears, &json);
      json["room"] = RoomJson(ears, CentreHrirs(*decision, tuning));
      json["loudness"] = LoudnessJson(ears);
      whole.push_back(mode);
    }
    modes.push_back(std::move(json));
  }
  Json handovers = Json::array();
  const ModalSystem system = [&](const Channels& in, const std::string& from, const std::string& to,
                                 std::size_t change) { return chain.Render(in, from, to, change); };
  for (const std::string& to : whole) {
    for (const std::string from : {"off", "music", "cinema"}) {
      const bool loads =
          from == "off" || std::find(whole.begin(), whole.end(), from) != whole.end();
      if (from != to && loads) {
        progress(std::string("measuring how the level goes on from ").append(from).append(" to ") +
                 to);
        handovers.push_back(HandoverJson(system, from, to));
      }
    }
  }
  return {{"modes", std::move(modes)}, {"handovers", std::move(handovers)}};
}

}  // namespace kelda::tools
