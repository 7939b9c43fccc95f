// Writes SOFA files (AES69) for the tests.
#ifndef KELDA_TESTS_TOOLS_SOFA_WRITER_H_
#define KELDA_TESTS_TOOLS_SOFA_WRITER_H_

#include <array>
#include <cstddef>
#include <string>
#include <vector>

namespace kelda::tools {

struct SofaMeasurement {
  std::array<double, 3> position;
  std::vector<double> responses[2];  // of the left and the right ear
  double delays[2];                  // samples
};

struct SofaContents {
  std::string conventions = "SimpleFreeFieldHRIR";
  std::string position_type = "spherical";
  std::string position_units = "degree, degree, metre";
  double rate_hz = 48000;
  std::size_t taps = 128;
  std::vector<SofaMeasurement> measurements;
  std::vector<double> delays_of_all;  // of both ears, in place of each measurement's
  double first_receiver_y_m = 0.09;
  double listener_view_y = 0;
};

// Throws std::runtime_error.
void WriteSofa(const std::string& path, const SofaContents& contents);

// Rings of constant elevation around a sphere for a head: one tap each, the nearer ear up
// to 6 dB louder, the farther up to 6 dB softer, Woodworth's delays with the ears 8.75 cm
// from the centre, as Data.Delay of each measurement.
SofaContents SphericalHead(int azimuth_step_deg, double rate_hz);
double WoodworthDelayS(double azimuth_deg, double elevation_deg);  // of the right ear

}  // namespace kelda::tools

#endif  // KELDA_TESTS_TOOLS_SOFA_WRITER_H_
