// The cinema upmix's contract with its host, and what bad input does to it.
#include <gtest/gtest.h>

#include <cmath>
#include <limits>

#include "tests/upmix-lib/cinema_instance.h"

namespace kelda::upmix_lib {
namespace {

constexpr int kFrames = 1024 * 60;

Stereo Film(uint32_t seed) {
  return MakePannedMix(Syllables(seed, PinkNoise(seed + 1, kFrames)), 10.0f, -6.0f, seed + 2).mix;
}

TEST(CinemaContract, CreateNeedsSoundParametersAndFiles) {
  uint32_t bytes = 0;
  EXPECT_EQ(A0333(nullptr), kNullPointer);
  ASSERT_EQ(A0333(&bytes), kOk);
  EXPECT_EQ(bytes, sizeof(CinemaParameters));

  const TempDirectory files;
  const char* directory = files.path().c_str();
  files.Write("good.hki", EncodeHrirSet(Probe({kFC})));
  files.Write("good.config", "good.hki");
  files.Write("outside.config", "../good.hki");
  files.Write("missing.config", "absent.hki");
  files.Write("broken.hki", "no HRIRs at all, only text");
  files.Write("broken.config", "broken.hki");

  const CinemaParameters good = CinemaDefaults();
  void* instance = A0218(&good, directory, "good.config");
  EXPECT_NE(instance, nullptr);
  EXPECT_EQ(A0213(&instance), kOk);
  for (const char* config :
       {"absent.config", "outside.config", "missing.config", "broken.config"}) {
    EXPECT_EQ(A0218(&good, directory, config), nullptr) << config;
  }
  EXPECT_EQ(A0218(nullptr, directory, "good.config"), nullptr);
  EXPECT_EQ(A0218(&good, nullptr, "good.config"), nullptr);
  EXPECT_EQ(A0218(&good, directory, nullptr), nullptr);

  CinemaParameters damaged = good;
  damaged.width = 0.9f;  // The checksum no longer fits.
  EXPECT_EQ(A0218(&damaged, directory, "good.config"), nullptr);
  for (float bad : {1.5f, std::numeric_limits<float>::quiet_NaN()}) {
    damaged.width = bad;
    SealCinema(damaged);
    EXPECT_EQ(A0218(&damaged, directory, "good.config"), nullptr) << bad;
  }
}

TEST(CinemaContract, MisuseIsRefused) {
  CinemaInstance cinema(CinemaDefaults());
  float planes[4][kBlockFrames] = {};
  const float* in[2] = {planes[0], planes[1]};
  float* out[2] = {planes[2], planes[3]};
  EXPECT_EQ(A0238(in, out, cinema.get()), kOk);
  EXPECT_EQ(A0238(nullptr, out, cinema.get()), kNullPointer);
  EXPECT_EQ(A0238(in, nullptr, cinema.get()), kNullPointer);
  EXPECT_EQ(A0238(in, out, nullptr), kBadHandle);
  EXPECT_EQ(A0238(in, out, planes), kBadHandle);  // No instance of this component.
  EXPECT_EQ(A0593(nullptr), kBadHandle);
  EXPECT_EQ(A0213(nullptr), kNullPointer);
  in[1] = nullptr;
  EXPECT_EQ(A0238(in, out, cinema.get()), kNullPointer);
  in[1] = planes[1];

  const CinemaParameters parameters = CinemaDefaults();
  void* destroyed = A0218(&parameters, cinema.files().path().c_str(), "wired.hki.config");
  void* stale = destroyed;
  EXPECT_EQ(A0213(&destroyed), kOk);
  EXPECT_EQ(destroyed, nullptr);
  EXPECT_EQ(A0213(&destroyed), kBadHandle);
  EXPECT_EQ(A0238(in, out, stale), kBadHandle);
  EXPECT_EQ(A0593(stale), kBadHandle);
  EXPECT_EQ(A0213(&stale), kBadHandle);
}

TEST(CinemaContract, FlushForgetsTheSignalAndKeepsTheTuning) {
  const Stereo in = Film(20);
  CinemaInstance flushed(CinemaDefaults()), fresh(CinemaDefaults());
  flushed.Upmix(Film(30));
  EXPECT_EQ(A0593(flushed.get()), kOk);
  const Stereo out = flushed.Upmix(in), expected = fresh.Upmix(in);
  EXPECT_EQ(out.left, expected.left);
  EXPECT_EQ(out.right, expected.right);
}

TEST(CinemaRobustness, BadSamplesCountAsSilence) {
  Stereo clean = Film(40);
  Stereo bad = clean;
  const float worst[] = {
      std::numeric_limits<float>::quiet_NaN(), std::numeric_limits<float>::infinity(),
      std::numeric_limits<float>::denorm_min(), -std::numeric_limits<float>::max()};
  for (size_t n = 5000; n < 5300; ++n) {
    bad.left[n] = worst[n % 4];
    bad.right[n + 100] = worst[(n + 1) % 4];
    clean.left[n] = clean.right[n + 100] = 0.0f;
  }
  EXPECT_EQ(CinemaInstance(CinemaDefaults()).Upmix(bad).left,
            CinemaInstance(CinemaDefaults()).Upmix(clean).left);
}

TEST(CinemaRobustness, SilenceComesOutExactlySilentAfterTheTail) {
  Stereo in = Film(50);
  constexpr size_t kLoud = 1024 * 10;
  constexpr size_t kTail = 48000;  // Room of 0.25 s, bass filters at 100 Hz.
  std::fill(in.left.begin() + kLoud, in.left.end(), 0.0f);
  std::fill(in.right.begin() + kLoud, in.right.end(), 0.0f);
  const Stereo out = CinemaInstance(CinemaDefaults()).Upmix(in);
  EXPECT_GT(Power(out.left, 0), 0.01);
  for (size_t n = kLoud + kTail; n < out.left.size(); ++n) {
    ASSERT_EQ(out.left[n], 0.0f) << "frame " << n;
    ASSERT_EQ(out.right[n], 0.0f) << "frame " << n;
  }
}

// Against a run whose block and hop borders lie elsewhere.
TEST(CinemaRobustness, BlockBordersAreInaudible) {
  for (size_t shift : {size_t{64}, size_t{555}}) {
    const Stereo in = Film(60);
    Stereo shifted = {Signal(shift), Signal(shift)};
    shifted.left.insert(shifted.left.end(), in.left.begin(), in.left.end());
    shifted.right.insert(shifted.right.end(), in.right.begin(), in.right.end());
    const Stereo here = CinemaInstance(CinemaDefaults()).Upmix(in);
    const Stereo elsewhere = CinemaInstance(CinemaDefaults()).Upmix(shifted);
    double difference = 0.0;
    for (size_t n = 1024 * 20; n < 1024 * 59; ++n) {
      difference += std::pow(here.left[n] - elsewhere.left[n + shift], 2.0) / (1024 * 39);
    }
    // The hop grid itself is the same again after 64 frames.
    EXPECT_LT(Db(difference / Power(here.left, 1024 * 20)), shift == 64 ? -110.0 : -25.0) << shift;
  }
}

}  // namespace
}  // namespace kelda::upmix_lib
