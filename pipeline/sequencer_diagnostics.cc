// The sequencer's report and its capture.
#include <cstddef>
#include <utility>

#include "pipeline/audio_process_sequencer.h"

namespace kelda {

void AudioProcessSequencer::Dumpsys(std::string* out) const {
  constexpr std::size_t kNameWidth = 4;
  out->append("  - AudioProcessSequencer:\n    input  : " + std::to_string(input_frames_) +
              "\n    process: " + std::to_string(processed_frames_) +
              "\n    output : " + std::to_string(output_frames_) +
              "\n    discard: " + std::to_string(discarded_frames_) + "\n    processors:\n");
  for (const AudioProcessor* processor : *chain_) {
    std::string name = processor->GetName();
    if (name.size() < kNameWidth) {
      name.resize(kNameWidth, ' ');
    }
    out->append(std::string("      [") + (processor->IsEnabled() ? "*" : " ") + "] " + name + ": ");
    processor->Dumpsys(out);
  }
}

void AudioProcessSequencer::StartPcmDump(const std::string& dir, unsigned seconds) {
  const std::string path = dir + "/" + PcmDump::GenerateFileName();
  auto dump = std::make_unique<PcmDump>();
  // Ends the old capture first: if the new one has the same file name, it appends to what the
  // old one has written.
  pcm_dump_ = std::move(dump);
  pcm_dump_->Open(path, output_channels_, seconds);
}

void AudioProcessSequencer::StopPcmDump() {
  if (!pcm_dump_) {
    return;
  }
  pcm_dump_->Close();
  // Deleted, so that the audio path no longer passes it blocks.
  pcm_dump_.reset();
}

}  // namespace kelda
