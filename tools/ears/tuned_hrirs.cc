#include "tools/ears/tuned_hrirs.h"

#include <cstring>

#include "tools/core/interruption.h"
#include "tools/core/status_line.h"
#include "tools/ears/hrir_acceptance.h"
#include "tools/ears/measured_ears.h"
#include "tools/presets/parameter_sets.h"
#include "tools/presets/preset_toml.h"

namespace kelda::tools {

TunedHrirs TuneHrirs(const std::filesystem::path& sofa, const HrirOptions& options) {
  StatusLine line;
  const MeasuredEars measured = ReadMeasuredEars(sofa);
  const HrirDesign design =
      DesignHrirs(measured, sofa.string(), options, [&line](double part_done) {
        CheckInterruption();
        line.Show("measuring the diffuse field " +
                  std::to_string(static_cast<int>(100 * part_done)) + "%");
      });
  CheckHrirs(design, sofa.string());
  return {design.set, upmix_lib::EncodeHrirSet(design.set), DescribeHrirs(design, measured)};
}

upmix_lib::RoomParameters ReadRoom(const std::filesystem::path& preset) {
  const std::vector<std::byte> bytes =
      preset.empty() ? DefaultPreset(RoomParameterSet()) : ReadPreset(preset, RoomParameterSet());
  upmix_lib::RoomParameters room;
  std::memcpy(&room, bytes.data(), sizeof(room));
  return room;
}

}  // namespace kelda::tools
