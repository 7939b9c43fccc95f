// The music upmix's contract with its host, and what bad input does to it.
#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <limits>
#include <numbers>

#include "tests/upmix-lib/music_instance.h"

namespace kelda::upmix_lib {
namespace {

TEST(MusicContract, ParameterDataOfEveryFieldAreChecked) {
  Music music;
  const auto status_of = [&](const MusicParameters& parameters) {
    return A0559(&parameters, music.work());
  };
  for (const ParameterField& field : kMusicFields) {
    for (float bad :
         {field.min - 0.01f, field.max + 0.01f, std::numeric_limits<float>::quiet_NaN()}) {
      MusicParameters parameters = MusicDefaults();
      std::memcpy(reinterpret_cast<char*>(&parameters) + field.offset_bytes, &bad, sizeof(bad));
      SealMusic(parameters);
      EXPECT_EQ(status_of(parameters), std::isnan(bad) ? kNotFinite : kOutOfRange) << field.name;
    }
  }
  MusicParameters damaged = MusicDefaults();
  damaged.ambience_amount = 0.5f;
  EXPECT_EQ(status_of(damaged), kDataBadCrc);
  damaged = MusicDefaults();
  damaged.header.magic[0] = 'X';
  EXPECT_EQ(status_of(damaged), kDataBadMagic);
  damaged = MusicDefaults();
  damaged.header.byte_length += 4;
  EXPECT_EQ(status_of(damaged), kDataBadLength);
}

// Of 16 bytes that declare another length, nothing behind them may be read.
TEST(MusicContract, ShortParameterDataAreRefusedByTheirHeader) {
  Music music;
  const MusicParameters whole = MusicDefaults();
  std::vector<char> header(sizeof(DataHeader));
  std::memcpy(header.data(), &whole, header.size());
  reinterpret_cast<DataHeader*>(header.data())->byte_length = sizeof(DataHeader);
  EXPECT_EQ(A0559(header.data(), music.work()), kDataBadLength);
}

TEST(MusicContract, MisuseIsRefused) {
  Music music;
  const MusicParameters parameters = MusicDefaults();
  uint32_t bytes = 0;
  EXPECT_EQ(A0511(nullptr, &bytes), kNullPointer);
  EXPECT_EQ(A0511(&bytes, nullptr), kNullPointer);
  EXPECT_EQ(A0559(nullptr, music.work()), kNullPointer);
  EXPECT_EQ(A0559(&parameters, nullptr), kNullPointer);

  float block[kPlanes + 2][kHopFrames] = {};
  const float* in[2] = {block[0], block[1]};
  float* out[kPlanes];
  for (size_t plane = 0; plane < kPlanes; ++plane) {
    out[plane] = block[plane + 2];
  }
  EXPECT_EQ(A0239(in, out, nullptr), kNullPointer);
  EXPECT_EQ(A0239(nullptr, out, music.work()), kNullPointer);
  EXPECT_EQ(A0239(in, nullptr, music.work()), kNullPointer);
  out[6] = nullptr;
  EXPECT_EQ(A0239(in, out, music.work()), kNullPointer);
  out[6] = block[8];
  in[1] = nullptr;
  EXPECT_EQ(A0239(in, out, music.work()), kNullPointer);
  in[1] = block[1];
  EXPECT_EQ(A0239(in, out, music.work()), kOk);

  ASSERT_EQ(A0511(&bytes, &bytes), kOk);
  uint32_t work_bytes = 0;
  A0511(&work_bytes, &bytes);
  std::vector<char> fresh(work_bytes);
  EXPECT_EQ(A0239(in, out, fresh.data()), kNotAnInstance);
}

// A refused load leaves the instance as it was; one that succeeds begins anew.
TEST(MusicContract, LoadsAreWholeOrNothing) {
  const int frames = 64 * 200;
  const Stereo in = MakePannedMix(PinkNoise(1, 2 * frames), 10.0f, -6.0f, 2).mix;
  const auto half = [&](int first) {
    return Stereo{{in.left.begin() + first, in.left.begin() + first + frames},
                  {in.right.begin() + first, in.right.begin() + first + frames}};
  };
  Music undisturbed, disturbed, renewed;
  undisturbed.Upmix(half(0));
  disturbed.Upmix(half(0));
  renewed.Upmix(half(0));
  MusicParameters damaged = MusicDefaults();
  damaged.centre_amount = 0.25f;
  EXPECT_EQ(A0559(&damaged, disturbed.work()), kDataBadCrc);
  const MusicParameters good = MusicDefaults();
  EXPECT_EQ(A0559(&good, renewed.work()), kOk);
  EXPECT_EQ(disturbed.Upmix(half(frames)), undisturbed.Upmix(half(frames)));
  EXPECT_EQ(renewed.Upmix(half(frames)), Music().Upmix(half(frames)));
}

// Bad samples are silence, no more: nothing of them is in the output or in the state.
TEST(MusicRobustness, BadSamplesCountAsSilence) {
  const int frames = 64 * 400;
  Stereo clean = MakePannedMix(PinkNoise(3, frames), 10.0f, -6.0f, 4).mix;
  Stereo bad = clean;
  const float worst[] = {
      std::numeric_limits<float>::quiet_NaN(), std::numeric_limits<float>::infinity(),
      -std::numeric_limits<float>::infinity(), std::numeric_limits<float>::denorm_min(),
      std::numeric_limits<float>::max()};
  for (size_t n = 5000; n < 5300; ++n) {
    bad.left[n] = worst[n % 5];
    bad.right[n + 100] = worst[(n + 2) % 5];
    clean.left[n] = clean.right[n + 100] = 0.0f;
  }
  EXPECT_EQ(Music().Upmix(bad), Music().Upmix(clean));
}

TEST(MusicRobustness, SilenceComesOutExactlySilentAfterTheTail) {
  const int frames = 64 * 400, loud = 64 * 100;
  constexpr int kTail = kTransformFrames + kDecorrelatorFrames + 96;
  Stereo in = MakePannedMix(PinkNoise(5, frames), 10.0f, -6.0f, 6).mix;
  std::fill(in.left.begin() + loud, in.left.end(), 0.0f);
  std::fill(in.right.begin() + loud, in.right.end(), 0.0f);
  for (const Signal& plane : Music().Upmix(in)) {
    EXPECT_GT(Power(plane, 0), 0.0);
    for (size_t n = loud + kTail; n < plane.size(); ++n) {
      ASSERT_EQ(plane[n], 0.0f) << "frame " << n;
    }
  }
}

// Words of the work memory that are denormal when read as floats; small integers are.
int CountDenormals(Music& music) {
  uint32_t work_bytes = 0, param_bytes = 0;
  A0511(&work_bytes, &param_bytes);
  int count = 0;
  const uintptr_t odd = reinterpret_cast<uintptr_t>(music.work()) % sizeof(float);
  for (size_t at = (sizeof(float) - odd) % sizeof(float); at + 4 <= work_bytes; at += 4) {
    float word;
    std::memcpy(&word, static_cast<char*>(music.work()) + at, sizeof(word));
    count += std::fpclassify(word) == FP_SUBNORMAL;
  }
  return count;
}

// Denormals make every operation slow: a decay has to end before it gets there.
TEST(MusicRobustness, LongSilenceLeavesNoDenormals) {
  const Signal loud = PinkNoise(5, 64 * 100);
  const Signal silence(48000 * 10);
  Music music;
  music.Upmix({Signal(64), Signal(64)});
  const int denormals_at_first = CountDenormals(music);
  music.Upmix({loud, loud});
  for (int i = 0; i < 10; ++i) {
    music.Upmix({silence, silence});
    EXPECT_EQ(CountDenormals(music), denormals_at_first) << i;
  }
}

// Where the hops lie must not be heard: against a run whose borders lie elsewhere, and by
// what a pure tone leaves beside itself.
TEST(MusicRobustness, HopBordersAreInaudible) {
  const int frames = 48000 * 4, shift = 31;
  const Stereo in = MakePannedMix(Syllables(7, PinkNoise(8, frames)), 20.0f, -10.0f, 9).mix;
  Stereo shifted = {Signal(shift), Signal(shift)};
  shifted.left.insert(shifted.left.end(), in.left.begin(), in.left.end() - shift);
  shifted.right.insert(shifted.right.end(), in.right.begin(), in.right.end() - shift);
  const Planes here = Music().Upmix(in), elsewhere = Music().Upmix(shifted);
  double difference = 0.0, power = 0.0;
  for (size_t plane = 0; plane < kPlanes; ++plane) {
    for (size_t n = 48000; n < here[plane].size() - shift; ++n) {
      difference += std::pow(here[plane][n] - elsewhere[plane][n + shift], 2.0);
      power += std::pow(here[plane][n], 2.0);
    }
  }
  EXPECT_LT(Db(difference / power), -25.0);

  Stereo tone = {Signal(static_cast<size_t>(frames)), Signal(static_cast<size_t>(frames))};
  for (size_t n = 0; n < tone.left.size(); ++n) {
    const double phase = 2.0 * std::numbers::pi * 997.0 / 48000.0 * static_cast<double>(n);
    tone.left[n] = static_cast<float>(0.5 * std::sin(phase));
    tone.right[n] = static_cast<float>(0.2 * std::sin(phase));
  }
  const Planes planes = Music().Upmix(tone);
  for (size_t plane : {kFL, kFC}) {
    const double total = Power(planes[plane], 48000);
    const double at_tone = PowerCausedBy(tone.left, planes[plane], 96, 900.0f, 1100.0f);
    EXPECT_LT(Db(std::fabs(total - at_tone) / total), -40.0) << "plane " << plane;
  }
}

}  // namespace
}  // namespace kelda::upmix_lib
