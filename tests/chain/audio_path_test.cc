// The audio path from the first block on, through everything that the control path can do
// to it. Its own assertions are few: in the build with RealtimeSanitizer the program ends
// at the first call that may block, in the one with ThreadSanitizer at the first race.
#include <android/log.h>
#include <cutils/properties.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <cmath>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <limits>
#include <random>
#include <string_view>
#include <thread>

#include "platform/audio_format.h"
#include "platform/may_block.h"
#include "processors/lum_upmix_lib.h"
#include "tests/laboratory/effect_client.h"
#include "tests/laboratory/signals.h"
#include "tests/laboratory/temporary_folder.h"
#include "upmix-lib/base/audio_format.h"

namespace kelda {
namespace {

// What the effect and the signal library each state of the audio that passes between them.
static_assert(kSampleRateHz == upmix_lib::kSampleRateHz);
static_assert(kPeriodFrames == upmix_lib::kBlockFrames);
static_assert(LumUpmixLib::kChunkFrames == upmix_lib::kHopFrames);
static_assert(kStereoPlanes == upmix_lib::kEars && kSurroundPlanes == upmix_lib::kPlanes);
static_assert(kMusicDelayFrames == upmix_lib::kUpmixLatencyFrames &&
              kCinemaDelayFrames == upmix_lib::kUpmixLatencyFrames &&
              kLevelControlDelayFrames == upmix_lib::kLevelLatencyFrames);

#ifdef KELDA_REALTIME_SANITIZER
constexpr int kBlocks = 10000;
#else
constexpr int kBlocks = 400;
#endif

std::atomic<int> g_errors{0};

// The default tuning in a directory that may be written to, and a log that counts errors.
// Captures are made, and what goes beyond their limit is no error here.
class AudioPathTest : public testing::Test {
 protected:
  AudioPathTest() {
    std::filesystem::copy(DEFAULT_TUNING, directory_.path());
    setenv("KELDA_DATA_DIR", directory_.path().c_str(), 1);
    property_set("vendor.kelda.effect", "1");
    property_set("ro.debuggable", "1");
    property_set("vendor.kelda.pcmdump", "2");
    g_errors = 0;
    __android_log_set_logger([](const __android_log_message* message) {
      const bool capture = std::string_view(message->tag) == "KelApsPcmd";
      if (message->priority >= ANDROID_LOG_ERROR && !capture) {
        ++g_errors;
        __android_log_stderr_logger(message);
      }
    });
  }
  ~AudioPathTest() override {
    EXPECT_EQ(g_errors, 0);
    __android_log_set_logger(nullptr);
    property_set("ro.debuggable", "0");
  }

 private:
  TemporaryFolder directory_;
};

struct Heard {
  std::size_t hash = 0;
  float peak = 0;
  bool operator==(const Heard&) const = default;
};

// One thing that the framework does between two blocks.
void TurnAKnob(test::Effect& effect, std::mt19937* random) {
  const auto knob = (*random)() % 8;
  const auto value = static_cast<uint32_t>((*random)());
  constexpr uint32_t kDevices[] = {AUDIO_DEVICE_OUT_WIRED_HEADPHONE, AUDIO_DEVICE_OUT_WIRED_HEADSET,
                                   AUDIO_DEVICE_OUT_BLUETOOTH_A2DP, AUDIO_DEVICE_OUT_SPEAKER};
  switch (knob) {
    case 0:
    case 1:
      effect.SetParam(test::kMode, value % 4);
      break;
    case 2:
      effect.SetDevice(kDevices[value % 4]);
      break;
    case 3:
      effect.SetParam(value % 2 == 0 ? test::kWiredHrtf : test::kBluetoothHrtf, value / 2 % 3);
      break;
    case 4:
      effect.SetText(test::kAppPackage, value % 2 == 0 ? "com.example.video&1" : "com.example&0");
      break;
    case 5:
      effect.Reset();
      break;
    case 6:
      effect.Disable();
      effect.Enable();
      break;
    default:
      effect.Init();
      effect.SetDevice(kDevices[value % 3]);
      effect.SetParam(test::kMode, 1 + value / 3 % 2);
      effect.Enable();
      break;
  }
}

// What an instance makes of `blocks` host blocks of many sizes, in place and not, of sound,
// of silence and of what is no audio, with a knob turned every few blocks: on a thread of
// its own, as binder's are, and never beside a block.
Heard Play(uint32_t seed, int blocks) {
  constexpr std::size_t kSizes[] = {1024, 480, 960, 1920, 1024, 192, 1, 4096, 1023, 240};
  const float kBad[] = {std::numeric_limits<float>::quiet_NaN(),
                        std::numeric_limits<float>::infinity(), 1e-40f, -3e38f};
  std::mt19937 random(seed);
  std::vector<float> in(2 * 4096), out(2 * 4096);
  const std::vector<float> noise = upmix_lib::Noise(in.size(), seed);
  test::Effect effect;
  EXPECT_EQ(effect.Process(in.data(), out.data(), 1024), -ENODATA);
  effect.SetDevice(AUDIO_DEVICE_OUT_WIRED_HEADPHONE);
  effect.SetParam(test::kMode, 1 + seed % 2);
  effect.Enable();
  Heard heard;
  std::size_t size = 0;
  for (int block = 0; block < blocks; ++block) {
    if (block % 16 == 15) std::thread([&] { TurnAKnob(effect, &random); }).join();
    if (block % 8 == 0) size = kSizes[random() % std::size(kSizes)];
    const uint32_t sound = block / 64 % 4;
    std::copy(noise.begin(), noise.end(), in.begin());
    if (sound == 1) std::fill(in.begin(), in.end(), 0.0f);
    if (sound == 2) in[random() % (2 * size)] = kBad[random() % std::size(kBad)];
    float* const to = random() % 2 == 0 ? in.data() : out.data();
    EXPECT_EQ(effect.Process(in.data(), to, size), 0);
    const std::string_view bytes(reinterpret_cast<const char*>(to), 2 * size * sizeof(float));
    heard.hash = 31 * heard.hash + std::hash<std::string_view>()(bytes);
    heard.peak = std::max(heard.peak, std::fabs(*std::max_element(to, to + 2 * size)));
  }
  return heard;
}

#ifdef KELDA_REALTIME_SANITIZER
void Allocate() KELDA_NONBLOCKING {
  void* volatile memory = std::malloc(1);
  std::free(memory);
}
TEST(RealtimeSanitizerTest, SeesAnAllocation) { EXPECT_DEATH(Allocate(), "malloc"); }
#endif

TEST_F(AudioPathTest, BlocksFromTheFirstToTheTenThousandth) {
  EXPECT_GT(Play(1, kBlocks).peak, 0.1f);
}

TEST_F(AudioPathTest, InstancesPlayBesideOthersWhatTheyPlayAlone) {
  std::array<Heard, 4> together;
  {
    std::vector<std::jthread> threads;
    for (uint32_t i = 0; i < together.size(); ++i) {
      threads.emplace_back([&together, i] { together[i] = Play(i, 200); });
    }
  }
  for (uint32_t i = 0; i < together.size(); ++i) EXPECT_EQ(Play(i, 200), together[i]) << i;
}

}  // namespace
}  // namespace kelda
