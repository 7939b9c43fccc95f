// What a stereo system does to the level of a programme over time, as figures.
#ifndef KELDA_TOOLS_MEASURE_LEVEL_FIGURES_H_
#define KELDA_TOOLS_MEASURE_LEVEL_FIGURES_H_

#include <cstddef>
#include <string>
#include <vector>

#include "tools/measure/stereo_system.h"

namespace kelda::tools {

// Windows of 0.1 s that lie before the change of mode in the gains that follow.
inline constexpr std::size_t kChangeWindow = 200;

// By how much a system whose mode changes is off one that was in the new mode all along, in dB,
// in windows of 0.1 s from the start. `programme` lasts 23 s; the change comes after 20.
std::vector<double> HandoverGainsDb(const ModalSystem& system, const Channels& programme,
                                    const std::string& from, const std::string& to);
// By how much the level then falls short of what the new mode settles at, at the worst, from 0.2
// to 1.5 s after the change. Lower is better.
double HandoverDb(const std::vector<double>& gains_db);

// The time from the start until the gain stays within `within_db` of what it settles at, in s.
// `programme` lasts 5 s and is played eight times. Lower is better.
double SettlingSeconds(const StereoSystem& system, const Channels& programme, double within_db);
// For how long the gain is more than 3 dB above what it settles at, in s, when a programme of
// 5 s that was played four times is played on, four times, 18 dB louder. Lower is better.
double JumpSeconds(const StereoSystem& system, const Channels& programme);

}  // namespace kelda::tools

#endif  // KELDA_TOOLS_MEASURE_LEVEL_FIGURES_H_
