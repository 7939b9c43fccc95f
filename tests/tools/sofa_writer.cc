#include "tests/tools/sofa_writer.h"

#include <netcdf.h>

#include <algorithm>
#include <cmath>
#include <numbers>
#include <stdexcept>

namespace kelda::tools {
namespace {

constexpr double kDegree = std::numbers::pi / 180;

void Check(int status) {
  if (status != NC_NOERR) throw std::runtime_error(nc_strerror(status));
}

class Writer {
 public:
  explicit Writer(const std::string& path) {
    Check(nc_create(path.c_str(), NC_NETCDF4 | NC_CLOBBER, &file_));
  }

  void Text(int variable, const char* name, const std::string& value) const {
    Check(nc_put_att_text(file_, variable, name, value.size(), value.c_str()));
  }
  void Text(const char* name, const std::string& value) const { Text(NC_GLOBAL, name, value); }

  int Dimension(const char* name, std::size_t size) const {
    int id = 0;
    Check(nc_def_dim(file_, name, size, &id));
    return id;
  }

  int Variable(const char* name, const std::vector<int>& dimensions,
               const std::vector<double>& values) const {
    int id = 0;
    Check(nc_def_var(file_, name, NC_DOUBLE, static_cast<int>(dimensions.size()), dimensions.data(),
                     &id));
    Check(nc_put_var_double(file_, id, values.data()));
    return id;
  }

  void Close() const { Check(nc_close(file_)); }

 private:
  int file_ = 0;
};

}  // namespace

void WriteSofa(const std::string& path, const SofaContents& contents) {
  const Writer writer(path);
  const std::pair<const char*, std::string> kAttributes[] = {
      {"Conventions", "SOFA"},
      {"Version", "1.0"},
      {"SOFAConventions", contents.conventions},
      {"SOFAConventionsVersion", "1.0"},
      {"APIName", "tests"},
      {"APIVersion", "1.0"},
      {"AuthorContact", "someone"},
      {"Organization", ""},
      {"License", "for tests only"},
      {"DataType", "FIR"},
      {"RoomType", "free field"},
      {"DateCreated", "2020-01-01 00:00:00"},
      {"DateModified", "2020-01-01 00:00:00"},
      {"Title", "sphere"},
      {"DatabaseName", "spheres"},
      {"ListenerShortName", "ball"},
  };
  for (const auto& [name, value] : kAttributes) writer.Text(name, value);
  const std::size_t measurements = contents.positions.size();
  const int one = writer.Dimension("I", 1);
  const int coordinates = writer.Dimension("C", 3);
  const int receivers = writer.Dimension("R", contents.receivers);
  const int emitters = writer.Dimension("E", 1);
  const int taps = writer.Dimension("N", contents.taps);
  const int all = writer.Dimension("M", measurements);
  const auto place = [&](const char* name, const std::vector<int>& dimensions,
                         const std::vector<double>& values, const char* type = "cartesian",
                         const char* units = "metre") {
    const int id = writer.Variable(name, dimensions, values);
    writer.Text(id, "Type", type);
    writer.Text(id, "Units", units);
  };
  place("ListenerPosition", {one, coordinates}, {0, 0, 0});
  std::vector<double> ears(3 * contents.receivers);
  ears[1] = contents.first_receiver_y_m;
  if (contents.receivers > 1) ears[4] = -contents.first_receiver_y_m;
  place("ReceiverPosition", {receivers, coordinates, one}, ears);
  std::vector<double> positions;
  for (const auto& position : contents.positions) {
    positions.insert(positions.end(), position.begin(), position.end());
  }
  place("SourcePosition", {all, coordinates}, positions, contents.position_type.c_str(),
        contents.position_units.c_str());
  place("EmitterPosition", {emitters, coordinates, one}, {0, 0, 0});
  place("ListenerUp", {one, coordinates}, {0, 0, 1});
  place("ListenerView", {one, coordinates}, {1, 0, 0});
  writer.Variable("Data.IR", {all, receivers, taps}, contents.responses);
  const int rate = writer.Variable("Data.SamplingRate", {one}, {contents.rate_hz});
  writer.Text(rate, "Units", "hertz");
  writer.Variable("Data.Delay",
                  {contents.delays.size() == contents.receivers ? one : all, receivers},
                  contents.delays);
  writer.Close();
}

double WoodworthDelay_s(double azimuth_deg, double elevation_deg) {
  constexpr double kRadius_m = 0.0875, kSound_m_s = 343;
  const double lateral =
      std::asin(std::sin(azimuth_deg * kDegree) * std::cos(elevation_deg * kDegree));
  return kRadius_m / kSound_m_s * (lateral + std::sin(lateral));
}

SofaContents SphericalHead(int azimuth_step_deg, double rate_hz) {
  constexpr std::size_t kOnset = 8;
  SofaContents head;
  head.rate_hz = rate_hz;
  for (int elevation_deg = -60; elevation_deg <= 80; elevation_deg += 20) {
    for (int azimuth_deg = 0; azimuth_deg < 360; azimuth_deg += azimuth_step_deg) {
      head.positions.push_back({double(azimuth_deg), double(elevation_deg), 1.2});
      const double right_later_s = WoodworthDelay_s(azimuth_deg, elevation_deg);
      const double side = std::sin(azimuth_deg * kDegree) * std::cos(elevation_deg * kDegree);
      for (const double ear : {1.0, -1.0}) {  // left, right
        std::vector<double> response(head.taps);
        response[kOnset] = std::pow(10, 0.3 * ear * side);
        head.responses.insert(head.responses.end(), response.begin(), response.end());
        head.delays.push_back(std::max(0.0, -ear * right_later_s) * rate_hz);
      }
    }
  }
  return head;
}

}  // namespace kelda::tools
