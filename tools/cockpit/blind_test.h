#ifndef KELDA_TOOLS_COCKPIT_BLIND_TEST_H_
#define KELDA_TOOLS_COCKPIT_BLIND_TEST_H_

#include <cstddef>
#include <functional>
#include <optional>

#include "tools/cockpit/tuning_model.h"

namespace kelda::tools {

// How likely it is to be right at least so often by guessing: the one-sided binomial test of a
// half.
double GuessingP(std::size_t right, std::size_t trials);

// A blind comparison: X is A or B, and the listener, who may hear A, B and X, says which.
class BlindTest {
 public:
  using Which = TuningModel::Which;
  struct Answer {
    Which said, was;
  };

  // `toss` decides what X is; by default the system's random numbers.
  explicit BlindTest(std::function<bool()> toss = SystemToss);

  Which x() const { return x_; }
  // Counts the answer, and chooses X anew.
  void Take(Which answer);

  std::size_t trials() const { return trials_; }
  std::size_t right() const { return right_; }
  std::optional<Answer> last() const { return last_; }

 private:
  static bool SystemToss();

  std::function<bool()> toss_;
  Which x_;
  std::size_t trials_ = 0, right_ = 0;
  std::optional<Answer> last_;
};

}  // namespace kelda::tools

#endif  // KELDA_TOOLS_COCKPIT_BLIND_TEST_H_
