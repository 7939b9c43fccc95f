#include "tools/tune/tuning_build.h"

#include <span>

#include "settings/tuning_directory.h"
#include "tools/core/text_file.h"
#include "tools/ears/tuned_hrirs.h"
#include "tools/equalizer/equalizer_design.h"
#include "tools/equalizer/equalizer_text.h"
#include "tools/presets/parameter_sets.h"
#include "tools/presets/preset_toml.h"
#include "tools/tune/app_list_check.h"
#include "upmix-lib/equalizer/equalizer_file.h"

namespace kelda::tools {
namespace {

namespace fs = std::filesystem;

class Builder {
 public:
  explicit Builder(const WarningReceiver& warn) : warn_(warn) {}

  TuningBuild Build(const TuningProject& project) {
    AddApplications(project.applications);
    for (const auto& [type, ears] : project.ears) {
      AddEars(type + ".hki", ears);
    }
    AddEqualizers(project.devices);
    for (const auto& [device, settings] : project.devices) {
      AddText(device == "wired" ? tuning_file::kWiredHki : tuning_file::kBluetoothHki,
              settings.hrtf + ".hki\n");
    }
    AddUpmix(project.upmixes.at("cinema"), tuning_file::kStandardCinema,
             tuning_file::kPersonalizedCinema, CinemaParameterSet());
    AddUpmix(project.upmixes.at("music"), tuning_file::kStandardMusic,
             tuning_file::kPersonalizedMusic, MusicParameterSet());
    AddPreset(tuning_file::kCinemaLevel, project.levels.at("cinema"), LevelParameterSet());
    AddPreset(tuning_file::kMusicLevel, project.levels.at("music"), LevelParameterSet());
    return std::move(build_);
  }

 private:
  void Add(const std::string& name, std::vector<std::byte> bytes, const std::string& origin) {
    build_.files.push_back({name, std::move(bytes)});
    build_.report.append("\n== ").append(name).append(": ").append(origin).append("\n");
  }

  void AddText(const kelda::TuningFile& file, const std::string& text) {
    const auto bytes = std::as_bytes(std::span(text));
    build_.files.push_back({file.name, {bytes.begin(), bytes.end()}});
    build_.report.append("\n== ").append(file.name).append(": ").append(text);
  }

  void Warn(const std::string& lines) {
    if (!lines.empty()) {
      warn_(lines);
    }
  }

  void AddApplications(const fs::path& path) {
    const std::string list = ReadWholeFile(path, kMaxAppListBytes);
    const AppListCheck check = CheckAppList(path.string(), list);
    Warn(check.doubtful.Text());
    check.rejected.ThrowIfAny();
    const auto bytes = std::as_bytes(std::span(list));
    Add(tuning_file::kAppList.name, {bytes.begin(), bytes.end()}, path.string());
    build_.report += std::to_string(check.entries) + " applications\n";
  }

  void AddEars(const std::string& name, const TuningProject::Ears& ears) {
    HrirOptions options = ears.options;
    options.room = ReadRoom(ears.room);
    TunedHrirs tuned = TuneHrirs(ears.sofa, options);
    Add(name, std::move(tuned.file), ears.sofa.string());
    build_.report += tuned.report;
  }

  void AddEqualizers(const std::map<std::string, TuningProject::Device>& devices) {
    const fs::path& first = devices.begin()->second.equalizer;
    bool shared = true;
    for (const auto& [device, settings] : devices) {
      shared &= settings.equalizer == first;
    }
    if (shared) {
      AddEqualizer("personalized.ba", first);
    }
    for (const auto& [device, settings] : devices) {
      if (!shared) {
        AddEqualizer(device + ".ba", settings.equalizer);
      }
      AddText(device == "wired" ? tuning_file::kWiredBa : tuning_file::kBluetoothBa,
              (shared ? "personalized" : device) + ".ba\n");
    }
  }

  void AddEqualizer(const std::string& name, const fs::path& path) {
    const EqualizerText text = ReadEqualizerText(path);
    Warn(text.warnings);
    const EqualizerDesign design = DesignEqualizer(text, path.string());
    Warn(ClippingWarning(design, path.string()));
    Add(name, upmix_lib::BuildEqualizerFile(design.tuning), path.string());
    build_.report += DescribeEqualizer(design);
  }

  void AddUpmix(const TuningProject::Presets& presets, const kelda::TuningFile& standard,
                const kelda::TuningFile& personalized, const ParameterSet& set) {
    AddPreset(standard, presets.standard, set);
    AddPreset(personalized, presets.personalized, set);
  }

  void AddPreset(const kelda::TuningFile& file, const fs::path& preset, const ParameterSet& set) {
    Add(file.name, preset.empty() ? DefaultPreset(set) : ReadPreset(preset, set),
        preset.empty() ? "the defaults" : preset.string());
  }

  const WarningReceiver& warn_;
  TuningBuild build_;
};

}  // namespace

TuningBuild BuildTuning(const TuningProject& project, const WarningReceiver& warn) {
  return Builder(warn).Build(project);
}

}  // namespace kelda::tools
