// The audio effect framework's types and command codes (API 33), as far as this
// project uses them. Same include path, names and values as the platform's
// header, so that an Android tree can put its own in front of this one.
#ifndef KELDA_PLATFORM_SYSTEM_AUDIO_EFFECT_H_
#define KELDA_PLATFORM_SYSTEM_AUDIO_EFFECT_H_

#include <stddef.h>
#include <stdint.h>

#include <system/audio.h>

#ifdef __cplusplus
extern "C" {
#endif

typedef audio_uuid_t effect_uuid_t;

#define EFFECT_STRING_LEN_MAX 64
#define EFFECT_MAKE_API_VERSION(M, m) (((M) << 16) | ((m)&0xFFFF))
#define EFFECT_CONTROL_API_VERSION EFFECT_MAKE_API_VERSION(2, 0)

typedef struct effect_descriptor_s {
  effect_uuid_t type;
  effect_uuid_t uuid;
  uint32_t apiVersion;
  uint32_t flags;
  uint16_t cpuLoad;
  uint16_t memoryUsage;
  char name[EFFECT_STRING_LEN_MAX];
  char implementor[EFFECT_STRING_LEN_MAX];
} effect_descriptor_t;

enum {
  EFFECT_FLAG_TYPE_INSERT = 0u << 0,
  EFFECT_FLAG_INSERT_FIRST = 1u << 3,
  EFFECT_FLAG_DEVICE_IND = 1u << 9,
};

enum effect_command_e {
  EFFECT_CMD_INIT,
  EFFECT_CMD_SET_CONFIG,
  EFFECT_CMD_RESET,
  EFFECT_CMD_ENABLE,
  EFFECT_CMD_DISABLE,
  EFFECT_CMD_SET_PARAM,
  EFFECT_CMD_SET_PARAM_DEFERRED,
  EFFECT_CMD_SET_PARAM_COMMIT,
  EFFECT_CMD_GET_PARAM,
  EFFECT_CMD_SET_DEVICE,
  EFFECT_CMD_SET_VOLUME,
  EFFECT_CMD_SET_AUDIO_MODE,
  EFFECT_CMD_SET_CONFIG_REVERSE,
  EFFECT_CMD_SET_INPUT_DEVICE,
  EFFECT_CMD_GET_CONFIG,
  EFFECT_CMD_GET_CONFIG_REVERSE,
  EFFECT_CMD_GET_FEATURE_SUPPORTED_CONFIGS,
  EFFECT_CMD_GET_FEATURE_CONFIG,
  EFFECT_CMD_SET_FEATURE_CONFIG,
  EFFECT_CMD_SET_AUDIO_SOURCE,
  EFFECT_CMD_OFFLOAD,
  EFFECT_CMD_DUMP,
  EFFECT_CMD_FIRST_PROPRIETARY = 0x10000,
};

struct audio_buffer_s {
  size_t frameCount;
  union {
    void* raw;
    float* f32;
    int32_t* s32;
    int16_t* s16;
    uint8_t* u8;
  };
};
typedef struct audio_buffer_s audio_buffer_t;

typedef int32_t (*buffer_function_t)(void* cookie, audio_buffer_t* buffer);

typedef struct buffer_provider_s {
  buffer_function_t getBuffer;
  buffer_function_t releaseBuffer;
  void* cookie;
} buffer_provider_t;

typedef struct buffer_config_s {
  audio_buffer_t buffer;
  uint32_t samplingRate;
  uint32_t channels;
  buffer_provider_t bufferProvider;
  uint8_t format;
  uint8_t accessMode;
  uint16_t mask;
} buffer_config_t;

enum {
  EFFECT_BUFFER_ACCESS_WRITE,
  EFFECT_BUFFER_ACCESS_READ,
  EFFECT_BUFFER_ACCESS_ACCUMULATE,
};

enum {
  EFFECT_CONFIG_BUFFER = 0x0001,
  EFFECT_CONFIG_SMP_RATE = 0x0002,
  EFFECT_CONFIG_CHANNELS = 0x0004,
  EFFECT_CONFIG_FORMAT = 0x0008,
  EFFECT_CONFIG_ACC_MODE = 0x0010,
  EFFECT_CONFIG_ALL = EFFECT_CONFIG_BUFFER | EFFECT_CONFIG_SMP_RATE | EFFECT_CONFIG_CHANNELS |
                      EFFECT_CONFIG_FORMAT | EFFECT_CONFIG_ACC_MODE,
};

typedef struct effect_config_s {
  buffer_config_t inputCfg;
  buffer_config_t outputCfg;
} effect_config_t;

typedef struct effect_param_s {
  int32_t status;
  uint32_t psize;
  uint32_t vsize;
  char data[];
} effect_param_t;

#ifdef __cplusplus
}
#endif

#endif  // KELDA_PLATFORM_SYSTEM_AUDIO_EFFECT_H_
