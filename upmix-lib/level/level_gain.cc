#include "upmix-lib/level/level_gain.h"

#include <algorithm>
#include <cmath>

namespace kelda::upmix_lib {

double WantedGainDb(const LevelParameters& parameters, double loudness_lufs, double peak_dbfs) {
  const double distance_db = double{parameters.target_lufs} - loudness_lufs;
  const double head_room_db =
      double{parameters.ceiling_dbtp} + double{parameters.max_limiting_db} - peak_dbfs;
  const double most_db = std::min(double{parameters.max_boost_db}, std::max(head_room_db, 0.0));
  return std::clamp(double{parameters.strength} * distance_db, -double{parameters.max_cut_db},
                    most_db);
}

void LevelGain::Approach(double wanted_db, double time_s, const Pace& pace) {
  const double distance_db = wanted_db - gain_db_;
  moving_ = std::fabs(distance_db) > (moving_ ? kStopDb : kStartDb);
  if (moving_) {
    const double eased_db = distance_db * std::min(time_s / pace.ease_s, 1.0);
    gain_db_ += std::clamp(eased_db, -pace.cut_db_per_s * time_s, pace.boost_db_per_s * time_s);
  }
}

}  // namespace kelda::upmix_lib
