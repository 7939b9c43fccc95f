#include "effect/channel_mask_names.h"

namespace kelda {

const char* audio_channel_out_mask_to_string(uint32_t mask) {
  switch (mask) {
    case 0x0:
      return "AUDIO_CHANNEL_NONE";
    case 0x1:
      return "AUDIO_CHANNEL_OUT_MONO";
    case 0x3:
      return "AUDIO_CHANNEL_OUT_STEREO";
    case 0x7:
      return "AUDIO_CHANNEL_OUT_TRI";
    case 0xB:
      return "AUDIO_CHANNEL_OUT_2POINT1";
    case 0xF:
      return "AUDIO_CHANNEL_OUT_3POINT1";
    case 0x33:
      return "AUDIO_CHANNEL_OUT_QUAD";
    case 0x37:
      return "AUDIO_CHANNEL_OUT_PENTA";
    case 0x3F:
      return "AUDIO_CHANNEL_OUT_5POINT1";
    case 0x103:
      return "AUDIO_CHANNEL_OUT_TRI_BACK";
    case 0x107:
      return "AUDIO_CHANNEL_OUT_SURROUND";
    case 0x13F:
      return "AUDIO_CHANNEL_OUT_6POINT1";
    case 0x603:
      return "AUDIO_CHANNEL_OUT_QUAD_SIDE";
    case 0x60F:
      return "AUDIO_CHANNEL_OUT_5POINT1_SIDE";
    case 0x63F:
      return "AUDIO_CHANNEL_OUT_7POINT1";
    case 0x2D03F:
      return "AUDIO_CHANNEL_OUT_5POINT1POINT4";
    case 0x2D63F:
      return "AUDIO_CHANNEL_OUT_7POINT1POINT4";
    case 0xC0003:
      return "AUDIO_CHANNEL_OUT_2POINT0POINT2";
    case 0xC0007:
      return "AUDIO_CHANNEL_OUT_3POINT0POINT2";
    case 0xC000B:
      return "AUDIO_CHANNEL_OUT_2POINT1POINT2";
    case 0xC000F:
      return "AUDIO_CHANNEL_OUT_3POINT1POINT2";
    case 0xC003F:
      return "AUDIO_CHANNEL_OUT_5POINT1POINT2";
    case 0xC063F:
      return "AUDIO_CHANNEL_OUT_7POINT1POINT2";
    case 0x72F607:
      return "AUDIO_CHANNEL_OUT_13POINT_KELDA";
    case 0xFFFFFF:
      return "AUDIO_CHANNEL_OUT_22POINT2";
    case 0x302D63F:
      return "AUDIO_CHANNEL_OUT_9POINT1POINT4";
    case 0x30ED63F:
      return "AUDIO_CHANNEL_OUT_9POINT1POINT6";
    case 0x20000001:
      return "AUDIO_CHANNEL_OUT_MONO_HAPTIC_A";
    case 0x20000003:
      return "AUDIO_CHANNEL_OUT_STEREO_HAPTIC_A";
    case 0x30000000:
      return "AUDIO_CHANNEL_OUT_HAPTIC_AB";
    case 0x30000001:
      return "AUDIO_CHANNEL_OUT_MONO_HAPTIC_AB";
    case 0x30000003:
      return "AUDIO_CHANNEL_OUT_STEREO_HAPTIC_AB";
    default:
      return "";
  }
}

}  // namespace kelda
