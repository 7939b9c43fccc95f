#ifndef KELDA_TOOLS_LIBRARY_GUARDED_FLOATS_H_
#define KELDA_TOOLS_LIBRARY_GUARDED_FLOATS_H_

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <vector>

namespace kelda::tools {

// Floats with a margin on either side that shows whether somebody wrote beyond them.
class GuardedFloats {
 public:
  explicit GuardedFloats(std::size_t count) : floats_(count + 2 * kMargin, kMark) {
    std::fill(data(), data() + count, 0.0f);
  }

  float* data() { return floats_.data() + kMargin; }
  std::size_t size() const { return floats_.size() - 2 * kMargin; }

  bool intact() const {
    const auto marked = [](float value) { return value == kMark; };
    return std::all_of(floats_.begin(), floats_.begin() + kMargin, marked) &&
           std::all_of(floats_.end() - kMargin, floats_.end(), marked);
  }
  bool finite() {
    return std::all_of(data(), data() + size(), [](float value) { return std::isfinite(value); });
  }
  float peak() {
    float largest = 0;
    std::for_each(data(), data() + size(),
                  [&](float value) { largest = std::max(largest, std::fabs(value)); });
    return largest;
  }

 private:
  static constexpr std::ptrdiff_t kMargin = 64;
  static constexpr float kMark = -12345.678f;
  std::vector<float> floats_;
};

}  // namespace kelda::tools

#endif  // KELDA_TOOLS_LIBRARY_GUARDED_FLOATS_H_
