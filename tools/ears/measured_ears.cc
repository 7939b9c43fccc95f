#include "tools/ears/measured_ears.h"

#include <mysofa.h>

#include <algorithm>
#include <cmath>
#include <memory>
#include <string_view>

#include "tools/core/failure.h"
#include "tools/core/format.h"
#include "tools/core/guarded_call.h"
#include "tools/core/text_file.h"

namespace kelda::tools {
namespace {

using upmix_lib::kEars;

constexpr double kMinRateHz = 32000, kMaxRateHz = 384000;
constexpr std::size_t kMinTaps = 16, kMaxTaps = 16384;
constexpr double kMaxDelayS = 1.0;
constexpr unsigned kMaxLoadS = 20;

struct FreeHrtf {
  void operator()(MYSOFA_HRTF* hrtf) const { mysofa_free(hrtf); }
};
using Hrtf = std::unique_ptr<MYSOFA_HRTF, FreeHrtf>;

struct Unusable : std::runtime_error {
  using std::runtime_error::runtime_error;
};

std::string Number(double value) { return Format("%g", value); }

std::string Reason(int mysofa_error) {
  switch (mysofa_error) {
    case MYSOFA_INVALID_FORMAT:
    case MYSOFA_UNSUPPORTED_FORMAT:
      return "not a SOFA file, or of a kind of HDF5 that libmysofa does not read";
    case MYSOFA_NO_MEMORY:
      return "its contents do not fit into memory";
    case MYSOFA_READ_ERROR:
      return "cut short or damaged";
    case MYSOFA_INVALID_ATTRIBUTES:
      return "its conventions are not SimpleFreeFieldHRIR";
    case MYSOFA_INVALID_DIMENSIONS:
    case MYSOFA_INVALID_DIMENSION_LIST:
      return "its dimensions are not those of SimpleFreeFieldHRIR";
    case MYSOFA_INVALID_COORDINATE_TYPE:
      return "its coordinates are neither spherical nor Cartesian";
    case MYSOFA_ONLY_DELAYS_WITH_IR_OR_MR_SUPPORTED:
      return "Data.Delay is neither [I R] nor [M R]";
    case MYSOFA_ONLY_THE_SAME_SAMPLING_RATE_SUPPORTED:
      return "its measurements have different sampling rates";
    case MYSOFA_INVALID_RECEIVER_POSITIONS:
      return "its receivers are not the left ear and then the right one, on the y axis";
    default:
      return "refused by libmysofa (error " + std::to_string(mysofa_error) + ")";
  }
}

std::string Attribute(const MYSOFA_HRTF& hrtf, const char* name) {
  std::string key = name;
  const char* value = mysofa_getAttribute(hrtf.attributes, key.data());
  std::string text = value != nullptr ? value : "";
  // Without control characters, because the text is printed and stored in the file.
  std::replace_if(
      text.begin(), text.end(), [](unsigned char c) { return c < 0x20 || c == 0x7F; }, ' ');
  return text;
}

void CheckConventions(const MYSOFA_HRTF& hrtf) {
  const std::string conventions = Attribute(hrtf, "SOFAConventions");
  if (conventions != "SimpleFreeFieldHRIR") {
    throw Unusable("its conventions are " + Quoted(conventions) + ", not 'SimpleFreeFieldHRIR'");
  }
}

void CheckSizes(const MYSOFA_HRTF& hrtf) {
  if (hrtf.R != kEars) {
    throw Unusable("not the responses of two ears (" + std::to_string(hrtf.R) + " receivers)");
  }
  if (hrtf.M < 1) {
    throw Unusable("it holds no measurement");
  }
  if (hrtf.N < kMinTaps || hrtf.N > kMaxTaps) {
    throw Unusable("the length of its responses is out of range (" + std::to_string(hrtf.N) +
                   " taps, 16 to 16384)");
  }
  const std::size_t pairs = std::size_t{hrtf.M} * hrtf.R;
  if (hrtf.C != 3 || hrtf.DataIR.elements != pairs * hrtf.N ||
      hrtf.SourcePosition.elements != std::size_t{hrtf.M} * hrtf.C ||
      hrtf.DataSamplingRate.elements < 1) {
    throw Unusable(
        "its sizes contradict each other, or its numbers are not of double precision, which "
        "libmysofa takes them for");
  }
  if (hrtf.DataDelay.elements != 0 && hrtf.DataDelay.elements != hrtf.R &&
      hrtf.DataDelay.elements != pairs) {
    throw Unusable("Data.Delay is neither [I R] nor [M R] (" +
                   std::to_string(hrtf.DataDelay.elements) + " values)");
  }
}

void CheckValues(const MYSOFA_HRTF& hrtf) {
  const double rate_hz = hrtf.DataSamplingRate.values[0];
  if (!(rate_hz >= kMinRateHz && rate_hz <= kMaxRateHz)) {
    throw Unusable("its sampling rate is out of range (" + Number(rate_hz) +
                   " Hz, 32000 to 384000 Hz)");
  }
  const auto finite = [](const MYSOFA_ARRAY& array) {
    return std::all_of(array.values, array.values + array.elements,
                       [](float value) { return std::isfinite(value); });
  };
  if (!finite(hrtf.DataIR)) {
    throw Unusable("its responses hold NaN or infinity");
  }
  if (!finite(hrtf.SourcePosition)) {
    throw Unusable("its positions hold NaN or infinity");
  }
  if (std::all_of(hrtf.DataIR.values, hrtf.DataIR.values + hrtf.DataIR.elements,
                  [](float value) { return value == 0.0f; })) {
    throw Unusable("its responses are silent");
  }
  for (unsigned i = 0; i < hrtf.DataDelay.elements; ++i) {
    const double delay_s = hrtf.DataDelay.values[i] / rate_hz;
    if (!(delay_s >= 0 && delay_s <= kMaxDelayS)) {
      throw Unusable("Data.Delay is out of range (" + Number(hrtf.DataDelay.values[i]) +
                     " samples, 0 to " + Number(kMaxDelayS * rate_hz) + ")");
    }
  }
}

MeasuredEars Convert(const MYSOFA_HRTF& hrtf) {
  MeasuredEars ears;
  ears.database = Attribute(hrtf, "DatabaseName");
  ears.listener = Attribute(hrtf, "ListenerShortName");
  ears.author = Attribute(hrtf, "AuthorContact");
  ears.licence = Attribute(hrtf, "License");
  ears.sample_rate_hz = hrtf.DataSamplingRate.values[0];
  ears.taps = hrtf.N;
  const float* const positions = hrtf.SourcePosition.values;
  for (std::size_t m = 0; m < hrtf.M; ++m) {
    ears.distance_m = std::max(ears.distance_m, double{positions[3 * m + 2]});
  }
  for (std::size_t m = 0; m < hrtf.M; ++m) {
    if (positions[3 * m + 2] < 0.9 * ears.distance_m) {
      continue;
    }
    ears.directions.push_back({std::remainder(positions[3 * m], 360.0f),
                               std::clamp(positions[3 * m + 1], -90.0f, 90.0f)});
    for (std::size_t ear = 0; ear < kEars; ++ear) {
      const float* const taps = hrtf.DataIR.values + (m * kEars + ear) * hrtf.N;
      ears.responses.insert(ears.responses.end(), taps, taps + hrtf.N);
      const bool each = hrtf.DataDelay.elements > hrtf.R || hrtf.M == 1;
      const double delay =
          hrtf.DataDelay.elements == 0 ? 0 : hrtf.DataDelay.values[(each ? m * kEars : 0) + ear];
      ears.delays_s.push_back(delay / ears.sample_rate_hz);
    }
  }
  return ears;
}

}  // namespace

MeasuredEars ReadMeasuredEars(const std::filesystem::path& path) {
  const std::string name = path.string();
  try {
    // Checked first, because libmysofa would wait for a pipe.
    if (const std::string reason = WhyUnreadable(path); !reason.empty()) {
      throw Unusable("cannot be read: " + reason);
    }
    int error = MYSOFA_OK;
    // Tried in a child process first, because damaged files make libmysofa crash or read for
    // minutes.
    const ChildEnd trial =
        RunInChild([&] { return Hrtf(mysofa_load(name.c_str(), &error)) != nullptr; }, kMaxLoadS);
    if (!trial.returned) {
      throw Unusable("libmysofa fails to read it: " + trial.how);
    }
    const Hrtf hrtf(mysofa_load(name.c_str(), &error));
    if (!hrtf) {
      throw Unusable(Reason(error));
    }
    CheckConventions(*hrtf);
    CheckSizes(*hrtf);
    if (const int refused = mysofa_check(hrtf.get()); refused != MYSOFA_OK) {
      // By then it is known to be a SOFA file.
      throw Unusable(refused == MYSOFA_INVALID_FORMAT ? "the listener is turned (ListenerView)"
                                                      : Reason(refused));
    }
    CheckValues(*hrtf);
    mysofa_tospherical(hrtf.get());
    return Convert(*hrtf);
  } catch (const Unusable& unusable) {
    throw Failure(ExitCode::kInput, name + ": " + unusable.what());
  }
}

}  // namespace kelda::tools
