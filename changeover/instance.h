// An instance of the effect, driven through its library's record in whole periods, with the same
// latency for every sound.
#ifndef KELDA_CHANGEOVER_INSTANCE_H_
#define KELDA_CHANGEOVER_INSTANCE_H_

#include <hardware/audio_effect.h>

#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>

#include "changeover/sound.h"
#include "effect/commands.h"
#include "platform/audio_format.h"
#include "platform/nonblocking.h"

namespace kelda::changeover {

inline constexpr std::size_t kChannels = 2;
inline constexpr std::size_t kPeriodSamples = kChannels * kPeriodFrames;

// What the longest chain of processors delays: upmix and level control.
inline constexpr std::size_t kChainFrames = 144;

// What an instance is configured for: interleaved stereo floats at kSampleRateHz, read from one
// buffer and written to another, which may be the same.
effect_config_t StreamConfig();

// It is made, configured and enabled once. For each turn it is set anew, and it never gets a second
// EFFECT_CMD_INIT, because each engine keeps the memory of its level control for ever.
//
// The worker uses it while it is a standby, the audio thread while it is heard: never both at once.
//
//   auto instance = Instance::Make(library);
//   if (instance->Set(sound)) {
//     instance->Process(period);
//     Play(instance->output());
//   }
class Instance {
 public:
  // Null if the effect refuses, for want of memory or of the property vendor.kelda.effect.
  // `library` outlives the instance; `number` tells it from the others. Throws std::bad_alloc.
  static std::unique_ptr<Instance> Make(const audio_effect_library_t& library, unsigned number);
  ~Instance();
  Instance(const Instance&) = delete;
  Instance& operator=(const Instance&) = delete;

  // Loads everything that `sound` needs, whatever was loaded before, and forgets all audio; the
  // level control keeps its gain and the loudness of the last programme. Returns false if not
  // everything could be loaded; the instance may then be set again, and must not be heard.
  bool Set(const Sound& sound);

  // The level control lets its gain rise slowly, but cuts a programme that is too loud at once. So
  // between turns it is led to its highest gain: a pause makes it forget the last programme, and a
  // whisper lets its gain rise; from there the next programme finds its level within two seconds.
  // Plays up to `periods` of both.
  void Park(int periods);
  static constexpr int kPausePeriods = 250;  // 5.3 s: a room dies away, and 1 s of silence follows
  static constexpr int kParkPeriods = kPausePeriods + 610;  // 13 s: 39 dB, 3 dB a second
  // Periods of it since a level control last ran.
  int parked() const { return parked_; }

  // Makes the level control forget the last programme, but not its gain, after Set.
  void Pause();

  // What it was set to last; music where it was parked in off.
  const Sound& sound() const { return sound_; }

  // Forgets all audio.
  void Flush();

  // Processes a period of interleaved stereo. Audio, or the worker.
  void Process(const float* period) KELDA_NONBLOCKING;

  // The last kPeriodFrames that came out, kChainFrames later than they went in, interleaved.
  const float* output() const { return output_; }

  unsigned number() const { return number_; }
  // The effect's own report, as it was when the sound was set.
  const std::string& report() const { return report_; }

 private:
  using ProcessEntry = int32_t (*)(effect_handle_t, audio_buffer_t*,
                                   audio_buffer_t*) KELDA_NONBLOCKING;

  Instance(const audio_effect_library_t& library, effect_handle_t handle, unsigned number);

  bool Configure();
  bool Command(uint32_t code, const void* data, std::size_t bytes) const;
  bool SetParam(UpmixParam param, uint32_t value) const;
  bool SetMode(UpmixMode mode) const;
  bool SetDevice(uint32_t device) const;
  bool SetHeadphone(ParameterSet headphone) const;
  bool Carries();
  bool ReadReport();

  const audio_effect_library_t& library_;
  const effect_handle_t handle_;
  const ProcessEntry process_;
  const unsigned number_;
  Sound sound_;
  std::optional<ParameterSet> loaded_;  // the headphone's files
  bool certain_ = true;                 // no command was refused since
  std::string report_;
  int parked_ = kParkPeriods;  // a new level control finds its level by itself
  uint32_t whisper_ = 1;
  // What the effect does not delay is written kChainFrames into it.
  alignas(64) float output_[kPeriodSamples + kChannels * kChainFrames] = {};
};

}  // namespace kelda::changeover

#endif  // KELDA_CHANGEOVER_INSTANCE_H_
