// Makes the HRIR set that the virtualizer loads from measured ears.
#ifndef KELDA_TOOLS_EARS_SOFA_HRIRS_H_
#define KELDA_TOOLS_EARS_SOFA_HRIRS_H_

#include <array>
#include <functional>
#include <string>

#include "tools/ears/measured_ears.h"
#include "upmix-lib/binaural/hrir_set.h"

namespace kelda::tools {

// For responses of a free field. The library takes longer ones, for rooms.
inline constexpr int kMinHrirTaps = 64, kMaxFreeFieldTaps = 1024;
inline constexpr int kDefaultHrirTaps = 256;

struct HrirOptions {
  int taps = kDefaultHrirTaps;
  bool symmetric = false;     // make the left and the right half of the head alike
  double colour_removed = 0;  // share 0..1, see TameColour; for ears that are not the listener's
  std::string source;         // if empty, what the file says
  std::string licence;        // likewise
  upmix_lib::RoomParameters room = upmix_lib::RoomParameters();
};

// How one virtual loudspeaker was made.
struct HrirPlaneOrigin {
  int measurements;    // how many it was made from, for each ear
  double nearest_deg;  // from its direction
  double farthest_deg;
  double interaural_s;            // how much later the right ear hears it
  double lost[upmix_lib::kEars];  // share of the energy that was cut off
};

struct HrirDesign {
  upmix_lib::HrirSet set;
  std::array<HrirPlaneOrigin, upmix_lib::kPlanes> origins;
  double sphere_covered;  // share 0..1, see ShareSphere
};

// Makes the HRIRs of the seven planes, at 48 kHz:
//
//   measured --+--> magnitudes / diffuse-field mean --> less colour --> minimum phase --+
//              +--> interaural delay ----------------------> delays the farther ear ---+--> taps
//
// - To divide by the power mean over the sphere removes the loudspeaker, the microphone and the
//   ear canal, so that headphones with a diffuse-field target sound neutral (Theile, "On the
//   standardization of the frequency response of high-quality studio headphones", 1986).
// - Minimum phase and one delay replace the measured phase (Kistler and Wightman, "A model of
//   head-related transfer functions based on principal components analysis and minimum-phase
//   reconstruction", 1992). With this delay the ears differ below 1.5 kHz as measured. Only the
//   farther ear is delayed, so that the virtualizer adds no latency.
// - Between measurements the powers and the delays are interpolated, see MeasurementsAt.
// - Level: the power of both ears together is that of the source, averaged over the
//   sphere.
//
// `progress` is called from time to time with the share that is done, 0..1, and may throw. Throws
// Failure (input) if a direction has no measurement near enough. `name` is the file's name, for
// messages.
HrirDesign DesignHrirs(const MeasuredEars& sofa, const std::string& name,
                       const HrirOptions& options, const std::function<void(double)>& progress);

}  // namespace kelda::tools

#endif  // KELDA_TOOLS_EARS_SOFA_HRIRS_H_
