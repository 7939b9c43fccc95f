#include "tools/tuned_hrirs.h"

#include <cstring>

#include "tools/hrir_acceptance.h"
#include "tools/interruption.h"
#include "tools/measured_ears.h"
#include "tools/parameter_sets.h"
#include "tools/preset_toml.h"
#include "tools/status_line.h"

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
  return {upmix_lib::EncodeHrirSet(design.set), DescribeHrirs(design, measured)};
}

upmix_lib::RoomParameters ReadRoom(const std::filesystem::path& preset) {
  const std::vector<std::byte> bytes =
      preset.empty() ? DefaultPreset(RoomParameterSet()) : ReadPreset(preset, RoomParameterSet());
  upmix_lib::RoomParameters room;
  std::memcpy(&room, bytes.data(), sizeof(room));
  return room;
}

}  // namespace kelda::tools
