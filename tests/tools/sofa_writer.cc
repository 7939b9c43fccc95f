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
  if (status != NC_NOERR) {
    throw std::runtime_error(nc_strerror(status));
  }
}

}  // namespace

void WriteSofa(const std::string& path, const SofaContents& contents) {
  int file = 0;
  Check(nc_create(path.c_str(), NC_NETCDF4 | NC_CLOBBER, &file));
  const auto text = [&](int variable, const char* name, const std::string& value) {
    Check(nc_put_att_text(file, variable, name, value.size(), value.c_str()));
  };
  const auto dimension = [&](const char* name, std::size_t size) {
    int id = 0;
    Check(nc_def_dim(file, name, size, &id));
    return id;
  };
  const auto variable = [&](const char* name, const std::vector<int>& dimensions,
                            const std::vector<double>& values) {
    int id = 0;
    Check(nc_def_var(file, name, NC_DOUBLE, static_cast<int>(dimensions.size()), dimensions.data(),
                     &id));
    Check(nc_put_var_double(file, id, values.data()));
    return id;
  };
  const std::pair<const char*, std::string> kAttributes[] = {
      {"Conventions", "SOFA"},       {"SOFAConventions", contents.conventions},
      {"AuthorContact", "someone"},  {"Organization", ""},
      {"License", "for tests only"}, {"DataType", "FIR"},
      {"RoomType", "free field"},    {"Title", "sphere"},
      {"DatabaseName", "spheres"},   {"ListenerShortName", "ball"}};
  for (const auto& [name, value] : kAttributes) {
    text(NC_GLOBAL, name, value);
  }
  std::vector<double> positions, responses, delays = contents.delays_of_all;
  const bool each_delay = delays.empty();
  for (const SofaMeasurement& m : contents.measurements) {
    positions.insert(positions.end(), m.position.begin(), m.position.end());
    for (const auto& ear : m.responses) {
      responses.insert(responses.end(), ear.begin(), ear.end());
    }
    if (each_delay) {
      delays.insert(delays.end(), std::begin(m.delays), std::end(m.delays));
    }
  }
  const int one = dimension("I", 1);
  const int coordinates = dimension("C", 3);
  const int receivers = dimension("R", 2);
  const int emitters = dimension("E", 1);
  const int taps = dimension("N", contents.taps);
  const int all = dimension("M", contents.measurements.size());
  const auto place = [&](const char* name, const std::vector<int>& dimensions,
                         const std::vector<double>& values, const std::string& type = "cartesian",
                         const std::string& units = "metre") {
    const int id = variable(name, dimensions, values);
    text(id, "Type", type);
    text(id, "Units", units);
  };
  const double ear_m = contents.first_receiver_y_m;
  place("ListenerPosition", {one, coordinates}, {0, 0, 0});
  place("ReceiverPosition", {receivers, coordinates, one}, {0, ear_m, 0, 0, -ear_m, 0});
  place("SourcePosition", {all, coordinates}, positions, contents.position_type,
        contents.position_units);
  place("EmitterPosition", {emitters, coordinates, one}, {0, 0, 0});
  place("ListenerUp", {one, coordinates}, {0, 0, 1});
  place("ListenerView", {one, coordinates}, {1, contents.listener_view_y, 0});
  variable("Data.IR", {all, receivers, taps}, responses);
  const int rate = variable("Data.SamplingRate", {one}, {contents.rate_hz});
  text(rate, "Units", "hertz");
  variable("Data.Delay", {each_delay ? all : one, receivers}, delays);
  Check(nc_close(file));
}

double WoodworthDelayS(double azimuth_deg, double elevation_deg) {
  constexpr double kRadiusM = 0.0875, kSoundMPerS = 343;
  const double lateral =
      std::asin(std::sin(azimuth_deg * kDegree) * std::cos(elevation_deg * kDegree));
  return kRadiusM / kSoundMPerS * (lateral + std::sin(lateral));
}

SofaContents SphericalHead(int azimuth_step_deg, double rate_hz) {
  constexpr std::size_t kOnset = 8;
  SofaContents head;
  head.rate_hz = rate_hz;
  for (int elevation_deg = -60; elevation_deg <= 80; elevation_deg += 20) {
    for (int azimuth_deg = 0; azimuth_deg < 360; azimuth_deg += azimuth_step_deg) {
      const double later = WoodworthDelayS(azimuth_deg, elevation_deg) * rate_hz;
      const double side = std::sin(azimuth_deg * kDegree) * std::cos(elevation_deg * kDegree);
      SofaMeasurement m{{double(azimuth_deg), double(elevation_deg), 1.2},
                        {std::vector<double>(head.taps), std::vector<double>(head.taps)},
                        {std::max(0.0, -later), std::max(0.0, later)}};
      m.responses[0][kOnset] = std::pow(10, 0.3 * side);
      m.responses[1][kOnset] = std::pow(10, -0.3 * side);
      head.measurements.push_back(std::move(m));
    }
  }
  return head;
}

}  // namespace kelda::tools
