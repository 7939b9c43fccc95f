// The readers of text that people write: every input is read as each kind of file. A reader
// may refuse it, but only with a Failure.
#include <cstddef>
#include <cstdint>
#include <functional>
#include <string>

#include "fuzz/quiet_log.h"
#include "settings/tuning_files.h"
#include "tests/laboratory/temporary_folder.h"
#include "tools/core/failure.h"
#include "tools/equalizer/equalizer_design.h"
#include "tools/inspect/inspected_file.h"
#include "tools/presets/parameter_sets.h"
#include "tools/presets/preset_toml.h"
#include "tools/render/timeline.h"
#include "tools/tune/app_list_check.h"
#include "tools/tune/tuning_project.h"

using namespace kelda;
using namespace kelda::tools;

namespace {

void MayRefuse(const std::function<void()>& read) {
  try {
    read();
  } catch (const Failure&) {
    return;
  }
}

// A text within its limits must give a file that the signal library accepts.
void ReadEqualizer(const std::string& path) {
  const EqualizerDesign design = DesignEqualizer(ReadEqualizerText(path), "equalizer");
  upmix_lib::EqualizerTuning read;
  if (ParseEqualizer(BuildEqualizerFile(design.tuning), read) != upmix_lib::kOk) {
    __builtin_trap();
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, std::size_t size) {
  static const TemporaryFolder directory;
  const std::string_view text(reinterpret_cast<const char*>(data), size);
  const std::string list = directory / "tunedapp_list";
  const std::string config = directory / "wired.hki.config";
  directory.Write("tunedapp_list", text);
  directory.Write("wired.hki.config", text);

  CheckAppList(list, text);
  fuzz::QuietLog();
  InspectFile(list);
  InspectFile(config);
  GetHrtfType(config);
  ConfigFileReader::GetParamFilename(config);
  MayRefuse([&] { ReadEqualizer(list); });
  MayRefuse([&] { ReadScenario(list); });
  MayRefuse([&] { ReadTuningProject(list); });
  for (const ParameterSet& set : ParameterSets()) {
    MayRefuse([&] { ReadPreset(list, set); });
  }
  return 0;
}
