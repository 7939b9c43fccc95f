// Measured ears, and the design of HRIRs from them. libmysofa is built without coverage, so only
// our own code, which gets what libmysofa accepts, guides the fuzzer.
#include <cstddef>
#include <cstdint>
#include <span>
#include <string>

#include "tests/laboratory/temporary_folder.h"
#include "tools/core/failure.h"
#include "tools/ears/sofa_hrirs.h"
#include "upmix-lib/files/crc32.h"

using namespace kelda;
using namespace kelda::tools;

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, std::size_t size) {
  static const TemporaryFolder directory;
  const std::string path = directory / "ears.sofa";
  directory.Write("ears.sofa", std::as_bytes(std::span(data, size)));
  HrirOptions options;
  options.taps = kMinHrirTaps;
  options.room = {upmix_lib::kRoomOffDb, upmix_lib::kRoomOffDb, 0.1f, 3.0f, 5000.0f, {}};
  options.colour_removed = 0.5;
  try {
    const MeasuredEars ears = ReadMeasuredEars(path);
    // The design takes a hundred times as long as the reader: an eighth of the ears are enough.
    if (upmix_lib::Crc32(std::as_bytes(std::span(data, size))) % 8 != 0) {
      return 0;
    }
    options.symmetric = ears.taps % 2 == 0;
    // A file within the reader's limits must give a set that the virtualizer accepts.
    directory.Write("ears.hki", EncodeHrirSet(DesignHrirs(ears, path, options, [](double) {}).set));
    upmix_lib::HrirSet read;
    if (LoadHrirSet(directory / "ears.hki", read) != upmix_lib::kOk) {
      __builtin_trap();
    }
  } catch (const Failure&) {
    return 0;  // it may be refused
  }
  return 0;
}
