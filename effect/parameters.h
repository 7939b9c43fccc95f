// The effect's own parameters, as EFFECT_CMD_SET_PARAM carries them. Any thread.
#ifndef KELDA_EFFECT_PARAMETERS_H_
#define KELDA_EFFECT_PARAMETERS_H_

#include <hardware/audio_effect.h>

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>

namespace kelda {

// By the identifier that the set and get parameter commands carry.
enum class UpmixParam : uint32_t {
  Mode = 0,                // UpmixMode, 4 bytes; the only one that can be read
  WiredHrtf = 1,           // HrtfType, 4 bytes
  BluetoothHrtf = 2,       // HrtfType, 4 bytes
  ReloadTunedAppList = 3,  // no value
  AppPackage = 10,         // text: the package, '&', and '1' for the flag
};

// Layout of the commands' payload: effect_param_t, then the identifier, then the value.
inline constexpr std::size_t kParamIdOffset = sizeof(effect_param_t);
inline constexpr std::size_t kParamValueOffset = kParamIdOffset + sizeof(uint32_t);

// A device command reads this many bytes and replies with as many, although both are declared 4
// bytes long: callers provide them.
inline constexpr std::size_t kDeviceCommandBytes = 16;

// The word at `offset` of a payload of any alignment.
uint32_t ParamWord(const void* payload, std::size_t offset);

// Whether `size` bytes hold a parameter: an identifier of one word, and as many bytes of a value as
// they state.
bool HoldsParam(const void* payload, std::size_t size);

// A parameter that was understood. Values are valid ones.
struct ParamValue {
  UpmixParam param;
  uint32_t word = 0;      // UpmixMode, HrtfType, or the application's flag, 0 or 1
  std::string package{};  // of AppPackage
};

// Reads the `vsize` bytes at `value`, of any alignment. Unknown identifiers and values out of range
// are ignored, with a warning: then `read` is empty. Returns 0, or -EINVAL for a value of the wrong
// size. Throws std::bad_alloc.
int32_t ReadParam(UpmixParam param, uint32_t vsize, const void* value,
                  std::optional<ParamValue>* read);

}  // namespace kelda

#endif  // KELDA_EFFECT_PARAMETERS_H_
