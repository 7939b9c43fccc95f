#ifndef KELDA_TOOLS_EQUALIZER_EQUALIZER_FILTER_LINE_H_
#define KELDA_TOOLS_EQUALIZER_EQUALIZER_FILTER_LINE_H_

#include <optional>
#include <stdexcept>
#include <string_view>

#include "upmix-lib/equalizer/equalizer_format.h"

namespace kelda::tools {

// The filter is of an unknown kind. Such a line is skipped with a warning, while a line that is
// wrong is an error.
struct UnknownFilter : std::invalid_argument {
  using std::invalid_argument::invalid_argument;
};

// Parses what follows "Filter N:", see equalizer_text.h. Returns nothing if the filter is OFF or of
// the kind None. `decimal_commas`: whether the text has decimal commas. Throws UnknownFilter, or
// std::invalid_argument with what is wrong.
std::optional<upmix_lib::EqualizerBand> ParseFilter(std::string_view text, bool decimal_commas);

}  // namespace kelda::tools

#endif  // KELDA_TOOLS_EQUALIZER_EQUALIZER_FILTER_LINE_H_
