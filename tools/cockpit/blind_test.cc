#include "tools/cockpit/blind_test.h"

#include <cmath>
#include <random>
#include <utility>

namespace kelda::tools {

double GuessingP(std::size_t right, std::size_t trials) {
  double p = 0;
  for (std::size_t k = right; k <= trials; ++k) {
    const auto n = static_cast<double>(trials), hits = static_cast<double>(k);
    p += std::exp(std::lgamma(n + 1) - std::lgamma(hits + 1) - std::lgamma(n - hits + 1) -
                  n * std::log(2.0));
  }
  return std::min(p, 1.0);
}

bool BlindTest::SystemToss() {
  std::random_device random;  // the kernel's
  return (random() & 1u) != 0;
}

BlindTest::BlindTest(std::function<bool()> toss)
    : toss_(std::move(toss)), x_(toss_() ? Which::kB : Which::kA) {}

void BlindTest::Take(Which answer) {
  ++trials_;
  right_ += answer == x_ ? 1 : 0;
  last_ = {answer, x_};
  x_ = toss_() ? Which::kB : Which::kA;
}

}  // namespace kelda::tools
