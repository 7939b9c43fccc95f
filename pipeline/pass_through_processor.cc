#include "pipeline/pass_through_processor.h"

#include <algorithm>
#include <cstddef>

namespace kelda {

PassThroughProcessor::PassThroughProcessor(unsigned input_channels, unsigned output_channels,
                                           unsigned min_period_frames)
    : AudioProcessor(/*enabled=*/true, /*ready=*/true),
      input_channels_(input_channels),
      output_channels_(output_channels),
      min_period_frames_(min_period_frames) {}

bool PassThroughProcessor::Process(float* in, float* out, unsigned frames) {
  std::copy_n(in, std::size_t{frames} * input_channels_, out);
  return true;
}

void PassThroughProcessor::Dumpsys(std::string* out) const { out->append("\n"); }

}  // namespace kelda
