#include "processors/library_handle.h"

#include "platform/log.h"

namespace kelda {

bool LibraryHandle::Create(const ConfigPath& config) {
  uint32_t handle = 0;
  if (const int32_t status = entries_.create(&handle, config.directory, config.file)) {
    LogError(log_tag_, "Failed to create library due to failure with error code %d.", status);
    return false;
  }
  handle_ = handle;
  initialized_ = false;
  if (!Succeeded(entries_.initialize(handle_), "initialize")) {
    return false;
  }
  initialized_ = true;
  return Flush();
}

bool LibraryHandle::Flush() { return Succeeded(entries_.flush(handle_), "flush"); }

void LibraryHandle::Finish() {
  if (handle_ == 0) {
    return;
  }
  Succeeded(entries_.close(handle_), "close");
  if (const int32_t status = entries_.destroy(&handle_)) {
    LogError(log_tag_, "Failed to destroy library due to failure with error code %d.", status);
  } else {
    handle_ = 0;
  }
}

void LibraryHandle::FinishQuietly() {
  if (handle_ == 0) {
    return;
  }
  entries_.close(handle_);
  if (entries_.destroy(&handle_) == 0) {
    handle_ = 0;
  }
}

int LibraryHandle::ErrorDetail() const {
  int32_t error = 0;
  int32_t detail = 0;
  entries_.last_error(handle_, &error, &detail);
  return detail;
}

// Logs a status that is not 0, with the name of what failed.
bool LibraryHandle::Succeeded(int32_t status, const char* what) const {
  if (status == 0) {
    return true;
  }
  LogError(log_tag_, "Failed to %s library due to failure with error code %d. [detail code %d]",
           what, status, ErrorDetail());
  return false;
}

}  // namespace kelda
