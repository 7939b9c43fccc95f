#ifndef KELDA_EFFECT_EFFECT_UUID_H_
#define KELDA_EFFECT_EFFECT_UUID_H_

#include <hardware/audio_effect.h>

namespace kelda {

// 3f8a61c2-9d47-4b1e-8c05-d2e97a4b6f10, type and implementation, in a device's list of effects.
inline constexpr effect_uuid_t kEffectUuid = {
    0x3f8a61c2, 0x9d47, 0x4b1e, 0x8c05, {0xd2, 0xe9, 0x7a, 0x4b, 0x6f, 0x10}};

}  // namespace kelda

#endif  // KELDA_EFFECT_EFFECT_UUID_H_
