#ifndef KELDA_EFFECT_CHANNEL_MASK_NAMES_H_
#define KELDA_EFFECT_CHANNEL_MASK_NAMES_H_

#include <cstdint>

namespace kelda {

// The name of an output channel mask, for messages; "" if it has none. Looks up the
// mask as a whole, not its bits. Any thread.
const char* audio_channel_out_mask_to_string(uint32_t mask);

}  // namespace kelda

#endif  // KELDA_EFFECT_CHANNEL_MASK_NAMES_H_
