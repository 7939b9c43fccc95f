#ifndef KELDA_TOOLS_EQUALIZER_EQUALIZER_FILTER_LINE_H_
#define KELDA_TOOLS_EQUALIZER_EQUALIZER_FILTER_LINE_H_

#include <optional>
#include <stdexcept>
#include <string_view>

#include "upmix-lib/equalizer/equalizer_format.h"

namespace kelda::tools {

// A kind of filter that is none of ours: the line is not known, rather than wrong.
struct UnknownFilter : std::invalid_argument {
  using std::invalid_argument::invalid_argument;
};

// What follows "Filter N:", see equalizer_text.h. Nothing if the filter is off or none.
// `decimal_commas`: whether the whole text has them. Throws UnknownFilter, or
// std::invalid_argument with what is wrong.
std::optional<upmix_lib::EqualizerBand> ParseFilter(std::string_view text, bool decimal_commas);

}  // namespace kelda::tools

#endif  // KELDA_TOOLS_EQUALIZER_EQUALIZER_FILTER_LINE_H_
