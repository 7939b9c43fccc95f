#include "tools/tune/tuning_build.h"

#include <cmath>
#include <cstring>
#include <optional>
#include <span>

#include "settings/tuning_directory.h"
#include "tools/core/format.h"
#include "tools/core/text_file.h"
#include "tools/ears/tuned_hrirs.h"
#include "tools/equalizer/equalizer_design.h"
#include "tools/equalizer/equalizer_text.h"
#include "tools/presets/parameter_sets.h"
#include "tools/presets/preset_toml.h"
#include "tools/tune/app_list_check.h"
#include "tools/tune/chain_loudness.h"
#include "upmix-lib/equalizer/equalizer_file.h"
#include "upmix-lib/files/data_file.h"
#include "upmix-lib/level/level_parameters.h"

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
    const Upmix cinema = AddUpmix(project.upmixes.at("cinema"), tuning_file::kStandardCinema,
                                  tuning_file::kPersonalizedCinema, CinemaParameterSet());
    const Upmix music = AddUpmix(project.upmixes.at("music"), tuning_file::kStandardMusic,
                                 tuning_file::kPersonalizedMusic, MusicParameterSet());
    AddLevel(tuning_file::kCinemaLevel, project, "cinema", cinema);
    AddLevel(tuning_file::kMusicLevel, project, "music", music);
    return std::move(build_);
  }

 private:
  using Bytes = std::vector<std::byte>;
  struct Upmix {
    Bytes standard, personalized;  // parameters
  };

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
    sets_[name] = std::move(tuned.set);
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
    equalizers_[path] = design.tuning;
  }

  Upmix AddUpmix(const TuningProject::Presets& presets, const kelda::TuningFile& standard,
                 const kelda::TuningFile& personalized, const ParameterSet& set) {
    return {AddPreset(standard, presets.standard, set),
            AddPreset(personalized, presets.personalized, set)};
  }

  static Bytes Preset(const fs::path& preset, const ParameterSet& set) {
    return preset.empty() ? DefaultPreset(set) : ReadPreset(preset, set);
  }

  static std::string Origin(const fs::path& preset) {
    return preset.empty() ? "the defaults" : preset.string();
  }

  Bytes AddPreset(const kelda::TuningFile& file, const fs::path& preset, const ParameterSet& set) {
    Bytes parameters = Preset(preset, set);
    Add(file.name, parameters, Origin(preset));
    return parameters;
  }

  // The input goes up to full scale, and masters that were limited stay there: what the limiter
  // takes off their peaks, it shall not take off their loudness.
  static upmix_lib::LevelParameters AsInput(const fs::path& preset) {
    const ParameterSet& set = LevelParameterSet();
    auto parameters = Parameters<upmix_lib::LevelParameters>(DefaultPreset(set));
    parameters.ceiling_dbtp = -0.1f;
    parameters.limiter_release_ms = 40;
    if (!preset.empty()) {
      const auto bytes = std::as_bytes(std::span(&parameters, 1));
      parameters = Parameters<upmix_lib::LevelParameters>(
          ReadPreset(preset, set, {bytes.begin(), bytes.end()}));
    }
    parameters.strength = 0;
    return parameters;
  }

  void AddLevel(const kelda::TuningFile& file, const TuningProject& project,
                const std::string& mode, const Upmix& upmix) {
    const fs::path& preset = project.levels.at(mode);
    if (!project.level_as_input) {
      AddPreset(file, preset, LevelParameterSet());
      return;
    }
    const ChainLoudness wired = Measure(project.devices.at("wired"), mode, upmix);
    const ChainLoudness bluetooth = Measure(project.devices.at("bluetooth"), mode, upmix);
    const double gain_db = -0.5 * (wired.mix_lu() + bluetooth.mix_lu());
    auto parameters = AsInput(preset);
    parameters.gain_db = static_cast<float>(gain_db);
    const auto bytes = std::as_writable_bytes(std::span(&parameters, 1));
    if (upmix_lib::CheckFields(bytes, upmix_lib::kLevelFields) != upmix_lib::kOk) {
      throw Failure(
          ExitCode::kInput,
          Format("level.as_input: the chain of %s would need %+.1f dB to be as loud as the input; "
                 "a level control gives -24 to 24 dB",
                 mode.c_str(), gain_db));
    }
    upmix_lib::Seal(bytes, upmix_lib::kLevelKind);
    Add(file.name, {bytes.begin(), bytes.end()}, Origin(preset) + ", as loud as the input");
    build_.report += Format(
        "gain %+.2f dB, ceiling %.1f dBTP, release %.0f ms\n"
        "loudness then, from the centre, the left, all around: wired %+.1f, %+.1f, "
        "%+.1f LU; bluetooth %+.1f, %+.1f, %+.1f LU\n",
        gain_db, static_cast<double>(parameters.ceiling_dbtp),
        static_cast<double>(parameters.limiter_release_ms), wired.centre_lu + gain_db,
        wired.left_lu + gain_db, wired.wide_lu + gain_db, bluetooth.centre_lu + gain_db,
        bluetooth.left_lu + gain_db, bluetooth.wide_lu + gain_db);
  }

  template <typename T>
  static T Parameters(const Bytes& bytes) {
    T parameters;
    std::memcpy(static_cast<void*>(&parameters), bytes.data(), sizeof(parameters));
    return parameters;
  }

  // The chain as it is with the ears that the device starts with.
  ChainLoudness Measure(const TuningProject::Device& device, const std::string& mode,
                        const Upmix& upmix) {
    const bool personalized = device.hrtf == "personalized";
    const upmix_lib::HrirSet& ears = sets_.at(device.hrtf + ".hki");
    const upmix_lib::EqualizerTuning* const equalizer =
        personalized ? &equalizers_.at(device.equalizer) : nullptr;
    const Bytes& parameters = personalized ? upmix.personalized : upmix.standard;
    return MeasureChain([&]() {
      return mode == "music"
                 ? MusicChain(Parameters<upmix_lib::MusicParameters>(parameters), ears, equalizer)
                 : CinemaChain(Parameters<upmix_lib::CinemaParameters>(parameters), ears,
                               equalizer);
    });
  }

  std::map<std::string, upmix_lib::HrirSet> sets_;  // by the names of their files
  std::map<fs::path, upmix_lib::EqualizerTuning> equalizers_;
  const WarningReceiver& warn_;
  TuningBuild build_;
};

}  // namespace

TuningBuild BuildTuning(const TuningProject& project, const WarningReceiver& warn) {
  return Builder(warn).Build(project);
}

}  // namespace kelda::tools
