// The interface between the audio effect framework and an effect library
// (API 33), as far as this project uses it. Same include path, names and values
// as the platform's header, so that an Android tree can put its own in front of
// this one.
#ifndef KELDA_PLATFORM_HARDWARE_AUDIO_EFFECT_H_
#define KELDA_PLATFORM_HARDWARE_AUDIO_EFFECT_H_

#include <errno.h>
#include <stdint.h>

#include <system/audio_effect.h>

#ifdef __cplusplus
extern "C" {
#endif

struct effect_interface_s;
typedef struct effect_interface_s** effect_handle_t;

struct effect_interface_s {
  int32_t (*process)(effect_handle_t self, audio_buffer_t* inBuffer, audio_buffer_t* outBuffer);
  int32_t (*command)(effect_handle_t self, uint32_t cmdCode, uint32_t cmdSize, void* pCmdData,
                     uint32_t* replySize, void* pReplyData);
  int32_t (*get_descriptor)(effect_handle_t self, effect_descriptor_t* pDescriptor);
  int32_t (*process_reverse)(effect_handle_t self, audio_buffer_t* inBuffer,
                             audio_buffer_t* outBuffer);
};

#define EFFECT_LIBRARY_API_VERSION EFFECT_MAKE_API_VERSION(3, 0)
#define AUDIO_EFFECT_LIBRARY_TAG ((('A') << 24) | (('E') << 16) | (('L') << 8) | ('T'))

typedef struct audio_effect_library_s {
  uint32_t tag;
  uint32_t version;
  const char* name;
  const char* implementor;
  int32_t (*create_effect)(const effect_uuid_t* uuid, int32_t sessionId, int32_t ioId,
                           effect_handle_t* pHandle);
  int32_t (*release_effect)(effect_handle_t handle);
  int32_t (*get_descriptor)(const effect_uuid_t* uuid, effect_descriptor_t* pDescriptor);
  int32_t (*create_effect_3_1)(const effect_uuid_t* uuid, int32_t sessionId, int32_t ioId,
                               int32_t deviceId, effect_handle_t* pHandle);
} audio_effect_library_t;

#define AUDIO_EFFECT_LIBRARY_INFO_SYM AELI
#define AUDIO_EFFECT_LIBRARY_INFO_SYM_AS_STR "AELI"

#ifdef __cplusplus
}
#endif

#endif  // KELDA_PLATFORM_HARDWARE_AUDIO_EFFECT_H_
