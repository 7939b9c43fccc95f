#include "tools/report/report_curves.h"

#include <cmath>
#include <cstddef>

#include "tools/core/decibels.h"
#include "tools/inspect/inspected_contents.h"
#include "tools/measure/frequency_response.h"
#include "tools/measure/hrir_cues.h"
#include "tools/report/chain_measurement.h"
#include "upmix-lib/filters/biquad_design.h"

namespace kelda::tools {
namespace {

using upmix_lib::EqualizerTuning;

template <typename Gain>
Json AtFrequencies(Gain gain) {
  std::vector<double> gains_db;
  for (const double freq_hz : ResponseFrequencies()) {
    gains_db.push_back(gain(freq_hz));
  }
  return Decibels(gains_db);
}

Json BandJson(const upmix_lib::EqualizerBand& band) {
  const upmix_lib::Biquad biquad = upmix_lib::DesignBiquad(band);
  return {{"type", BandName(band.type)},
          {"freq_hz", Rounded(static_cast<double>(band.freq_hz), 1)},
          {"gain_db", Decibels(static_cast<double>(band.gain_db))},
          {"q", Rounded(static_cast<double>(band.q), 3)},
          {"response",
           AtFrequencies([&](double freq_hz) { return upmix_lib::ResponseDb(biquad, freq_hz); })}};
}

Json Taps(std::span<const float> taps) {
  return Rounded(std::vector<double>(taps.begin(), taps.end()), 5);
}

Json Magnitude(std::span<const float> taps) {
  return AtFrequencies([&](double freq_hz) { return ToDb(std::abs(ResponseAt(taps, freq_hz))); });
}

}  // namespace

Json Rounded(double value, int digits) {
  if (!std::isfinite(value)) {
    return nullptr;
  }
  const double scale = std::pow(10.0, digits);
  const double rounded = std::round(value * scale) / scale;
  return rounded == 0 ? 0.0 : rounded;  // not -0
}

Json Rounded(const std::vector<double>& values, int digits) {
  Json json = Json::array();
  for (const double value : values) {
    json.push_back(Rounded(value, digits));
  }
  return json;
}

Json Decibels(double value_db) {
  constexpr double kSilence = -150;
  return value_db <= kSilence ? Json() : Rounded(value_db, 2);
}

Json Decibels(const std::vector<double>& values_db) {
  Json json = Json::array();
  for (const double value_db : values_db) {
    json.push_back(Decibels(value_db));
  }
  return json;
}

Json EqualizerJson(const std::string& name, const EqualizerTuning& tuning) {
  const bool fir = tuning.form == upmix_lib::EqualizerForm::kFir;
  const GainPeak peak = FindEqualizerPeak(tuning);
  const std::string form =
      fir ? "FIR of " + std::to_string(tuning.curves[0].taps.size()) + " taps" : "Bands";
  Json json{{"name", name},
            {"form", form},
            {"preamp_db", Decibels(static_cast<double>(tuning.preamp_db))},
            {"peak_db", Rounded(peak.gain_db, 3)},
            {"peak_hz", Rounded(peak.freq_hz, 1)},
            {"deviation_db", nullptr},
            {"curves", Json::array()}};
  for (std::size_t curve = 0; curve < tuning.curves.size(); ++curve) {
    Json bands = Json::array();
    for (const upmix_lib::EqualizerBand& band : tuning.curves[curve].bands) {
      bands.push_back(BandJson(band));
    }
    const char* const side = tuning.curves.size() == 1 ? "both channels"
                             : curve == 0              ? "left"
                                                       : "right";
    json["curves"].push_back({{"side", side},
                              {"gain_db", AtFrequencies([&](double freq_hz) {
                                 return EqualizerGainDb(tuning, curve, freq_hz);
                               })},
                              {"bands", std::move(bands)}});
  }
  return json;
}

Json EarsJson(const std::string& name, const upmix_lib::HrirSet& set) {
  Json json{{"name", name},
            {"source", set.source},
            {"licence", set.licence},
            {"taps", set.taps},
            {"planes", Json::array()}};
  for (int plane = 0; plane < upmix_lib::kPlanes; ++plane) {
    const auto& direction = upmix_lib::kPlaneDirections[plane];
    const HrirCues cues = MeasureCues(set, plane);
    json["planes"].push_back(
        {{"name", PlaneName(plane)},
         {"azimuth_deg", Rounded(static_cast<double>(direction.azimuth_deg), 1)},
         {"elevation_deg", Rounded(static_cast<double>(direction.elevation_deg), 1)},
         {"delay_us", Rounded(cues.delay_us, 0)},
         {"level_db", Decibels(cues.level_db)},
         {"peak_db", Decibels(cues.peak_gain_db)},
         {"peak_hz", Rounded(cues.peak_gain_hz, 0)},
         {"left", Taps(set.response(plane, 0))},
         {"right", Taps(set.response(plane, 1))},
         {"left_db", Magnitude(set.response(plane, 0))},
         {"right_db", Magnitude(set.response(plane, 1))}});
  }
  return json;
}

}  // namespace kelda::tools
