#include "platform/log.h"

#include <android/log.h>

#include <cstdarg>
#include <cstdio>

namespace kelda {
namespace {

void Print(int priority, const char* tag, const char* format, va_list arguments) {
  char message[1024];
  if (std::vsnprintf(message, sizeof(message), format, arguments) < 0) {
    return;
  }
  __android_log_print(priority, tag, "%s", message);
}

}  // namespace

void LogError(const char* tag, const char* format, ...) {
  va_list arguments;
  va_start(arguments, format);
  Print(ANDROID_LOG_ERROR, tag, format, arguments);
  va_end(arguments);
}

void LogWarning(const char* tag, const char* format, ...) {
  va_list arguments;
  va_start(arguments, format);
  Print(ANDROID_LOG_WARN, tag, format, arguments);
  va_end(arguments);
}

void LogInfo(const char* tag, const char* format, ...) {
  va_list arguments;
  va_start(arguments, format);
  Print(ANDROID_LOG_INFO, tag, format, arguments);
  va_end(arguments);
}

}  // namespace kelda
