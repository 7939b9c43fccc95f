// Decides what the engine does about a setting, without doing it.
//
//   requested mode ──┐                          ┌─► which stages run, fade or not
//   application ─────┼─► MakePlan ─► Plan ──────┼─► the level control's file
//   output device ───┤                          └─► the headphone's files and equalizer
//   HRTF per device ─┘
#ifndef KELDA_ENGINE_PLAN_H_
#define KELDA_ENGINE_PLAN_H_

#include <array>
#include <cstddef>
#include <optional>
#include <span>

#include "settings/tuning_directory.h"
#include "settings/upmix_types.h"

namespace kelda {

// Everything that the engine's decisions depend on.
struct EngineSettings {
  UpmixMode requested_mode = UpmixMode::Off;
  UpmixMode app_mode = UpmixMode::Music;  // of the playing application
  AudioDeviceType device = AudioDeviceType::Other;
  HrtfType bluetooth_hrtf = HrtfType::Standard;
  HrtfType wired_hrtf = HrtfType::Standard;
};

// The setting that was just set. A device or HRTF that is set again has its files sent again;
// a mode that already runs changes nothing.
enum class Changed {
  Mode,    // the requested mode or the application's
  Device,  // the output in use
  Hrtf,    // that of the output in use
};

// Parameters that the stages are sent together.
enum class ParameterSet {
  MusicLevel,
  CinemaLevel,
  WiredStandard,
  WiredPersonalized,
  BluetoothStandard,
  BluetoothPersonalized,
};
inline constexpr std::size_t kParameterSets = 6;

struct Parameter {
  const char* key;
  const char* file;  // in the tuning directory; null: none applies
};
std::span<const Parameter> ParametersOf(ParameterSet set);

struct StageSwitch {
  Stage stage;
  bool on;

  bool operator==(const StageSwitch&) const = default;
};

// The steps of a change of mode, in this order.
struct ModeChange {
  std::array<StageSwitch, kStages.size()> switches;
  bool fade;
  std::optional<ParameterSet> level;

  bool operator==(const ModeChange&) const = default;
};

struct HeadphoneChange {
  bool equalizer;  // on or off
  ParameterSet files;

  bool operator==(const HeadphoneChange&) const = default;
};

struct Plan {
  UpmixMode mode;                            // to run
  std::optional<ModeChange> mode_change;     // first; none if `mode` runs already or cannot run
  std::optional<HeadphoneChange> headphone;  // after it

  bool operator==(const Plan&) const = default;
};

// What to do after `changed` was set, while the mode `running` runs. Allocates nothing.
//
//   settings.device = AudioDeviceType::Wired;
//   Plan plan = MakePlan(settings, UpmixMode::Off, Changed::Device);
Plan MakePlan(const EngineSettings& settings, UpmixMode running, Changed changed);

}  // namespace kelda

#endif  // KELDA_ENGINE_PLAN_H_
