// A signal library at any path, with the files of a tuning directory, driven as its wrappers in
// processors/ drive it.
#ifndef KELDA_ASSURANCE_SOUND_SIGNAL_LIBRARY_H_
#define KELDA_ASSURANCE_SOUND_SIGNAL_LIBRARY_H_

#include <filesystem>

#include "assurance/sound/sound_file.h"
#include "tools/library/upmix_lib_entries.h"

namespace kelda::sound {

class SignalLibrary {
 public:
  // Throws std::runtime_error, as all do. The library stays loaded: an effect library that is
  // loaded later uses it, whichever it was linked to.
  SignalLibrary(const std::filesystem::path& library, std::filesystem::path tuning);

  // Each starts from silence, and takes its latency out: what comes out lies over what went in.
  Planes Upmix(const Planes& stereo) const;      // of music, seven planes
  Planes Virtualize(const Planes& seven) const;  // with the ears of wired outputs
  Planes Cinema(const Planes& stereo) const;
  // What its room adds to that.
  Planes CinemaRoom(const Planes& stereo) const;
  // Cinema's seven planes, without its room: through ears that hear one plane each.
  Planes CinemaPlanes(const Planes& stereo) const;

 private:
  std::vector<char> CinemaWithoutRoom() const;  // parameters
  Planes Cinema(const Planes& stereo, const std::vector<char>& params,
                const std::filesystem::path& folder) const;

  std::filesystem::path tuning_;
  tools::UpmixLibEntries entries_;
};

}  // namespace kelda::sound

#endif  // KELDA_ASSURANCE_SOUND_SIGNAL_LIBRARY_H_
