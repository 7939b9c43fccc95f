#include "tools/tune/tuning_build.h"

#include <span>

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
    for (const auto& [type, ears] : project.ears) AddEars(type + ".hki", ears);
    AddEqualizers(project.devices);
    for (const auto& [device, settings] : project.devices) {
      AddText(device + ".hki.config", settings.hrtf + ".hki\n");
    }
    for (const auto& [mode, presets] : project.upmixes) {
      const ParameterSet& set = mode == "music" ? MusicParameterSet() : CinemaParameterSet();
      AddPreset("upmix." + mode + ".hps.bin", presets.standard, set);
      AddPreset("upmix." + mode + ".hpp.bin", presets.personalized, set);
    }
    for (const auto& [mode, preset] : project.levels) {
      AddPreset("upl." + mode + ".bin", preset, LevelParameterSet());
    }
    return std::move(build_);
  }

 private:
  void Add(const std::string& name, std::vector<std::byte> bytes, const std::string& origin) {
    build_.files.push_back({name, std::move(bytes)});
    build_.report.append("\n== ").append(name).append(": ").append(origin).append("\n");
  }

  void AddText(const std::string& name, const std::string& text) {
    const auto bytes = std::as_bytes(std::span(text));
    build_.files.push_back({name, {bytes.begin(), bytes.end()}});
    build_.report.append("\n== ").append(name).append(": ").append(text);
  }

  void Warn(const std::string& lines) {
    if (!lines.empty()) warn_(lines);
  }

  void AddApplications(const fs::path& path) {
    const std::string list = ReadWholeFile(path, kMaxAppListBytes);
    const AppListCheck check = CheckAppList(path.string(), list);
    Warn(check.doubtful.Text());
    check.rejected.ThrowIfAny();
    const auto bytes = std::as_bytes(std::span(list));
    Add("tunedapp_list", {bytes.begin(), bytes.end()}, path.string());
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
    for (const auto& [device, settings] : devices) shared &= settings.equalizer == first;
    if (shared) AddEqualizer("personalized.ba", first);
    for (const auto& [device, settings] : devices) {
      if (!shared) AddEqualizer(device + ".ba", settings.equalizer);
      AddText(device + ".ba.config", (shared ? "personalized" : device) + ".ba\n");
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

  void AddPreset(const std::string& name, const fs::path& preset, const ParameterSet& set) {
    Add(name, preset.empty() ? DefaultPreset(set) : ReadPreset(preset, set),
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
