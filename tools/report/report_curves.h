// The report's data about single files: what each equalizer and each ear does.
#ifndef KELDA_TOOLS_REPORT_REPORT_CURVES_H_
#define KELDA_TOOLS_REPORT_REPORT_CURVES_H_

#include <string>
#include <vector>

#include "tools/core/json.h"
#include "upmix-lib/binaural/hrir_set.h"
#include "upmix-lib/equalizer/equalizer_file.h"

namespace kelda::tools {

// Rounded to `digits` after the point, so that a page of numbers stays small. Null for NaN and
// infinity.
Json Rounded(double value, int digits);
Json Rounded(const std::vector<double>& values, int digits);

// Levels and gains: two digits, and null for -150 dB and less, which is silence.
Json Decibels(double value_db);
Json Decibels(const std::vector<double>& values_db);

// An equalizer without its measured response. Gains at ResponseFrequencies(), in dB.
Json EqualizerJson(const std::string& name, const upmix_lib::EqualizerTuning& tuning);

Json EarsJson(const std::string& name, const upmix_lib::HrirSet& set);

}  // namespace kelda::tools

#endif  // KELDA_TOOLS_REPORT_REPORT_CURVES_H_
