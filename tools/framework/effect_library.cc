#include "tools/framework/effect_library.h"

#include <dlfcn.h>

#include "tools/core/failure.h"

namespace kelda::tools {
namespace {

// The framework accepts every minor version of the major version that it knows.
bool HasKnownMajorVersion(const audio_effect_library_t& info) {
  return info.version >> 16 == EFFECT_LIBRARY_API_VERSION >> 16;
}

}  // namespace

void EffectLibrary::Closer::operator()(void* handle) const { dlclose(handle); }

EffectLibrary::EffectLibrary(const std::filesystem::path& path) {
  // The path is absolute, as a name without a '/' would be looked up in the system's library path.
  // The library stays mapped after it is closed, so that a sanitizer's report at the end of the
  // process can name its functions.
  handle_.reset(
      dlopen(std::filesystem::absolute(path).c_str(), RTLD_NOW | RTLD_LOCAL | RTLD_NODELETE));
  if (handle_ == nullptr) {
    throw Failure(ExitCode::kLibrary, std::string("cannot load the effect library: ") + dlerror());
  }
  info_ = static_cast<const audio_effect_library_t*>(
      dlsym(handle_.get(), AUDIO_EFFECT_LIBRARY_INFO_SYM_AS_STR));
  const auto refuse = [&](const std::string& reason) {
    throw Failure(ExitCode::kLibrary, path.string() + ": not an effect library: " + reason);
  };
  if (info_ == nullptr) {
    refuse("it does not export " AUDIO_EFFECT_LIBRARY_INFO_SYM_AS_STR);
  }
  if (info_->tag != AUDIO_EFFECT_LIBRARY_TAG) {
    refuse("its tag is " + std::to_string(info_->tag) + ", not " +
           std::to_string(AUDIO_EFFECT_LIBRARY_TAG));
  }
  if (!HasKnownMajorVersion(*info_)) {
    refuse("its interface version is " + std::to_string(info_->version >> 16) + ", not " +
           std::to_string(EFFECT_LIBRARY_API_VERSION >> 16));
  }
  if (info_->create_effect == nullptr || info_->release_effect == nullptr ||
      info_->get_descriptor == nullptr) {
    refuse("an entry point is missing");
  }
}

}  // namespace kelda::tools
