// An effect library, loaded as the audio effect framework loads it.
#ifndef KELDA_TOOLS_FRAMEWORK_EFFECT_LIBRARY_H_
#define KELDA_TOOLS_FRAMEWORK_EFFECT_LIBRARY_H_

#include <hardware/audio_effect.h>

#include <filesystem>
#include <memory>

namespace kelda::tools {

class EffectLibrary {
 public:
  // Loads the library and checks its information record. Throws Failure
  // (library) with the reason.
  explicit EffectLibrary(const std::filesystem::path& path);

  const audio_effect_library_t& info() const { return *info_; }

 private:
  struct Closer {
    void operator()(void* handle) const;
  };
  std::unique_ptr<void, Closer> handle_;
  const audio_effect_library_t* info_;  // lives in the library
};

}  // namespace kelda::tools

#endif  // KELDA_TOOLS_FRAMEWORK_EFFECT_LIBRARY_H_
