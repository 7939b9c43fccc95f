// What `kelda render` reports at the end.
#ifndef KELDA_TOOLS_RENDER_RENDER_SUMMARY_H_
#define KELDA_TOOLS_RENDER_RENDER_SUMMARY_H_

#include <string>
#include <vector>

#include "tools/render/renderer.h"

namespace kelda::tools {

// "out.wav: 0:20.000; loudness -20.1 LUFS in, -21.3 out; true peak -3.2 dBTP in, -4.0 out;
// 120x real time; ran: music upmix, level control; from 0:10.000 pass-through", in one line. What
// ran is left out if the effect does not report it.
std::string SummaryLine(const RenderJob& job, const RenderResult& result);

// Warnings for the user: stages that did not run, samples that are NaN or infinite, silence,
// samples that were clipped, changes that came too late.
std::vector<std::string> RenderWarnings(const RenderJob& job, const RenderResult& result);

}  // namespace kelda::tools

#endif  // KELDA_TOOLS_RENDER_RENDER_SUMMARY_H_
