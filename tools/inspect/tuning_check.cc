#include "tools/inspect/tuning_check.h"

#include <cstddef>
#include <span>

#include "tools/inspect/library_status.h"
#include "upmix-lib/binaural/hrir_set.h"
#include "upmix-lib/equalizer/equalizer_file.h"
#include "upmix-lib/files/config_file.h"
#include "upmix-lib/files/data_file.h"
#include "upmix-lib/level/level_parameters.h"
#include "upmix-lib/upmix/cinema_parameters.h"
#include "upmix-lib/upmix/music_parameters.h"

namespace kelda::tools {
namespace {

using upmix_lib::Status;
using State = TuningFinding::State;

class TuningChecker {
 public:
  explicit TuningChecker(const std::filesystem::path& directory) : directory_(directory) {}

  void AppList() {
    const bool present = std::filesystem::is_regular_file(directory_ / "tunedapp_list");
    Add("tunedapp_list", present ? upmix_lib::kOk : upmix_lib::kDataMissing,
        std::to_string(present ? std::filesystem::file_size(directory_ / "tunedapp_list") : 0) +
            " bytes",
        "in auto, which applications get which mode");
  }

  // A configuration file and the file that it names. `load` reads the latter and
  // describes it.
  template <typename Load>
  void Config(const std::string& name, const std::string& effect, Load load) {
    std::string path;
    const Status status = upmix_lib::ReadConfigFile(directory_.c_str(), name.c_str(), path);
    const std::string target = std::filesystem::path(path).filename();
    Add(name, status, "names " + target, effect);
    if (status != upmix_lib::kOk) return;
    std::string detail;
    const Status loaded = load(path, &detail);
    Add(target, loaded, detail, "named by " + name);
  }

  template <typename Parameters>
  void Blob(const std::string& name, const std::string& effect, const upmix_lib::DataKind& kind,
            std::span<const upmix_lib::ParameterField> fields) {
    std::vector<std::byte> data;
    Status status = upmix_lib::ReadDataFile(directory_ / name, kind, data);
    Parameters parameters;
    if (status == upmix_lib::kOk) {
      status = data.size() == sizeof(parameters)
                   ? upmix_lib::LoadParameters(data.data(), kind, fields, parameters)
                   : upmix_lib::kDataBadLength;
    }
    Add(name, status, std::to_string(data.size()) + " bytes", effect);
  }

  std::vector<TuningFinding> findings;

 private:
  void Add(const std::string& file, Status status, const std::string& detail,
           const std::string& effect) {
    for (const TuningFinding& finding : findings) {
      if (finding.file == file) return;  // two configurations name it
    }
    if (status == upmix_lib::kOk) {
      findings.push_back({file, State::kOk, detail, effect});
    } else {
      findings.push_back({file, IsMissing(status) ? State::kMissing : State::kDamaged,
                          DescribeStatus(status), effect});
    }
  }

  const std::filesystem::path directory_;
};

Status LoadHrirs(const std::string& path, std::string* detail) {
  upmix_lib::HrirSet set;
  const Status status = upmix_lib::LoadHrirSet(path, set);
  *detail = std::to_string(set.taps) + " taps, " + set.source;
  return status;
}

Status LoadEqualizer(const std::string& path, std::string* detail) {
  std::vector<std::byte> data;
  upmix_lib::EqualizerTuning tuning;
  Status status = upmix_lib::ReadDataFile(path, upmix_lib::kEqualizerKind, data);
  if (status == upmix_lib::kOk) status = upmix_lib::ParseEqualizer(data, tuning);
  if (status == upmix_lib::kOk) {
    const auto& curve = tuning.curves.front();
    *detail = tuning.form == upmix_lib::EqualizerForm::kBands
                  ? std::to_string(curve.bands.size()) + " bands"
                  : std::to_string(curve.taps.size()) + " taps";
    if (tuning.curves.size() == 2) *detail += " for each ear";
  }
  return status;
}

}  // namespace

const char* Name(TuningFinding::State state) {
  switch (state) {
    case TuningFinding::State::kOk:
      return "ok";
    case TuningFinding::State::kMissing:
      return "MISSING";
    default:
      return "DAMAGED";
  }
}

std::vector<TuningFinding> CheckTuning(const std::filesystem::path& directory) {
  TuningChecker checker(directory);
  for (const std::string output : {"wired", "bluetooth"}) {
    checker.Config(output + ".hki.config", "the ears of " + output + " outputs", LoadHrirs);
  }
  for (const std::string output : {"wired", "bluetooth"}) {
    checker.Config(output + ".ba.config",
                   "the headphone equalizer of " + output + " outputs, for personalized ears",
                   LoadEqualizer);
  }
  for (const auto& [part, ears] : {std::pair<std::string, std::string>{"hps", "standard"},
                                   std::pair<std::string, std::string>{"hpp", "personalized"}}) {
    checker.Blob<upmix_lib::MusicParameters>("upmix.music." + part + ".bin",
                                             "music for " + ears + " ears", upmix_lib::kMusicKind,
                                             upmix_lib::kMusicFields);
    checker.Blob<upmix_lib::CinemaParameters>("upmix.cinema." + part + ".bin",
                                              "cinema for " + ears + " ears",
                                              upmix_lib::kCinemaKind, upmix_lib::kCinemaFields);
  }
  for (const std::string mode : {"music", "cinema"}) {
    checker.Blob<upmix_lib::LevelParameters>("upl." + mode + ".bin", "the level of " + mode,
                                             upmix_lib::kLevelKind, upmix_lib::kLevelFields);
  }
  checker.AppList();
  return checker.findings;
}

}  // namespace kelda::tools
