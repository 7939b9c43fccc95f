#include "tools/framework/side_instance.h"

#include <android/log.h>
#include <cutils/properties.h>

#include <string>

namespace kelda::tools {
namespace {

constexpr const char* kCaptureProperty = "vendor.kelda.pcmdump";

}  // namespace

SideInstanceScope::SideInstanceScope()
    : log_priority_(__android_log_set_minimum_priority(ANDROID_LOG_SILENT)),
      capture_seconds_(property_get_int32(kCaptureProperty, 0)) {
  property_set(kCaptureProperty, "0");
}

SideInstanceScope::~SideInstanceScope() {
  property_set(kCaptureProperty, std::to_string(capture_seconds_).c_str());
  __android_log_set_minimum_priority(log_priority_);
}

}  // namespace kelda::tools
