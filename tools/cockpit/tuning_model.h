// What the cockpit tunes: two sides, A and B, each a tuning directory in memory and the settings
// that are heard with it.
//
//   project or directory ──► TuningOrigin ──► Side::files ── a knob: one file is patched ──► heard
//                                 ▲                                  │
//                                 └──────────── project_save ◄───────┘
#ifndef KELDA_TOOLS_COCKPIT_TUNING_MODEL_H_
#define KELDA_TOOLS_COCKPIT_TUNING_MODEL_H_

#include <array>
#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <map>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <utility>
#include <vector>

#include "settings/upmix_types.h"
#include "tools/framework/setting.h"
#include "tools/presets/parameter_sets.h"
#include "tools/tune/tuning_build.h"

namespace kelda::tools {

// A tuning directory: the bytes of each file, by its name. Copies share them.
using TuningFiles = std::map<std::string, std::shared_ptr<const std::vector<std::byte>>>;
std::shared_ptr<const std::vector<std::byte>> Shared(std::vector<std::byte> bytes);
std::shared_ptr<const std::vector<std::byte>> SharedText(const std::string& text);

// What a tuning was read from, and what it was then. Both sides may have the same.
struct TuningOrigin {
  std::string name;                                    // for people: "default.toml"
  std::filesystem::path project;                       // empty: there is no file to save to
  TuningProject sources;                               // of a project
  std::map<std::filesystem::path, std::string> texts;  // the project and its presets, as read
  TuningFiles files;                                   // as made from these
};

// Reads a project and makes its files. `warn` as in BuildTuning. `resolve` finds the files that it
// names, as in ReadTuningProject. Throws Failure and Interrupted.
std::shared_ptr<TuningOrigin> OpenProject(const std::filesystem::path& project,
                                          const WarningReceiver& warn,
                                          const FileResolver& resolve = {});
// Reads the files of a tuning directory, as the effect would. Throws Failure if one is missing or
// damaged.
std::shared_ptr<TuningOrigin> OpenTuningDirectory(const std::filesystem::path& directory);

// A file that the user dropped, which Save puts beside the project.
struct DroppedFile {
  std::string name;
  std::shared_ptr<const std::string> bytes;
};

struct Side {
  std::shared_ptr<TuningOrigin> origin;
  TuningFiles files;
  // By the key that names them in a project: "hrtf.standard.sofa", "wired.equalizer".
  std::map<std::string, DroppedFile> dropped;

  UpmixMode mode = UpmixMode::Music;  // Auto included
  std::string device = "wired";       // as ParseDevice takes it
  HrtfType wired_hrtf = HrtfType::Standard, bluetooth_hrtf = HrtfType::Standard;
  bool equalizer = true;                // off: a flat one, where one would run
  std::vector<Setting> other_settings;  // the application

  // What the device is to the effect, and whose files it takes: a loudspeaker has the wired ones.
  AudioDeviceType headphone() const;
  const char* headphone_name() const;  // "wired" or "bluetooth"
  HrtfType hrtf() const;
  void SetHrtf(HrtfType type);
  // The files as they are to be heard.
  TuningFiles HeardFiles() const;
  // In the order in which a phone sends them.
  std::vector<Setting> Settings() const;
  // The file of the ears that are heard: "standard.hki".
  std::string EarsFile() const;
  std::string EqualizerFile() const;
};

// A side that begins with `settings` (device, HRTFs, application, mode) and the HRTF types that the
// tuning names.
Side MakeSide(std::shared_ptr<TuningOrigin> origin, const std::vector<Setting>& settings);

// Parameters as they lie in a file of a tuning directory.
struct Slot {
  std::string key;  // that names its preset in a project: "music.standard", "hrtf.standard.room"
  const ParameterSet* set;
  std::string file;
  std::size_t offset_bytes;

  float Value(const TuningFiles& files, std::size_t index) const;
  // The struct as it lies in the file.
  std::span<const std::byte> Struct(const TuningFiles& files) const;
};
// Those that `files` has, in the order of a project.
std::vector<Slot> SlotsOf(const TuningFiles& files);
// The preset that a project names for `slot`; empty if it names none.
std::filesystem::path PresetOf(const TuningOrigin& origin, const Slot& slot);
// Whether both always have the same values: they have one preset, or the defaults for the same
// mode.
bool SharePreset(const TuningOrigin& origin, const Slot& one, const Slot& other);

// The five sets of knobs, as the page knows them.
inline constexpr const char* kKnobSets[] = {"music", "cinema", "level-music", "level-cinema",
                                            "room"};
const ParameterSet& KnobSet(std::string_view name);  // throws Failure (usage)

// One thread at a time.
class TuningModel {
 public:
  enum class Which { kA, kB };

  TuningModel(Side a, Side b);

  const Side& side(Which which) const { return now_.sides[static_cast<std::size_t>(which)]; }
  // The side that changes are made to.
  Which editing() const { return editing_; }
  void Edit(Which which) { editing_ = which; }

  // Each throws Failure (usage), with nothing changed, for what is not there or not allowed. Values
  // of one gesture (not empty) are one step of undo.
  void SetKnob(const std::string& set, const std::string& key, double value,
               const std::string& gesture);
  void ResetKnob(const std::string& set, const std::string& key);
  void DefaultKnob(const std::string& set, const std::string& key);
  // All values of a set, from a whole struct.
  void SetKnobs(const std::string& set, std::span<const std::byte> parameters);
  void SetSide(Which which, Side side);
  void Undo();
  void Redo();
  std::size_t undo_steps() const { return undo_.size(); }
  std::size_t redo_steps() const { return redo_.size(); }

  // What differs from what was read or saved last: "cinema.room_level_db".
  std::vector<std::string> Changed(Which which) const;
  // Changes that Save would write: of every preset, and files that were dropped.
  std::size_t Unsaved(Which which) const;
  // The edited side was saved: it is what its origin is from now on. If files that were dropped are
  // among that, there is no way back.
  void Saved(TuningOrigin saved);

 private:
  struct Sides {
    std::array<Side, 2> sides;
  };

  Side& edited() { return now_.sides[static_cast<std::size_t>(editing_)]; }
  void Step(const std::string& gesture);
  void Write(Side* side, const std::string& set, std::size_t index, float value) const;

  Sides now_;
  Which editing_ = Which::kA;
  std::vector<Sides> undo_, redo_;
  std::string gesture_;
};

// The slot whose values the knobs of `set` show and turn.
Slot SlotOf(const Side& side, std::string_view set);

}  // namespace kelda::tools

#endif  // KELDA_TOOLS_COCKPIT_TUNING_MODEL_H_
