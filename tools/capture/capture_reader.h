// Reads a raw capture as interleaved frames, a piece at a time.
#ifndef KELDA_TOOLS_CAPTURE_CAPTURE_READER_H_
#define KELDA_TOOLS_CAPTURE_CAPTURE_READER_H_

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <memory>
#include <optional>
#include <span>
#include <vector>

#include "tools/capture/capture_layout.h"

namespace kelda::tools {

class CaptureReader {
 public:
  // Opens the capture and reads its first samples. Throws Failure (input), also for a file of a
  // known audio format, whose bytes would otherwise be taken for 32-bit float samples.
  explicit CaptureReader(const std::filesystem::path& path);

  // The first samples of the file, for a guess.
  std::span<const float> head() const { return head_; }

  // The frames that a regular file of this layout holds.
  std::optional<int64_t> ExpectedFrames(const CaptureLayout& layout) const;

  // Replaces the contents of `interleaved` by the next frames, or by none at the end of the file.
  // The first call begins at the start of the file. Every call takes the same layout. Throws
  // Failure (input).
  void Read(const CaptureLayout& layout, std::vector<float>* interleaved);

  // Bytes after the last whole frame, known at the end of the file.
  std::size_t trailing_bytes() const { return trailing_bytes_; }

 private:
  struct Closer {
    void operator()(std::FILE* file) const { std::fclose(file); }
  };

  // Reads up to `bytes.size()` bytes; fewer only at the end of the file.
  std::size_t ReadBytes(std::span<std::byte> bytes);

  std::filesystem::path path_;
  std::unique_ptr<std::FILE, Closer> file_;
  std::optional<int64_t> size_bytes_;
  std::vector<std::byte> head_bytes_;
  std::size_t head_used_ = 0;
  std::vector<float> head_;
  std::size_t trailing_bytes_ = 0;
};

}  // namespace kelda::tools

#endif  // KELDA_TOOLS_CAPTURE_CAPTURE_READER_H_
