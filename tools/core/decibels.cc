#include "tools/core/decibels.h"

#include <algorithm>
#include <cmath>

namespace kelda::tools {

double ToDb(double magnitude) { return 20 * std::log10(std::max(magnitude, 1e-10)); }

double PowerToDb(double power) { return 10 * std::log10(std::max(power, 1e-20)); }

}  // namespace kelda::tools
