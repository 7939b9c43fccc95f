#ifndef KELDA_TOOLS_AUDIO_STATED_SIZE_H_
#define KELDA_TOOLS_AUDIO_STATED_SIZE_H_

#include <filesystem>
#include <string>

namespace kelda::tools {

// A message if a WAV, RF64 or AIFF file holds less sound than it states; else empty. libsndfile
// reads what is there without an error. Programs that write to a pipe do not know the size; the
// values that they write in its place do not count.
std::string CutContainer(const std::filesystem::path& path);

}  // namespace kelda::tools

#endif  // KELDA_TOOLS_AUDIO_STATED_SIZE_H_
