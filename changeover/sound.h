// What a host sets, and what is heard of it.
//
//   settings, in their order ──► Outcome ──► Sound ──► the commands that an instance is given
//
// The effect lets the order of commands count: with personalized ears and the mode off, the
// equalizer runs if a device or HRTF command came last, and does not if the mode was switched off
// last; and after its list was read again the playing application keeps its mode until it is
// named again. So the settings are followed in their order, by the engine's own decision, and what
// comes out is a Sound, from which an instance in any state is set.
#ifndef KELDA_CHANGEOVER_SOUND_H_
#define KELDA_CHANGEOVER_SOUND_H_

#include <system/audio.h>

#include <cstdint>
#include <optional>
#include <span>
#include <string>

#include "engine/plan.h"
#include "settings/tuned_app_list.h"
#include "settings/upmix_types.h"

namespace kelda::changeover {

// One setting of a host.
struct Setting {
  enum class Kind {
    Mode,                // value: UpmixMode, Auto included
    Device,              // value: the effect's device word
    WiredHrtf,           // value: HrtfType
    BluetoothHrtf,       // value: HrtfType
    Application,         // package; value: 1 if it plays films unless the list says otherwise
    ReloadApplications,  // the list of tuned applications was changed
    ReloadTuning,        // any other tuning file was changed
  };

  Kind kind;
  uint32_t value = 0;
  std::string package{};
};

inline constexpr uint32_t kNoDevice = 0;

// The device word for the outputs that play together. Several different ones are no headphone for
// the effect, not even where their words together look like one: kNoDevice. Any thread.
uint32_t DeviceWord(std::span<const uint32_t> devices);

// What is heard. Two settings with equal sounds sound the same, bit for bit.
struct Sound {
  UpmixMode mode = UpmixMode::Off;  // never Auto
  // The headphone's files. In Off only those of personalized ears, whose equalizer runs then.
  std::optional<ParameterSet> headphone;
  uint32_t tuning = 0;  // counts the changes of the tuning files

  bool operator==(const Sound&) const = default;
  // Whether it comes out as it went in, but for the latency.
  bool plain() const { return mode == UpmixMode::Off && !headphone; }
};

// "music, wired, personalized". Allocates nothing.
struct SoundName {
  char text[48];
};
SoundName NameOf(const Sound& sound) noexcept;

// Follows the settings of a host as an engine would that gets them in their order. One thread.
//
//   Outcome outcome;
//   outcome.Follow({Setting::Kind::Mode, static_cast<uint32_t>(UpmixMode::Music)});
//   outcome.sound();  // still off: there is no headphone yet
class Outcome {
 public:
  // As an instance that is made now: reads the HRTF types and the list of applications from the
  // tuning directory. Throws std::bad_alloc.
  Outcome();

  // Reads the list for ReloadApplications. Throws std::bad_alloc, with nothing changed.
  void Follow(const Setting& setting);

  Sound sound() const;
  uint32_t tuning() const { return tuning_; }  // as in Sound, if this sound had one
  HrtfType hrtf(AudioDeviceType headphone) const {
    return headphone == AudioDeviceType::Wired ? settings_.wired_hrtf : settings_.bluetooth_hrtf;
  }

 private:
  void Decide(Changed changed);
  void DecideHrtf(AudioDeviceType device);

  EngineSettings settings_;
  TunedAppList applications_;
  UpmixMode runs_ = UpmixMode::Off;
  bool equalizer_ = false;
  std::optional<ParameterSet> headphone_;  // sent last
  uint32_t tuning_ = 0;
};

}  // namespace kelda::changeover

#endif  // KELDA_CHANGEOVER_SOUND_H_
