#ifndef KELDA_TOOLS_AUDIO_STATED_SIZE_H_
#define KELDA_TOOLS_AUDIO_STATED_SIZE_H_

#include <filesystem>
#include <string>

namespace kelda::tools {

// For a WAV, RF64 or AIFF file that holds less sound than it states: a message that says so; else
// empty. libsndfile reads what is there and says nothing. A size that programs write when they do
// not know it, because they write into a pipe, states nothing.
std::string CutContainer(const std::filesystem::path& path);

}  // namespace kelda::tools

#endif  // KELDA_TOOLS_AUDIO_STATED_SIZE_H_
