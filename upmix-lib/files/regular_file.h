#ifndef KELDA_UPMIX_LIB_FILES_REGULAR_FILE_H_
#define KELDA_UPMIX_LIB_FILES_REGULAR_FILE_H_

#include <cstddef>
#include <cstdint>
#include <span>
#include <string>

namespace kelda::upmix_lib {

// A regular file opened for reading; a pipe or a device is refused without waiting
// for it. Control.
class RegularFile {
 public:
  enum class Error { kNone, kMissing, kNotRegular };

  explicit RegularFile(const std::string& path);
  ~RegularFile();
  RegularFile(const RegularFile&) = delete;
  RegularFile& operator=(const RegularFile&) = delete;

  Error error() const { return error_; }
  uint64_t size_bytes() const { return size_bytes_; }  // when it was opened

  // Reads up to bytes.size() bytes from the current position, fewer only at the end of
  // the file. Returns how many, or -1 after a read error.
  std::ptrdiff_t Read(std::span<std::byte> bytes);

 private:
  int descriptor_ = -1;
  uint64_t size_bytes_ = 0;
  Error error_ = Error::kMissing;
};

}  // namespace kelda::upmix_lib

#endif  // KELDA_UPMIX_LIB_FILES_REGULAR_FILE_H_
