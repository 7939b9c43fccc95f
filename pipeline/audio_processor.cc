#include "pipeline/audio_processor.h"

namespace kelda {

bool AudioProcessor::SetEnabled(bool enable) {
  if (!enable && enabled_ && GetDelayedFrames() != 0) Flush();
  enabled_ = enable;
  return true;
}

const std::string* AudioProcessor::GetValue(const ParameterMap& params, const std::string& key) {
  const auto entry = params.find(key);
  return entry != params.end() ? &entry->second : nullptr;
}

bool AudioProcessor::TakePath(const ParameterMap& params, const std::string& key,
                              std::string* path) {
  const std::string* const value = GetValue(params, key);
  if (value == nullptr || (ready_ && *value == *path)) return false;
  try {
    *path = *value;
  } catch (...) {
    ready_ = false;
    throw;
  }
  return true;
}

}  // namespace kelda
