#include "tools/measure/colouration.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstddef>

namespace kelda::tools {
namespace {

// ISO 226:2003, table 1: frequency, exponent of loudness, transfer function, threshold.
struct Row {
  double hz, exponent, transfer_db, threshold_db;
};
constexpr Row kRows[] = {
    {20, 0.532, -31.6, 78.5},    {25, 0.506, -27.2, 68.7},   {31.5, 0.480, -23.0, 59.5},
    {40, 0.455, -19.1, 51.1},    {50, 0.432, -15.9, 44.0},   {63, 0.409, -13.0, 37.5},
    {80, 0.387, -10.3, 31.5},    {100, 0.367, -8.1, 26.5},   {125, 0.349, -6.2, 22.1},
    {160, 0.330, -4.5, 17.9},    {200, 0.315, -3.1, 14.4},   {250, 0.301, -2.0, 11.4},
    {315, 0.288, -1.1, 8.6},     {400, 0.276, -0.4, 6.2},    {500, 0.267, 0.0, 4.4},
    {630, 0.259, 0.3, 3.0},      {800, 0.253, 0.5, 2.2},     {1000, 0.250, 0.0, 2.4},
    {1250, 0.246, -2.7, 3.5},    {1600, 0.244, -4.1, 1.7},   {2000, 0.243, -1.0, -1.3},
    {2500, 0.243, 1.7, -4.2},    {3150, 0.243, 2.5, -6.0},   {4000, 0.242, 1.2, -5.4},
    {5000, 0.242, -2.1, -1.5},   {6300, 0.245, -7.1, 6.0},   {8000, 0.254, -11.2, 12.6},
    {10000, 0.271, -10.7, 13.9}, {12500, 0.301, -3.1, 12.3}, {20000, 0.532, -31.6, 78.5}};

// By how much a tone of as many dB as the contour has phon is above the contour.
double AboveContour(const Row& row, double phon) {
  const double a =
      4.47e-3 * (std::pow(10.0, 0.025 * phon) - 1.15) +
      std::pow(0.4 * std::pow(10.0, (row.threshold_db + row.transfer_db) / 10 - 9), row.exponent);
  return phon - (10 / row.exponent * std::log10(a) - row.transfer_db + 94);
}

double Sone(double phon) { return std::exp2((phon - 40) / 10); }

}  // namespace

double Phon(double level_db, double freq_hz) {
  const double contour = std::clamp(level_db, 0.0, 90.0);
  std::size_t above = 1;
  while (above + 1 < std::size(kRows) && kRows[above].hz < freq_hz) {
    ++above;
  }
  const Row &low = kRows[above - 1], &high = kRows[above];
  const double part = std::clamp(std::log(freq_hz / low.hz) / std::log(high.hz / low.hz), 0.0, 1.0);
  return level_db + (1 - part) * AboveContour(low, contour) + part * AboveContour(high, contour);
}

double Colouration(const std::vector<double>& freq_hz,
                   const std::vector<std::vector<double>>& heard_db,
                   const std::vector<std::vector<double>>& reference_db) {
  constexpr double kMeanDb = 75;
  const std::size_t count = freq_hz.size();
  // The paper's frequencies lie in equal steps; these do not, so that each counts for as many as
  // lie around it.
  const auto mean_over = [&](const auto& value) {
    double sum = 0, weights = 0;
    for (std::size_t i = 0; i < count; ++i) {
      sum += freq_hz[i] * value(i);
      weights += freq_hz[i];
    }
    return sum / weights;
  };
  const auto difference = [&](double offset_db) {
    double mean_db = 0;
    for (std::size_t ear = 0; ear < heard_db.size(); ++ear) {
      mean_db += mean_over([&](std::size_t i) {
                   return (heard_db[ear][i] + offset_db + reference_db[ear][i]) / 2;
                 }) /
                 static_cast<double>(heard_db.size());
    }
    double sum = 0, weights = 0;
    for (std::size_t i = 0; i < count; ++i) {
      // The bandwidth of the ear's filter (Glasberg and Moore, 1990).
      const double weight = freq_hz[i] / (24.7 + 0.108 * freq_hz[i]);
      for (std::size_t ear = 0; ear < heard_db.size(); ++ear) {
        const auto sone = [&](double db) { return Sone(Phon(db - mean_db + kMeanDb, freq_hz[i])); };
        sum += weight * std::abs(sone(heard_db[ear][i] + offset_db) - sone(reference_db[ear][i]));
        weights += weight;
      }
    }
    return sum / weights;
  };
  // A search by thirds from within 30 dB of the same mean.
  double start_db = 0;
  for (std::size_t ear = 0; ear < heard_db.size(); ++ear) {
    start_db += mean_over([&](std::size_t i) { return reference_db[ear][i] - heard_db[ear][i]; }) /
                static_cast<double>(heard_db.size());
  }
  double low = start_db - 30, high = start_db + 30;
  while (high - low > 0.01) {
    const double third = (high - low) / 3;
    if (difference(low + third) < difference(high - third)) {
      high -= third;
    } else {
      low += third;
    }
  }
  return difference((low + high) / 2);
}

}  // namespace kelda::tools
