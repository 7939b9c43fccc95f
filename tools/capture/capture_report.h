// Formats the findings in a capture.
#ifndef KELDA_TOOLS_CAPTURE_CAPTURE_REPORT_H_
#define KELDA_TOOLS_CAPTURE_CAPTURE_REPORT_H_

#include <cstddef>
#include <string>

#include "tools/capture/capture_analysis.h"
#include "tools/capture/capture_layout.h"

namespace kelda::tools {

struct CaptureSummary {
  std::string file;
  CaptureLayout layout;
  std::string layout_reason;
  std::size_t trailing_bytes = 0;
  CaptureFindings findings;
};

// For people. Lists at most `most_events` events of each kind.
std::string FormatCapture(const CaptureSummary& summary, std::size_t most_events);

// The same as JSON for scripts, with every event that was kept. The level of silence is null.
std::string FormatCaptureJson(const CaptureSummary& summary);

}  // namespace kelda::tools

#endif  // KELDA_TOOLS_CAPTURE_CAPTURE_REPORT_H_
