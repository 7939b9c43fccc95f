#ifndef KELDA_PROCESSORS_LIBRARY_HANDLE_H_
#define KELDA_PROCESSORS_LIBRARY_HANDLE_H_

#include <cstdint>

#include "settings/config_path.h"

namespace kelda {

// The entries of a component of the signal library whose instances are handles; what each does
// is said in platform/include/upmix_lib.h, of the headphone equalizer's.
struct HandleEntries {
  int32_t (*create)(uint32_t* handle, const char* directory, const char* file);
  int32_t (*initialize)(uint32_t handle);
  int32_t (*flush)(uint32_t handle);
  int32_t (*last_error)(uint32_t handle, int32_t* error, int32_t* detail);
  int32_t (*close)(uint32_t handle);
  int32_t (*destroy)(uint32_t* handle);
};

// Owns one instance of such a component, or none. A failure of the library is logged under
// `log_tag`. Control thread, but for get and ErrorDetail.
class LibraryHandle {
 public:
  LibraryHandle(const HandleEntries& entries, const char* log_tag)
      : entries_(entries), log_tag_(log_tag) {}
  LibraryHandle(const LibraryHandle&) = delete;
  LibraryHandle& operator=(const LibraryHandle&) = delete;
  ~LibraryHandle() { Finish(); }

  // The library's handle; 0: no instance. Any thread.
  uint32_t get() const { return handle_; }
  // Creates, initialises and flushes an instance from a configuration file. What it held is
  // forgotten, not ended. Returns false on failure: if creating fails it holds what it held,
  // else the new instance.
  bool Create(const ConfigPath& config);
  // Clears the signal history of the instance, which must exist. Returns false on failure.
  bool Flush();
  // Ends the instance, if there is one. The handle of one that the library does not destroy
  // is kept.
  void Finish();
  // The same, but logs nothing.
  void FinishQuietly();
  // Detail code of the last error. Any thread.
  int ErrorDetail() const;

 private:
  bool Succeeded(int32_t status, const char* what) const;

  const HandleEntries entries_;
  const char* const log_tag_;
  bool initialized_ = false;  // for a debugger: the instance was initialised
  uint32_t handle_ = 0;
};

}  // namespace kelda

#endif  // KELDA_PROCESSORS_LIBRARY_HANDLE_H_
