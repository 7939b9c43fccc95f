#include "tests/effect/test_support.h"

#include <cutils/properties.h>

#include <cstdlib>
#include <iostream>
#include <random>
#include <utility>

#include "tests/effect/fake_upmix_lib.h"

namespace kelda::test {
namespace {

Lines g_log;

}  // namespace

void CaptureLog(const __android_log_message* message) {
  g_log.push_back(std::string(1, "??VDIWEFS"[message->priority]) + "/" + message->tag + ": " +
                  message->message);
}

Lines TakeLog() { return std::exchange(g_log, {}); }

DataDirTest::DataDirTest() {
  setenv("KELDA_DATA_DIR", dir().c_str(), 1);
  __android_log_set_minimum_priority(ANDROID_LOG_VERBOSE);
  __android_log_set_logger(CaptureLog);
  TakeLog();
  fake::Reset();
  property_set("vendor.kelda.effect", "1");
  property_set("vendor.kelda.pcmdump", "");
  property_set("ro.debuggable", "");
}

DataDirTest::~DataDirTest() {
  __android_log_set_logger(__android_log_stderr_logger);
  unsetenv("KELDA_DATA_DIR");
}

Lines DataDirTest::Files() const {
  const auto names = folder_.Names();
  return {names.begin(), names.end()};
}

void DataDirTest::WriteTuning(const std::string& hrtf) const {
  const std::pair<std::string, uint32_t> binaries[] = {
      {"upmix.music.hps.bin", fake::kMusicParamBytes},
      {"upmix.music.hpp.bin", fake::kMusicParamBytes},
      {"upmix.cinema.hps.bin", fake::kCinemaParamBytes},
      {"upmix.cinema.hpp.bin", fake::kCinemaParamBytes},
      {"upl.music.bin", fake::kLevelParamBytes},
      {"upl.cinema.bin", fake::kLevelParamBytes},
  };
  for (const auto& [name, bytes] : binaries) {
    std::string content = name;
    content.resize(bytes, '\0');
    Write(name, content);
  }
  for (const char* const device : {"wired", "bluetooth"}) {
    Write(std::string(device) + ".hki.config", hrtf + "\n");
    Write(std::string(device) + ".ba.config", std::string(device) + ".ba\n");
  }
}

Lines DataDirTest::TakeCalls() const {
  Lines calls = fake::TakeCalls();
  for (std::string& call : calls) {
    const std::size_t at = call.find(dir());
    if (at != std::string::npos) {
      call.replace(at, dir().size(), "DIR");
    }
  }
  return calls;
}

std::vector<float> Ramp(unsigned frames, unsigned channels, unsigned first_frame) {
  std::vector<float> block(std::size_t{frames} * channels);
  for (std::size_t i = 0; i < block.size(); ++i) {
    const std::size_t frame = first_frame + i / channels + 1;
    const auto value = static_cast<float>(frame);
    block[i] = i % channels % 2 == 0 ? value : -value;
  }
  return block;
}

uint32_t NewSeed() {
  const uint32_t seed = std::random_device{}();
  std::cout << "seed " << seed << '\n';
  return seed;
}

}  // namespace kelda::test
