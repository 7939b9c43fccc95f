// What a room does to what the ears hear of one source, as figures. Responses are those of both
// ears, 48 kHz, as far as they are to count.
#ifndef KELDA_TOOLS_MEASURE_ROOM_FIGURES_H_
#define KELDA_TOOLS_MEASURE_ROOM_FIGURES_H_

#include <vector>

#include "tools/measure/stereo_system.h"

namespace kelda::tools {

// At the ear that hears the direct sound louder: its energy within 3 ms of its begin, where a tenth
// of the peak is reached first, over that of all that follows (ISO 3382-1 so divides a response
// into early and late). The lower, the more room.
double DirectOverReverberantDb(const Channels& response);

// What the room adds to the third octaves of both ears' power, 125 Hz to 10 kHz: the largest less
// the smallest of the response over the HRIRs without the room, `bare`. Lower is better.
double RoomRippleDb(const Channels& response, const Channels& bare);

// The energy that is still to come at the louder ear, over all of it, every `step_ms` from the
// begin of the direct sound (Schroeder, "New method of measuring reverberation time", 1965), in dB.
std::vector<double> EnergyDecayDb(const Channels& response, double step_ms, std::size_t steps);

}  // namespace kelda::tools

#endif  // KELDA_TOOLS_MEASURE_ROOM_FIGURES_H_
