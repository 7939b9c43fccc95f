#include "pipeline/audio_processor.h"

namespace kelda {

bool AudioProcessor::SetEnabled(bool enable) {
  if (!enable && enabled_ && GetDelayedFrames() != 0) {
    Flush();
  }
  enabled_ = enable;
  return true;
}

const std::string* AudioProcessor::GetValue(const ParameterMap& params, const char* key) {
  // Not params.find, which would allocate a string for the key.
  for (const auto& [name, value] : params) {
    if (name == key) {
      return &value;
    }
  }
  return nullptr;
}

bool AudioProcessor::TakePath(const ParameterMap& params, const char* key, std::string* path) {
  const std::string* const value = GetValue(params, key);
  if (value == nullptr || (ready_ && *value == *path)) {
    return false;
  }
  *path = *value;
  return true;
}

}  // namespace kelda
