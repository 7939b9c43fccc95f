#include "tools/report/report_data.h"

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <optional>

#include "settings/tuning_directory.h"
#include "tools/core/text_file.h"
#include "tools/framework/log_capture.h"
#include "tools/framework/setting.h"
#include "tools/inspect/inspection_text.h"
#include "tools/inspect/tuning_trial.h"
#include "tools/inspect/tuning_verdict.h"
#include "tools/measure/frequency_response.h"
#include "tools/report/chain_measurement.h"
#include "tools/report/mode_change.h"
#include "tools/report/report_curves.h"
#include "tools/report/sound_measurement.h"
#include "upmix-lib/files/data_file.h"

namespace kelda::tools {
namespace {

using upmix_lib::EqualizerTuning;

// Decisions with the same stages and the same data files, whichever configuration names them.
struct Chain {
  Decision decision;  // the first of them
  std::vector<std::string> when;
  std::optional<ChainMeasurement> measurement;
};

// The stages that run, and the data files that they load.
std::string Signature(const Decision& decision) {
  std::string text;
  for (const Stage& stage : decision.stages) {
    if (stage.runs) {
      text.append(stage.name);
      for (const StageFile& file : stage.files) {
        text.append(" ").append(file.role == "bin" ? file.file : file.names);
      }
      text.append(";");
    }
  }
  return text;
}

std::vector<Chain> FindChains(const DecisionTable& table) {
  std::vector<Chain> chains;
  for (const Decision& decision : table.decisions) {
    if (decision.device == "other" || decision.hrtf == "tuned" || decision.mode == "auto") {
      continue;
    }
    std::string when = decision.device + ", " + decision.hrtf;
    when += TunedHrtf(table, decision.device) == decision.hrtf ? " (as tuned)" : "";
    const auto same = std::find_if(chains.begin(), chains.end(), [&](const Chain& chain) {
      return Signature(chain.decision) == Signature(decision) &&
             chain.decision.problems.empty() == decision.problems.empty();
    });
    if (same == chains.end()) {
      chains.push_back({decision, {when}, {}});
    } else {
      same->when.push_back(when);
    }
  }
  return chains;
}

std::vector<Setting> Settings(const Decision& decision) {
  return {ParseSetting("device=" + decision.device),
          ParseSetting(decision.device + "-hrtf=" + decision.hrtf),
          ParseSetting("mode=" + decision.mode)};
}

// "Music, personalized", with the device if several chains have the same mode and HRTF.
std::string Title(const Chain& chain, const std::vector<Chain>& chains) {
  const auto alike = std::count_if(chains.begin(), chains.end(), [&](const Chain& other) {
    return other.decision.mode == chain.decision.mode && other.decision.hrtf == chain.decision.hrtf;
  });
  std::string title = chain.decision.mode + ", " + chain.decision.hrtf;
  title[0] = static_cast<char>(title[0] - 'a' + 'A');
  return alike > 1 ? title + ", " + chain.decision.device : title;
}

Json ImageJson(const ImageResponse& image) {
  return {{"left_db", Decibels(image.gain_db[0])},
          {"right_db", Decibels(image.gain_db[1])},
          {"level_db", Decibels(image.level_db)},
          {"arrival_frames", Rounded(image.arrival_frames, 1)},
          {"true_peak_db", Decibels(image.full_scale_true_peak_db)}};
}

Json ChainJson(const Chain& chain, const std::vector<Chain>& chains) {
  Json json{{"title", Title(chain, chains)},
            {"when", chain.when},
            {"stages", Json::array()},
            {"problems", chain.decision.problems}};
  for (const Stage& stage : chain.decision.stages) {
    if (stage.runs) {
      const std::string files = FormatFiles(stage);
      json["stages"].push_back(StageTitle(stage.name) + (files.empty() ? "" : ": " + files));
    }
  }
  if (chain.measurement) {
    json["latency_frames"] = chain.measurement->latency_frames;
    json["heard_latency_frames"] = Rounded(chain.measurement->heard_latency_frames, 1);
    json["images"] = {{"centre", ImageJson(chain.measurement->images[0])},
                      {"left", ImageJson(chain.measurement->images[1])},
                      {"diffuse", ImageJson(chain.measurement->images[2])}};
  }
  return json;
}

// The measurement of a chain in which the equalizer `name` runs alone.
const ChainMeasurement* FindAlone(const std::vector<Chain>& chains, const std::string& name) {
  for (const Chain& chain : chains) {
    for (const Stage& stage : chain.decision.stages) {
      if (chain.measurement && chain.decision.mode == "off" && stage.runs &&
          stage.name == FactsOf(kelda::Stage::HeadphoneEqualizer).name && stage.files.size() == 1 &&
          stage.files[0].names == name) {
        return &*chain.measurement;
      }
    }
  }
  return nullptr;
}

void AddMeasured(const EqualizerTuning& tuning, const ChainMeasurement& measurement, Json* json) {
  // The two channels of diffuse sound have nothing in common, so each ear hears only its own.
  const ImageResponse& image = measurement.images[static_cast<std::size_t>(Image::kDiffuse)];
  double deviation_db = 0;
  for (std::size_t ear = 0; ear < 2; ++ear) {
    const std::size_t curve = std::min(ear, tuning.curves.size() - 1);
    const std::vector<double> expected_db =
        BandAverageDb([&](double freq_hz) { return EqualizerGainDb(tuning, curve, freq_hz); });
    for (std::size_t i = 0; i < expected_db.size(); ++i) {
      deviation_db = std::max(deviation_db, std::abs(expected_db[i] - image.gain_db[ear][i]));
    }
    (*json)["curves"][curve]["measured_db"] = Decibels(image.gain_db[ear]);
  }
  (*json)["deviation_db"] = Rounded(deviation_db, 4);
}

Json EqualizersJson(const InspectedDirectory& directory, const std::vector<Chain>& chains) {
  Json equalizers = Json::array();
  for (const DirectoryEntry& entry : directory.entries) {
    std::vector<std::byte> file;
    EqualizerTuning tuning;
    if (entry.state == DirectoryEntry::State::kUsable && entry.file.kind == file_kind::kEqualizer &&
        upmix_lib::ReadDataFile((directory.path / entry.name).string(), upmix_lib::kEqualizerKind,
                                file) == upmix_lib::kOk &&
        upmix_lib::ParseEqualizer(file, tuning) == upmix_lib::kOk) {
      Json json = EqualizerJson(entry.name, tuning);
      if (const ChainMeasurement* alone = FindAlone(chains, entry.name)) {
        AddMeasured(tuning, *alone, &json);
      }
      equalizers.push_back(std::move(json));
    }
  }
  return equalizers;
}

Json AllEarsJson(const InspectedDirectory& directory) {
  Json ears = Json::array();
  for (const DirectoryEntry& entry : directory.entries) {
    upmix_lib::HrirSet set;
    if (entry.state == DirectoryEntry::State::kUsable && entry.file.kind == file_kind::kHrirs &&
        upmix_lib::LoadHrirSet((directory.path / entry.name).string(), set) == upmix_lib::kOk) {
      ears.push_back(EarsJson(entry.name, set));
    }
  }
  return ears;
}

Json FilesJson(const InspectedDirectory& directory) {
  Json files = Json::array();
  for (const DirectoryEntry& entry : directory.entries) {
    files.push_back({{"name", entry.name}, {"state", Name(entry.state)}, {"note", Note(entry)}});
  }
  return files;
}

Json ApplicationsJson(const DecisionTable& table) {
  Json applications = Json::array();
  for (const AppDecision& app : table.apps) {
    applications.push_back({{"name", ShownName(table, app)},
                            {"wired", WithFlag(app.wired, app.flagged_wired)},
                            {"bluetooth", WithFlag(app.bluetooth, app.flagged_bluetooth)},
                            {"other", app.other}});
  }
  return applications;
}

Json CurveJson(const LevelCurve& curve) {
  std::vector<double> times_ms(curve.level_db.size());  // the middles of the windows
  for (std::size_t i = 0; i < times_ms.size(); ++i) {
    times_ms[i] = curve.begin_ms + (static_cast<double>(i) + 0.5) * curve.window_ms;
  }
  return {{"times_ms", Rounded(times_ms, 1)}, {"level_db", Decibels(curve.level_db)}};
}

Json ChangeJson(const ModeChange& change) {
  return {{"from", change.from},
          {"to", change.to},
          {"fade", CurveJson(change.fade)},
          {"settling", CurveJson(change.settling)},
          {"before_db", Decibels(change.before_db)},
          {"just_after_db", Decibels(change.just_after_db)},
          {"later_db", Decibels(change.later_db)},
          {"silence_ms", Rounded(change.silence_ms, 2)},
          {"steps", change.steps}};
}

// What `kelda doctor` says about the files and the sound. It leaves out files that are in order,
// which the list of files shows.
Json VerdictJson(const InspectedDirectory& directory, const TuningTrial& trial) {
  Json verdict{{"files", Json::array()}, {"heard", Json::array()}, {"log", trial.log}};
  for (const DirectoryEntry& entry : directory.entries) {
    if (entry.state == DirectoryEntry::State::kMissing ||
        entry.state == DirectoryEntry::State::kFaulty) {
      verdict["files"].push_back({{"name", entry.name},
                                  {"state", Finding(entry)},
                                  {"detail", Note(entry)},
                                  {"effect", entry.purpose}});
    }
  }
  for (const Heard& heard : trial.heard) {
    verdict["heard"].push_back({{"situation", heard.situation},
                                {"verdict", Verdict(heard)},
                                {"fine", AsItShouldBe(heard)}});
  }
  return verdict;
}

std::vector<std::string> Lines(std::string_view text) {
  std::vector<std::string> lines;
  while (!text.empty()) {
    lines.emplace_back(TakeLine(&text));
  }
  return lines;
}

}  // namespace

Json CollectReport(const InspectedDirectory& directory, const EffectLibrary& library,
                   const std::function<void(const std::string&)>& progress) {
  progress("listening as kelda doctor does");
  const TuningTrial trial = TryTuning(library);
  const LogCapture log;  // keeps the log off the terminal: the problems in it are known
  std::vector<Chain> chains = FindChains(directory.decisions);
  for (Chain& chain : chains) {
    if (chain.decision.problems.empty()) {
      progress("measuring " + Title(chain, chains));
      chain.measurement = MeasureChain(library, Settings(chain.decision));
    }
  }
  Json changes = Json::array();
  for (const auto& [from, to] : {std::pair{"off", "music"}, std::pair{"music", "cinema"},
                                 std::pair{"cinema", "music"}, std::pair{"music", "off"}}) {
    progress(std::string("measuring the change from ") + from + " to " + to);
    changes.push_back(
        ChangeJson(MeasureModeChange(library, {ParseSetting("device=wired")}, from, to)));
  }
  Json sound = MeasureSound(library, directory.decisions, directory.path, progress);
  Json chains_json = Json::array();
  for (const Chain& chain : chains) {
    chains_json.push_back(ChainJson(chain, chains));
  }
  constexpr double kPeriodSeconds = static_cast<double>(TestSignal::kPeriod) / kSampleRateHz;
  return {{"directory",
           std::filesystem::absolute(directory.path / "x").parent_path().filename().string()},
          {"version", KELDA_VERSION},
          {"problems", Lines(Problems(directory))},
          {"verdict", VerdictJson(directory, trial)},
          {"warnings", directory.decisions.warnings},
          {"files", FilesJson(directory)},
          {"applications", ApplicationsJson(directory.decisions)},
          {"frequencies", Rounded(ResponseFrequencies(), 2)},
          {"method",
           {{"level", "−26 dBFS"},
            {"change_level_s", ModeChange::kLevelMs / 1000.0},
            {"change_just_after_s", ModeChange::kJustAfterMs / 1000.0},
            {"change_later_s", ModeChange::kLaterMs / 1000.0},
            {"period_ms", 1000 * kPeriodSeconds},
            {"host_ms", 1000.0 * double{ChainMeasurement::kHostFrames} / kSampleRateHz},
            {"settling_s", ImageResponse::kSettlingSeconds},
            {"average_s", kPeriodSeconds * double{ImageResponse::kPeriods}}}},
          {"equalizers", EqualizersJson(directory, chains)},
          {"ears", AllEarsJson(directory)},
          {"chains", std::move(chains_json)},
          {"changes", std::move(changes)},
          {"sound", std::move(sound)}};
}

}  // namespace kelda::tools
