#ifndef KELDA_TOOLS_EQUALIZER_GRAPHIC_CURVE_H_
#define KELDA_TOOLS_EQUALIZER_GRAPHIC_CURVE_H_

#include <string_view>
#include <vector>

namespace kelda::tools {

// A gain curve through points, straight between them over the logarithm of frequency and
// level beyond the first and the last.
class GraphicCurve {
 public:
  struct Point {
    double freq_hz, gain_db;
  };

  // "20 -1.2; 21 -1.3; ...", frequencies in any order. `decimal_commas`: whether the whole
  // text has them. Throws std::invalid_argument with what is wrong.
  static GraphicCurve Parse(std::string_view text, bool decimal_commas);

  // 0 < freq_hz.
  double GainDb(double freq_hz) const;

  const std::vector<Point>& points() const { return points_; }  // by rising frequency

 private:
  std::vector<Point> points_;
};

}  // namespace kelda::tools

#endif  // KELDA_TOOLS_EQUALIZER_GRAPHIC_CURVE_H_
