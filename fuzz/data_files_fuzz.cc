// The readers of binary files: tuning files of every kind, and raw captures. A tuning file is
// read as it is, and with the header put right, so that mutations get behind the checksum.
#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <span>
#include <vector>

#include "tests/upmix-lib/temp_directory.h"
#include "tools/capture_analysis.h"
#include "tools/capture_reader.h"
#include "tools/inspected_file.h"
#include "upmix-lib/data_file.h"

using namespace kelda;
using namespace kelda::upmix_lib;

namespace {

void ReadCapture(const std::string& path) {
  tools::CaptureReader capture(path);
  const tools::CaptureLayout layout = tools::GuessLayout("capture.pcm", capture.head()).layout;
  tools::CaptureAnalysis analysis(layout.channels);
  std::vector<float> frames;
  do {
    capture.Read(layout, &frames);
    analysis.Add(&frames);
  } while (!frames.empty());
  const auto expected = capture.ExpectedFrames(layout);
  if (!expected || analysis.Finish().frames != *expected) __builtin_trap();
}

bool SealByMagic(std::span<std::byte> file) {
  for (const DataKind& kind : {kHrirKind, kEqualizerKind, kMusicKind, kCinemaKind, kLevelKind}) {
    if (file.size() >= sizeof(DataHeader) && file.size() <= kind.max_bytes &&
        std::memcmp(file.data(), kind.magic, sizeof(kind.magic)) == 0) {
      Seal(file, kind);
      return true;
    }
  }
  return false;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, std::size_t size) {
  static const TempDirectory directory;
  std::vector<std::byte> file(size);
  std::copy_n(std::as_bytes(std::span(data, size)).begin(), size, file.begin());
  directory.Write("file", file);
  ReadCapture(directory.File("file"));
  tools::InspectFile(directory.File("file"));
  if (SealByMagic(file)) {
    directory.Write("file", file);
    tools::InspectFile(directory.File("file"));
  }
  return 0;
}
