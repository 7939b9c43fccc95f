#ifndef KELDA_TOOLS_EQUALIZER_GRAPHIC_CURVE_H_
#define KELDA_TOOLS_EQUALIZER_GRAPHIC_CURVE_H_

#include <string_view>
#include <vector>

namespace kelda::tools {

// A gain curve through points: straight lines between them over the logarithm of frequency,
// constant before the first and after the last point.
class GraphicCurve {
 public:
  struct Point {
    double freq_hz, gain_db;
  };

  // Parses "20 -1.2; 21 -1.3; ...", with the frequencies in any order. `decimal_commas`: whether
  // the text has decimal commas. Throws std::invalid_argument with what is wrong.
  static GraphicCurve Parse(std::string_view text, bool decimal_commas);

  // `freq_hz` is above 0.
  double GainDb(double freq_hz) const;

  const std::vector<Point>& points() const { return points_; }  // by rising frequency

 private:
  std::vector<Point> points_;
};

}  // namespace kelda::tools

#endif  // KELDA_TOOLS_EQUALIZER_GRAPHIC_CURVE_H_
