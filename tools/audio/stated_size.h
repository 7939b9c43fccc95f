#ifndef KELDA_TOOLS_AUDIO_STATED_SIZE_H_
#define KELDA_TOOLS_AUDIO_STATED_SIZE_H_

#include <cstdint>
#include <filesystem>
#include <string>

namespace kelda::tools {

// Whether this is what programs write for a size that they do not know: 0, or about the largest
// value of 31 or 32 bits.
bool IsPlaceholder(uint64_t bytes);

// A message if a WAV, RF64 or AIFF file holds less sound than it states; else empty. libsndfile
// reads what is there without an error. Programs that write to a pipe do not know the size; the
// values that they write in its place do not count.
std::string CutContainer(const std::filesystem::path& path);

// Whether a WAV, RF64 or AIFF file has sound but states none, because its header was never
// completed. libsndfile reads nothing of it, without an error.
bool LacksSize(const std::filesystem::path& path);

}  // namespace kelda::tools

#endif  // KELDA_TOOLS_AUDIO_STATED_SIZE_H_
