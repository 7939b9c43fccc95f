// The links of a chained Ogg file.
#ifndef KELDA_TOOLS_AUDIO_OGG_LINKS_H_
#define KELDA_TOOLS_AUDIO_OGG_LINKS_H_

#include <cstdint>
#include <filesystem>
#include <vector>

namespace kelda::tools {

struct OggLink {
  int64_t begin = 0;  // bytes from the start of the file
  int64_t end = 0;
  bool complete = false;     // every stream in it came to its end
  bool lacks_pages = false;  // before its end: damaged ones, or some are not there
};

// Ogg files may be joined one after the other (RFC 3533, section 4), each link with a
// format of its own; libsndfile reads only the first. Empty if `path` is no Ogg file. Throws
// Interrupted.
std::vector<OggLink> OggLinks(const std::filesystem::path& path);

}  // namespace kelda::tools

#endif  // KELDA_TOOLS_AUDIO_OGG_LINKS_H_
