// The platform's logging interface, as far as this project uses it. Same
// include path, names and values as the NDK's header, so that an Android tree
// can put its own in front of this one.
#ifndef KELDA_PLATFORM_ANDROID_LOG_H_
#define KELDA_PLATFORM_ANDROID_LOG_H_

#include <stddef.h>
#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

typedef enum android_LogPriority {
  ANDROID_LOG_UNKNOWN = 0,
  ANDROID_LOG_DEFAULT,
  ANDROID_LOG_VERBOSE,
  ANDROID_LOG_DEBUG,
  ANDROID_LOG_INFO,
  ANDROID_LOG_WARN,
  ANDROID_LOG_ERROR,
  ANDROID_LOG_FATAL,
  ANDROID_LOG_SILENT,
} android_LogPriority;

int __android_log_print(int prio, const char* tag, const char* fmt, ...)
    __attribute__((__format__(printf, 3, 4)));

// What follows is for host programs and tests only; the effect library imports
// nothing but __android_log_print.

struct __android_log_message {
  size_t struct_size;
  int32_t buffer_id;
  int32_t priority;
  const char* tag;
  const char* file;
  uint32_t line;
  const char* message;
};

typedef void (*__android_logger_function)(const struct __android_log_message* log_message);

// Replaces the function that writes every message.
void __android_log_set_logger(__android_logger_function logger);

// The default logger: one line on stderr in logcat's threadtime format.
void __android_log_stderr_logger(const struct __android_log_message* log_message);

// Messages below this priority are dropped. Returns the previous value.
int32_t __android_log_set_minimum_priority(int32_t priority);

#ifdef __cplusplus
}
#endif

#endif  // KELDA_PLATFORM_ANDROID_LOG_H_
