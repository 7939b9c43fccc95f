#ifndef KELDA_UPMIX_LIB_LEVEL_LEVEL_GAIN_H_
#define KELDA_UPMIX_LIB_LEVEL_LEVEL_GAIN_H_

#include "platform/nonblocking.h"
#include "upmix-lib/level/level_parameters.h"

namespace kelda::upmix_lib {

// The levelling gain that suits a programme of `loudness_lufs` whose samples peak at
// `peak_dbfs`: towards the target by the share `strength`, within the largest boost and cut.
// A boost also ends where the limiter would have to take more than max_limiting_db off the
// peaks, so that levelling never flattens a programme of wide dynamics. Audio.
double WantedGainDb(const LevelParameters& parameters, double loudness_lufs,
                    double peak_dbfs) KELDA_NONBLOCKING;

// How fast a gain moves.
struct Pace {
  double boost_db_per_s;  // at most
  double cut_db_per_s;
  double ease_s;  // time constant of the last part of the way
};

// Follows the wanted gain. It starts to move only when it is off by more than kStartDb, and
// moves until it is within kStopDb. It slows down towards the end. At rest it does not change
// at all.
class LevelGain {
 public:
  static constexpr double kStartDb = 0.3;
  static constexpr double kStopDb = 0.05;

  // Moves for `time_s` towards `wanted_db`. Audio.
  void Approach(double wanted_db, double time_s, const Pace& pace) KELDA_NONBLOCKING;

  // Is at `gain_db` from now on. Audio.
  void Jump(double gain_db) KELDA_NONBLOCKING { gain_db_ = gain_db; }

  double gain_db() const { return gain_db_; }

 private:
  double gain_db_ = 0;
  bool moving_ = false;
};

}  // namespace kelda::upmix_lib

#endif  // KELDA_UPMIX_LIB_LEVEL_LEVEL_GAIN_H_
