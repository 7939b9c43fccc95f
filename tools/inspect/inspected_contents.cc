#include "tools/inspect/inspected_contents.h"

#include <cmath>
#include <cstddef>
#include <cstring>

#include "tools/core/decimal.h"
#include "tools/core/format.h"
#include "tools/core/printable.h"
#include "tools/inspect/app_list_names.h"
#include "tools/inspect/library_status.h"
#include "tools/measure/frequency_response.h"
#include "tools/measure/hrir_cues.h"
#include "tools/presets/parameter_sets.h"
#include "upmix-lib/binaural/hrir_set.h"
#include "upmix-lib/equalizer/equalizer_file.h"
#include "upmix-lib/files/data_file.h"

namespace kelda::tools {
namespace {

using upmix_lib::BandType;
using upmix_lib::EqualizerBand;
using upmix_lib::EqualizerForm;
using upmix_lib::EqualizerInfo;
using upmix_lib::EqualizerTuning;
using upmix_lib::ParameterField;
using upmix_lib::Status;

// The value of the shortest decimal: 0.1 and not 0.10000000149.
double DecimalValue(float value) { return std::strtod(FormatFloat(value).c_str(), nullptr); }

std::string Range(float min, float max) {
  return Format("(%s to %s)", FormatFloat(min).c_str(), FormatFloat(max).c_str());
}

// The first field that the signal library refuses: "centre_amount is 7 (0 to 1)".
std::string RefusedField(std::span<const std::byte> parameters, const ParameterSet& set) {
  for (const ParameterField& field : set.fields) {
    if (upmix_lib::CheckFields(parameters, {&field, 1}) != upmix_lib::kOk) {
      return std::string(field.name) + " is " + FormatFloat(ReadParameter(parameters, field)) +
             " " + Range(field.min, field.max);
    }
  }
  return "";
}

Contents DescribeParameters(std::span<const std::byte> parameters, const ParameterSet& set) {
  Contents contents;
  if (parameters.size() != set.size_bytes) {
    contents.problem = "it has " + std::to_string(parameters.size()) + " bytes (" +
                       std::to_string(set.size_bytes) + ")";
    return contents;
  }
  contents.problem = RefusedField(parameters, set);
  for (std::size_t i = 0; i < set.meanings.size() && contents.problem.empty(); ++i) {
    const ParameterField& field = set.fields[i];
    const float value = ReadParameter(parameters, field);
    contents.text +=
        Format("  %-23s %10s %-5s %c %-18s %s\n", field.name, FormatFloat(value).c_str(),
               set.meanings[i].unit, value == field.initial ? ' ' : '*',
               Range(field.min, field.max).c_str(), set.meanings[i].text);
    contents.json[field.name] = {{"value", DecimalValue(value)},
                                 {"default", DecimalValue(field.initial)},
                                 {"min", DecimalValue(field.min)},
                                 {"max", DecimalValue(field.max)},
                                 {"unit", set.meanings[i].unit}};
  }
  return contents;
}

std::string Limited(float value, const char* unit, float min, float max) {
  return FormatFloat(value) + " " + unit + " " + Range(min, max);
}

// The first band that the signal library refuses: ": band 3: type 0 (0 to 6), 99999 Hz (...), ...".
std::string RefusedBand(std::span<const std::byte> file) {
  EqualizerInfo info;
  const std::size_t bands_at = sizeof(upmix_lib::DataHeader) + sizeof(info);
  if (file.size() < bands_at) {
    return "";
  }
  std::memcpy(&info, file.data() + sizeof(upmix_lib::DataHeader), sizeof(info));
  if (info.form != EqualizerForm::kBands) {
    return "";
  }
  for (std::size_t at = bands_at, number = 1; at + sizeof(EqualizerBand) <= file.size();
       at += sizeof(EqualizerBand), ++number) {
    EqualizerTuning alone;
    alone.curves.resize(1);
    alone.curves[0].bands.resize(1);
    EqualizerBand& band = alone.curves[0].bands[0];
    std::memcpy(static_cast<void*>(&band), file.data() + at, sizeof(band));
    EqualizerTuning parsed;
    if (upmix_lib::ParseEqualizer(upmix_lib::BuildEqualizerFile(alone), parsed) != upmix_lib::kOk) {
      return Format(": band %zu: type %u (0 to %u), ", number, static_cast<unsigned>(band.type),
                    upmix_lib::kBandTypes - 1) +
             Limited(band.freq_hz, "Hz", upmix_lib::kBandMinHz, upmix_lib::kBandMaxHz) + ", " +
             Limited(band.gain_db, "dB", upmix_lib::kBandMinDb, upmix_lib::kBandMaxDb) + ", " +
             Limited(band.q, "of Q", upmix_lib::kBandMinQ, upmix_lib::kBandMaxQ);
    }
  }
  return "";
}

void DescribeBands(const EqualizerTuning::Curve& curve, Contents* contents, Json* json) {
  for (const EqualizerBand& band : curve.bands) {
    contents->text += Format("    %-10s %9.4g Hz %7.2f dB  Q %.4g\n", BandName(band.type),
                             static_cast<double>(band.freq_hz), static_cast<double>(band.gain_db),
                             static_cast<double>(band.q));
    json->push_back({{"type", BandName(band.type)},
                     {"freq_hz", DecimalValue(band.freq_hz)},
                     {"gain_db", DecimalValue(band.gain_db)},
                     {"q", DecimalValue(band.q)}});
  }
}

}  // namespace

const char* BandName(BandType type) {
  constexpr const char* kNames[upmix_lib::kBandTypes] = {
      "peaking", "low shelf", "high shelf", "low pass", "high pass", "band pass", "notch"};
  return kNames[static_cast<uint32_t>(type)];
}

Contents ReadMusicContents(const std::string&, std::span<const std::byte> file) {
  return DescribeParameters(file, MusicParameterSet());
}

Contents ReadCinemaContents(const std::string&, std::span<const std::byte> file) {
  return DescribeParameters(file, CinemaParameterSet());
}

Contents ReadLevelContents(const std::string&, std::span<const std::byte> file) {
  return DescribeParameters(file, LevelParameterSet());
}

Contents ReadEqualizerContents(const std::string&, std::span<const std::byte> file) {
  Contents contents;
  EqualizerTuning tuning;
  if (const Status status = upmix_lib::ParseEqualizer(file, tuning); status != upmix_lib::kOk) {
    contents.problem = DescribeStatus(status) + RefusedBand(file);
    return contents;
  }
  const bool fir = tuning.form == EqualizerForm::kFir;
  const GainPeak peak = FindEqualizerPeak(tuning);
  contents.text = Format(
      "  %s, %s\n  preamp %.2f dB, largest gain %.2f dB at %.0f Hz\n", fir ? "FIR" : "bands",
      tuning.curves.size() == 2 ? "left and right of their own" : "the same for left and right",
      static_cast<double>(tuning.preamp_db), peak.gain_db, peak.freq_hz);
  contents.json = {{"form", fir ? "fir" : "bands"},
                   {"preamp_db", DecimalValue(tuning.preamp_db)},
                   {"peak_gain_db", peak.gain_db},
                   {"peak_gain_hz", peak.freq_hz},
                   {"curves", Json::array()}};
  for (std::size_t i = 0; i < tuning.curves.size(); ++i) {
    const EqualizerTuning::Curve& curve = tuning.curves[i];
    const char* const side = tuning.curves.size() == 1 ? "both" : i == 0 ? "left" : "right";
    Json json{{"side", side}};
    const std::string size =
        fir ? Format("%zu taps", curve.taps.size())
            : Format("%zu band%s", curve.bands.size(), curve.bands.size() == 1 ? "" : "s");
    contents.text += Format("  %s: %s\n", side, size.c_str());
    contents.summary += (i == 0 ? "" : ", ") +
                        (tuning.curves.size() == 1 ? size : Format("%s %s", side, size.c_str()));
    if (fir) {
      json["taps"] = curve.taps.size();
    } else {
      json["bands"] = Json::array();
      DescribeBands(curve, &contents, &json["bands"]);
    }
    contents.json["curves"].push_back(std::move(json));
  }
  return contents;
}

Contents ReadHrirContents(const std::string& path, std::span<const std::byte>) {
  Contents contents;
  upmix_lib::HrirSet set;
  if (const Status status = upmix_lib::LoadHrirSet(path, set); status != upmix_lib::kOk) {
    contents.problem = DescribeStatus(status);
    return contents;
  }
  const ParameterSet& room = RoomParameterSet();
  const Contents room_contents = DescribeParameters(std::as_bytes(std::span(&set.room, 1)), room);
  contents.text.append("  source   ").append(Printable(set.source)).append("\n  licence  ");
  contents.text.append(Printable(set.licence)).append("\n");
  contents.text += Format("  %d taps per ear (%.2f ms)\n  room\n", set.taps, set.taps / 48.0);
  contents.text += room_contents.text;
  contents.text +=
      "  plane  azimuth  elevation   delay left-right   level left-right   largest gain\n";
  Json planes = Json::array();
  for (int plane = 0; plane < upmix_lib::kPlanes; ++plane) {
    const auto& direction = upmix_lib::kPlaneDirections[plane];
    const HrirCues cues = MeasureCues(set, plane);
    contents.text += Format("  %-5s %8.1f %10.1f %13.0f us %15.2f dB %9.2f dB at %.0f Hz\n",
                            PlaneName(plane), static_cast<double>(direction.azimuth_deg),
                            static_cast<double>(direction.elevation_deg), cues.delay_us,
                            cues.level_db, cues.peak_gain_db, cues.peak_gain_hz);
    planes.push_back({{"name", PlaneName(plane)},
                      {"azimuth_deg", DecimalValue(direction.azimuth_deg)},
                      {"elevation_deg", DecimalValue(direction.elevation_deg)},
                      {"interaural_delay_us", cues.delay_us},
                      {"interaural_level_db", cues.level_db},
                      {"peak_gain_db", cues.peak_gain_db},
                      {"peak_gain_hz", cues.peak_gain_hz}});
  }
  contents.json = {{"source", set.source},
                   {"licence", set.licence},
                   {"taps", set.taps},
                   {"room", room_contents.json},
                   {"planes", std::move(planes)}};
  contents.summary = Format("%d taps", set.taps) + (set.source.empty() ? "" : ", " + set.source);
  return contents;
}

Contents ReadAppListContents(const std::string& list) {
  Contents contents;
  const std::vector<std::string> packages = PossiblePackages(list);
  contents.text =
      Format("  %zu names; `kelda inspect` of the directory asks the engine about them\n",
             packages.size());
  contents.json = {{"names", packages}};
  contents.summary = Format("%zu name%s", packages.size(), packages.size() == 1 ? "" : "s");
  return contents;
}

}  // namespace kelda::tools
