// One instance of the effect, driven through the framework's command protocol.
#ifndef KELDA_TOOLS_FRAMEWORK_EFFECT_SESSION_H_
#define KELDA_TOOLS_FRAMEWORK_EFFECT_SESSION_H_

#include <hardware/audio_effect.h>

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

#include "effect/parameters.h"
#include "platform/audio_format.h"
#include "tools/framework/effect_library.h"

namespace kelda::tools {

inline constexpr uint32_t kSampleRateHz = kelda::kSampleRateHz;
inline constexpr std::size_t kChannels = 2;

// Every operation throws Failure (refused) if the effect returns an error or replies with one; the
// message names the command and the value. Used by one thread.
class EffectSession {
 public:
  // Creates an instance by UUID, then EFFECT_CMD_INIT and EFFECT_CMD_SET_CONFIG
  // (48 kHz, stereo, float). `library` outlives the session.
  explicit EffectSession(const EffectLibrary& library);
  // Releases the instance.
  ~EffectSession();
  EffectSession(const EffectSession&) = delete;
  EffectSession& operator=(const EffectSession&) = delete;

  // Creates the engine again: disabled, with the initial settings.
  void Init();
  // Sets the same configuration again, which drops all audio that waits in the chain.
  void Configure();
  void Enable();
  void Disable();
  bool enabled() const { return enabled_; }
  void Reset();
  void SetDevice(audio_devices_t device);
  void SetParam(UpmixParam param, uint32_t value);
  void SetParam(UpmixParam param, std::string_view value);

  // Processes `frames` interleaved stereo frames in place, as the framework
  // does. While the effect is disabled the audio stays unchanged, as the framework then plays it.
  void Process(float* interleaved, std::size_t frames);

  // The text of EFFECT_CMD_DUMP.
  std::string Dump();

 private:
  // A command whose reply is one status word.
  void Command(effect_command_e code, const char* name, const void* data, std::size_t bytes);

  const EffectLibrary& library_;
  effect_handle_t handle_ = nullptr;
  bool enabled_ = false;
};

}  // namespace kelda::tools

#endif  // KELDA_TOOLS_FRAMEWORK_EFFECT_SESSION_H_
