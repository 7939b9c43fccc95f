#ifndef KELDA_PROCESSORS_LIBRARY_HANDLE_H_
#define KELDA_PROCESSORS_LIBRARY_HANDLE_H_

#include <cstdint>

#include "settings/config_path.h"

namespace kelda {

// The entries of a component of the signal library whose instances are handles.
// platform/include/upmix_lib.h says what each does, at the headphone equalizer.
struct HandleEntries {
  int32_t (*create)(uint32_t* handle, const char* directory, const char* file);
  int32_t (*initialize)(uint32_t handle);
  int32_t (*flush)(uint32_t handle);
  int32_t (*last_error)(uint32_t handle, int32_t* error, int32_t* detail);
  int32_t (*close)(uint32_t handle);
  int32_t (*destroy)(uint32_t* handle);
};

// Owns one instance of such a component, or none. Logs failures of the library under `log_tag`.
// Control thread, except get and ErrorDetail.
//
//   LibraryHandle handle({A0243, A0214, A0237, A0332, A0562, A0812}, log_tag::kEqualizer);
//   if (handle.Create(*SplitConfigPath(path))) {
//     A0836(handle.get(), planes);
//   }
class LibraryHandle {
 public:
  LibraryHandle(const HandleEntries& entries, const char* log_tag)
      : entries_(entries), log_tag_(log_tag) {}
  LibraryHandle(const LibraryHandle&) = delete;
  LibraryHandle& operator=(const LibraryHandle&) = delete;
  ~LibraryHandle() { Finish(); }

  // The library's handle; 0: no instance. Any thread.
  uint32_t get() const { return handle_; }
  // Creates, initialises and flushes an instance from a configuration file. It replaces an
  // earlier instance without ending it, so call Finish before. Returns false on failure: if the
  // library could not create the instance the earlier one is kept, otherwise the new one is.
  bool Create(const ConfigPath& config);
  // Clears the signal history of the instance, which must exist. Returns false on failure.
  bool Flush();
  // Ends the instance, if there is one. If the library fails to destroy it, its handle is kept.
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
