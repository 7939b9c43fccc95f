#include "effect/parameters.h"

#include <cerrno>
#include <cstring>

#include "platform/log.h"
#include "settings/upmix_types.h"

namespace kelda {
namespace {

int32_t ReadMode(uint32_t vsize, const void* value, std::optional<ParamValue>* read) {
  if (vsize != sizeof(uint32_t)) {
    LogError(log_tag::kEffect, "ERROR: Invalid param size %u", vsize);
    return -EINVAL;
  }
  const uint32_t mode = ParamWord(value, 0);
  if (mode > static_cast<uint32_t>(UpmixMode::Auto)) {
    LogWarning(log_tag::kEffect, "Invalid upm mode: %u is specified", mode);
    return 0;
  }
  *read = ParamValue{UpmixParam::Mode, mode};
  return 0;
}

int32_t ReadHrtf(UpmixParam param, uint32_t vsize, const void* value,
                 std::optional<ParamValue>* read) {
  if (vsize != sizeof(uint32_t)) {
    LogError(log_tag::kEffect, "ERROR: hrtf param size is Invalid: %u", vsize);
    return -EINVAL;
  }
  const uint32_t word = ParamWord(value, 0);
  const HrtfType hrtf{word};
  if (hrtf != HrtfType::Standard && hrtf != HrtfType::Personalized) {
    LogWarning(log_tag::kEffect, "Invalid HRTF type: %u", word);
    return 0;
  }
  *read = ParamValue{param, word};
  return 0;
}

int32_t ReadAppPackage(uint32_t vsize, const void* value, std::optional<ParamValue>* read) {
  const std::string text(static_cast<const char*>(value), vsize);
  const std::size_t separator = text.find('&');
  if (separator == std::string::npos) {
    LogWarning(log_tag::kEffect, "Invalid package format (No \"&\": %s", text.c_str());
    return 0;
  }
  const bool flag = text.compare(separator + 1, 1, "1") == 0;
  *read = ParamValue{UpmixParam::AppPackage, flag ? 1u : 0u, text.substr(0, separator)};
  return 0;
}

}  // namespace

uint32_t ParamWord(const void* payload, std::size_t offset) {
  uint32_t word;
  std::memcpy(&word, static_cast<const char*>(payload) + offset, sizeof(word));
  return word;
}

bool HoldsParam(const void* payload, std::size_t size) {
  return size >= kParamValueOffset && payload != nullptr &&
         ParamWord(payload, offsetof(effect_param_t, psize)) == sizeof(uint32_t) &&
         ParamWord(payload, offsetof(effect_param_t, vsize)) <= size - kParamValueOffset;
}

int32_t ReadParam(UpmixParam param, uint32_t vsize, const void* value,
                  std::optional<ParamValue>* read) {
  read->reset();
  switch (param) {
    case UpmixParam::Mode:
      return ReadMode(vsize, value, read);
    case UpmixParam::WiredHrtf:
    case UpmixParam::BluetoothHrtf:
      return ReadHrtf(param, vsize, value, read);
    case UpmixParam::ReloadTunedAppList:
      *read = ParamValue{param};
      return 0;
    case UpmixParam::AppPackage:
      return ReadAppPackage(vsize, value, read);
  }
  LogWarning(log_tag::kEffect, "Unknown param is specified: %d", static_cast<int>(param));
  return 0;
}

}  // namespace kelda
