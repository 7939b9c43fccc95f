// The readers of binary files: tuning files of every kind, and raw captures. A tuning file is
// read as it is, and again with its header corrected, so that mutations get past the checksum.
#include <algorithm>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <span>
#include <string>
#include <vector>

#include "tests/laboratory/temporary_folder.h"
#include "tools/capture/capture_analysis.h"
#include "tools/capture/capture_reader.h"
#include "tools/inspect/inspected_file.h"
#include "upmix-lib/binaural/hrir_format.h"
#include "upmix-lib/equalizer/equalizer_format.h"
#include "upmix-lib/files/data_file.h"
#include "upmix-lib/level/level_parameters.h"
#include "upmix-lib/upmix/cinema_parameters.h"
#include "upmix-lib/upmix/music_parameters.h"

using namespace kelda;
using namespace kelda::upmix_lib;

namespace {

// In the layout that its name says, or else its contents suggest.
void ReadCapture(const std::string& path, const std::string& name) {
  tools::CaptureReader capture(path);
  const tools::CaptureLayout layout = tools::GuessLayout(name, capture.head()).layout;
  tools::CaptureAnalysis analysis(layout.channels);
  std::vector<float> frames;
  do {
    capture.Read(layout, &frames);
    analysis.Add(&frames);
    for (const float sample : frames) {
      if (!std::isfinite(sample)) {
        __builtin_trap();
      }
    }
  } while (!frames.empty());
  const auto expected = capture.ExpectedFrames(layout);
  if (!expected || analysis.Finish().frames != *expected) {
    __builtin_trap();
  }
}

// Every file is either shown or refused with a reason.
void Inspect(const std::string& path) {
  const tools::InspectedFile file = tools::InspectFile(path);
  if (file.problem.empty() == file.text.empty()) {
    __builtin_trap();
  }
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
  static const TemporaryFolder directory;
  std::vector<std::byte> file(size);
  std::copy_n(std::as_bytes(std::span(data, size)).begin(), size, file.begin());
  directory.Write("file", file);
  ReadCapture(directory / "file", "capture.pcm");
  ReadCapture(directory / "file", "rawfile_a_hpeq.raw");
  Inspect(directory / "file");
  if (SealByMagic(file)) {
    directory.Write("file", file);
    Inspect(directory / "file");
  }
  return 0;
}
