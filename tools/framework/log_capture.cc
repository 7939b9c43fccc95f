#include "tools/framework/log_capture.h"

#include <android/log.h>

#include <utility>

#include "tools/core/status_line.h"

namespace kelda::tools {
namespace {

// Never destroyed, as the effect may log until the process ends.
std::vector<LogLine>& Lines() {
  static auto* const lines = new std::vector<LogLine>;
  return *lines;
}

void Keep(const __android_log_message* message) {
  std::string text = message->message;
  while (text.ends_with('\n')) {
    text.pop_back();
  }
  Lines().push_back({message->priority, message->tag, std::move(text)});
}

}  // namespace

LogCapture::LogCapture() : priority_(__android_log_set_minimum_priority(ANDROID_LOG_WARN)) {
  Lines().clear();
  __android_log_set_logger(Keep);
}

LogCapture::~LogCapture() {
  ShowLog(priority_);
  Lines().clear();
}

std::vector<LogLine> LogCapture::Take() { return std::exchange(Lines(), {}); }

}  // namespace kelda::tools
