// What all components have in common: the contract with their hosts, and what bad input,
// silence, a flush and the borders of blocks do to their sound.
#include "tests/laboratory/components.h"

#include <gtest/gtest.h>

#include <cfenv>
#include <cmath>
#include <functional>
#include <limits>

namespace kelda::upmix_lib {
namespace {

using Limits = std::numeric_limits<float>;

// A part of its own on each input, and a part that all inputs share.
Planes Sound(const Component& component, std::size_t blocks, uint32_t seed) {
  const Signal common = PinkNoise(seed, blocks * kBlock);
  Planes sound;
  for (std::size_t p = 0; p < component.inputs(); ++p) {
    sound.push_back(Noise(blocks * kBlock, seed + 1 + static_cast<uint32_t>(p), 0.2f));
    AddTo(sound.back(), common, 0.1f);
  }
  return sound;
}

class Components : public testing::TestWithParam<Kind> {
 protected:
  static std::unique_ptr<Component> Make() { return GetParam().make(); }
};
INSTANTIATE_TEST_SUITE_P(All, Components, testing::ValuesIn(kKinds),
                         [](const auto& kind) { return std::string(kind.param.name); });

TEST_P(Components, TakeBadSamplesForSilence) {
  const auto one = Make(), other = Make();
  Planes bad = Sound(*one, 12, 1), zeroed = bad;
  const float worst[] = {Limits::quiet_NaN(), Limits::infinity(),   -Limits::infinity(),
                         Limits::max(),       Limits::denorm_min(), -2 * 65536.0f};
  for (std::size_t n = 5000; n < 5300; ++n) {
    for (std::size_t p = 0; p < bad.size(); ++p) {
      bad[p][n + 70 * p] = worst[(n + p) % std::size(worst)];
      zeroed[p][n + 70 * p] = 0.0f;
    }
  }
  EXPECT_EQ(one->Process(bad), other->Process(zeroed));
}

TEST_P(Components, AreExactlySilentAfterTheTail) {
  const auto component = Make();
  constexpr std::size_t kLoud = 10 * kBlock;
  const std::size_t silent = kLoud + GetParam().tail_frames;
  Planes in = Sound(*component, silent / kBlock + 3, 2);
  for (Signal& plane : in) {
    std::fill(plane.begin() + kLoud, plane.end(), 0.0f);
  }
  for (const Signal& plane : component->Process(in)) {
    EXPECT_GT(Power(std::span(plane).first(kLoud)), 1e-6);
    for (std::size_t n = 0; n < plane.size(); ++n) {
      ASSERT_TRUE(plane[n] == 0.0f || (n < silent && std::isnormal(plane[n]))) << "frame " << n;
    }
  }
}

// What comes to rest in a long silence, and skips its work then, goes on as if it had not: as it
// does where clicks of the smallest sample that counts keep it from resting, which leave nothing
// behind.
TEST_P(Components, SoundAfterALongSilenceIsAsWithoutRest) {
  constexpr std::size_t kLoud = 30 * kBlock, kSilent = 2300 * kBlock;  // 49 s
  const std::size_t last_click = kLoud + kSilent - GetParam().tail_frames - kBlock;
  const auto one = Make(), other = Make();
  Planes in = Sound(*one, (kLoud + kSilent) / kBlock + 20, 12);
  for (Signal& plane : in) {
    std::fill_n(plane.begin() + kLoud, kSilent, 0.0f);
  }
  Planes clicks = in;
  for (std::size_t n = kLoud + 10 * kBlock; n <= last_click; n += kBlock) {
    clicks[0][n] = 2e-10f;
  }
  const Planes rested = one->Process(in), awake = other->Process(clicks);
  for (std::size_t p = 0; p < rested.size(); ++p) {
    const std::ptrdiff_t from = kLoud + kSilent;
    EXPECT_TRUE(std::equal(rested[p].begin() + from, rested[p].end(), awake[p].begin() + from))
        << p;
    EXPECT_TRUE(std::all_of(rested[p].begin() + from - 1000 * kBlock, rested[p].begin() + from,
                            [](float sample) { return sample == 0.0f; }))
        << p;
  }
}

// Denormals make every operation slow. The processor's flag tells of each that arises, even where
// it is quick with them; the few that arise by chance are allowed.
TEST_P(Components, MeetNoDenormalsInAFadeOrBesideSilence) {
  const auto component = Make();
  Planes in = Sound(*component, 400, 7);
  std::fill(in[0].begin(), in[0].end(), 0.0f);
  for (std::size_t n = 200 * kBlock; n < in[0].size(); ++n) {
    for (Signal& plane : in) {
      plane[n] *= std::pow(0.9991f, static_cast<float>(n - 200 * kBlock));
    }
  }
  ASSERT_LT(in.back().back(), Limits::min());
  int blocks_with_denormals = 0;
  for (std::size_t at = 0; at < in[0].size(); at += kBlock) {
    Planes block;
    for (const Signal& plane : in) {
      block.emplace_back(&plane[at], &plane[at] + kBlock);
    }
    std::feclearexcept(FE_UNDERFLOW);
    component->Process(block);
    blocks_with_denormals += std::fetestexcept(FE_UNDERFLOW) ? 1 : 0;
  }
  EXPECT_LE(blocks_with_denormals, 8);
}

// The level control's gain goes on, so its levelling is off here.
TEST_P(Components, ForgetTheSignalByAFlushAndNothingElse) {
  LevelParameters still = LevelDefaults();
  still.strength = 0;
  const bool level = std::string(GetParam().name) == "Level";
  const auto make = [&]() -> std::unique_ptr<Component> {
    if (level) {
      return std::make_unique<LevelInstance>(still);
    }
    return Make();
  };
  const auto used = make(), fresh = make();
  const Planes in = Sound(*used, 40, 3);
  used->Process(Sound(*used, 20, 4));
  EXPECT_EQ(used->Flush(), kOk);
  EXPECT_EQ(used->Process(in), fresh->Process(in));
}

// Against a run whose borders lie elsewhere. After a block the upmixes decide about their gains
// in the same places again; the level control's gain moves block by block until it has settled.
TEST_P(Components, DoNotShowWhereBlocksBegin) {
  const std::string name = GetParam().name;
  const bool hops = name == "Music" || name == "Cinema";
  for (const std::size_t shift : {hops ? kBlock : 64u, std::size_t{555}}) {
    const auto here = Make(), elsewhere = Make();
    const Planes in = Sound(*here, 160, 5), expected = Delayed(here->Process(in), shift);
    const Planes out = elsewhere->Process(Delayed(in, shift));
    // The room of the virtualizer leaves out what has decayed.
    const double limit_db = name == "Level"         ? -40
                            : hops && shift == 555  ? -15
                            : name == "Virtualizer" ? -90
                                                    : -110;
    for (std::size_t p = 0; p < out.size(); ++p) {
      EXPECT_LT(ErrorDb(out[p], expected[p], 100 * kBlock), limit_db) << shift << ", plane " << p;
    }
  }
}

// ---- The components that are held by handles.

struct HandleEntries : LifeCycle {
  const char* name;
  std::vector<std::byte> data;
  int32_t (*process)(uint32_t, float* const*);
};
const HandleEntries kHandleEntries[] = {
    {kEqualizerEntries, "Equalizer", BuildEqualizerFile(FiveBands(EqualizerForm::kBands)), A0836},
    {kVirtualizerEntries, "Virtualizer", EncodeHrirSet(NoiseHrirs(8, 1)),
     [](uint32_t handle, float* const* planes) {
       static const Signal in(kPlanes * kBlock, 0.5f);
       const int32_t flags[kPlanes] = {};
       return A0560(handle, 0, kBlockFrames, planes, in.data(), flags);
     }}};

class HandleContract : public testing::TestWithParam<HandleEntries> {
 protected:
  HandleContract() { InstallIn(directory_, GetParam().data); }
  int32_t Create(uint32_t* handle, const char* config = "config") const {
    return GetParam().create(handle, directory_.path().c_str(), config);
  }
  TemporaryFolder directory_;
};
INSTANTIATE_TEST_SUITE_P(All, HandleContract, testing::ValuesIn(kHandleEntries),
                         [](const auto& entries) { return std::string(entries.param.name); });

TEST_P(HandleContract, OrderOfCallsIsChecked) {
  const HandleEntries& e = GetParam();
  Signal left(kBlock, 0.25f), right = left;
  const Signal untouched = left;
  float* const planes[2] = {left.data(), right.data()};
  float* const no_right[2] = {left.data(), nullptr};
  int32_t error = -1, detail = -1;
  const auto last_error = [&](uint32_t of) {
    EXPECT_EQ(e.last_error(of, &error, &detail), kOk);
    return std::pair(error, detail);
  };
  uint32_t handle = 0;
  EXPECT_EQ(Create(nullptr), kNullPointer);
  EXPECT_EQ(e.create(&handle, nullptr, "config"), kNullPointer);
  EXPECT_EQ(Create(&handle, nullptr), kNullPointer);
  EXPECT_EQ(Create(&handle, "none"), kConfigMissing);
  EXPECT_EQ(handle, 0u);
  ASSERT_EQ(Create(&handle), kOk);
  ASSERT_NE(handle, 0u);
  // The other component's first instance, too.
  const bool equalizer = std::string_view(e.name) == kHandleEntries[0].name;
  const HandleEntries& other = kHandleEntries[equalizer ? 1 : 0];
  const TemporaryFolder other_directory;
  InstallIn(other_directory, other.data);
  uint32_t foreign = 0;
  ASSERT_EQ(other.create(&foreign, other_directory.path().c_str(), "config"), kOk);
  EXPECT_EQ(e.initialize(foreign), kBadHandle) << "taken for its own";

  EXPECT_EQ(e.process(handle, planes), kNotInitialized);
  EXPECT_EQ(last_error(handle),
            std::pair(static_cast<int32_t>(ErrorClass::kUsage), int32_t{kNotInitialized}));
  EXPECT_EQ(e.flush(handle), kNotInitialized);
  EXPECT_EQ(e.close(handle), kNotInitialized);
  EXPECT_EQ(e.initialize(handle), kOk);
  EXPECT_EQ(last_error(handle), std::pair(0, 0));
  EXPECT_EQ(e.process(handle, nullptr), kNullPointer);
  EXPECT_EQ(e.process(handle, no_right), kNullPointer);
  EXPECT_EQ(e.last_error(handle, nullptr, &detail), kNullPointer);
  EXPECT_EQ(left, untouched) << "a failure wrote";
  EXPECT_EQ(e.process(handle, planes), kOk);
  const Signal fresh = left;
  left = untouched;
  EXPECT_EQ(e.close(handle), kOk);
  EXPECT_EQ(e.process(handle, planes), kClosed);
  EXPECT_EQ(e.close(handle), kClosed);
  EXPECT_EQ(e.initialize(handle), kOk);
  EXPECT_EQ(e.process(handle, planes), kOk);
  EXPECT_EQ(left, fresh) << "an old signal goes on";

  const uint32_t stale = handle;
  EXPECT_EQ(e.destroy(&handle), kOk);
  EXPECT_EQ(handle, 0u);
  EXPECT_EQ(e.destroy(nullptr), kNullPointer);
  ASSERT_EQ(Create(&handle), kOk);  // in the place of the old one
  for (const uint32_t refused : {stale, foreign, 0u, 0xFFFFFFFFu}) {
    uint32_t dead = refused;
    EXPECT_EQ(e.initialize(dead), kBadHandle);
    EXPECT_EQ(e.flush(dead), kBadHandle);
    EXPECT_EQ(e.process(dead, planes), kBadHandle);
    EXPECT_EQ(e.close(dead), kBadHandle);
    EXPECT_EQ(e.last_error(dead, &error, &detail), kBadHandle);
    EXPECT_EQ(e.destroy(&dead), kBadHandle);
    EXPECT_EQ(dead, refused) << "a destroy that failed took the handle";
  }
  EXPECT_EQ(other.destroy(&foreign), kOk);
  EXPECT_EQ(e.destroy(&handle), kOk);
}

TEST_P(HandleContract, HoldsTwoHundredAndFiftySixInstances) {
  std::vector<uint32_t> handles(256);
  for (uint32_t& handle : handles) {
    ASSERT_EQ(Create(&handle), kOk);
  }
  uint32_t one_more = 0;
  EXPECT_EQ(Create(&one_more), kTooManyInstances);
  EXPECT_EQ(one_more, 0u);
  for (uint32_t& handle : handles) {
    EXPECT_EQ(GetParam().destroy(&handle), kOk);
  }
}

// ---- The others.

TEST(VirtualizerContract, ChecksKindsAndFrameCounts) {
  const VirtualizerInstance virtualizer(NoiseHrirs(8, 1));
  const Signal in(kPlanes * kBlock, 0.5f);
  Signal left(kBlock, 0.25f), right = left;
  const Signal untouched = left;
  float* const out[2] = {left.data(), right.data()};
  const int32_t flags[kPlanes] = {};
  const struct {
    int32_t kind, frames;
    Status status;
  } kRows[] = {{-1, 1024, kBadBlockKind}, {3, 1024, kBadBlockKind},  {0, -1, kBadFrameCount},
               {0, 0, kBadFrameCount},    {0, 1023, kBadFrameCount}, {1, 1023, kBadFrameCount},
               {1, 1025, kBadFrameCount}, {2, -1, kBadFrameCount},   {2, 1025, kBadFrameCount}};
  for (const auto& row : kRows) {
    EXPECT_EQ(A0560(virtualizer.handle(), row.kind, row.frames, out, in.data(), flags), row.status)
        << row.kind << ", " << row.frames;
  }
  EXPECT_EQ(A0560(virtualizer.handle(), 0, 1024, out, nullptr, flags), kNullPointer);
  EXPECT_EQ(A0560(virtualizer.handle(), 0, 1024, out, in.data(), nullptr), kNullPointer);
  EXPECT_EQ(left, untouched) << "a failure wrote";
}

TEST(MusicContract, MisuseIsRefusedAndABadLoadChangesNothing) {
  const MusicParameters good = MusicDefaults();
  MusicParameters damaged = good;
  damaged.centre_amount = 0.25f;  // The checksum no longer fits.
  uint32_t bytes = 0;
  MusicInstance music, undisturbed;
  EXPECT_EQ(A0511(nullptr, &bytes), kNullPointer);
  EXPECT_EQ(A0511(&bytes, nullptr), kNullPointer);
  EXPECT_EQ(A0559(nullptr, music.work()), kNullPointer);
  EXPECT_EQ(A0559(&good, nullptr), kNullPointer);

  Signal block(kHopFrames);
  const float* in[2] = {block.data(), block.data()};
  const float* no_in[2] = {block.data(), nullptr};
  Planes planes(kPlanes, block);
  float *out[kPlanes], *no_out[kPlanes];
  for (std::size_t p = 0; p < kPlanes; ++p) {
    no_out[p] = out[p] = planes[p].data();
  }
  no_out[6] = nullptr;
  EXPECT_EQ(A0239(in, out, nullptr), kNullPointer);
  EXPECT_EQ(A0239(nullptr, out, music.work()), kNullPointer);
  EXPECT_EQ(A0239(no_in, out, music.work()), kNullPointer);
  EXPECT_EQ(A0239(in, nullptr, music.work()), kNullPointer);
  EXPECT_EQ(A0239(in, no_out, music.work()), kNullPointer);
  std::vector<char> fresh(music.work_bytes());
  EXPECT_EQ(A0239(in, out, fresh.data()), kNotAnInstance);

  const Planes sound = Sound(music, 20, 6);
  EXPECT_EQ(music.Process(sound), undisturbed.Process(sound));
  EXPECT_EQ(A0559(&damaged, music.work()), kDataBadCrc);
  EXPECT_EQ(music.Process(sound), undisturbed.Process(sound));
}

TEST(LevelContract, OrderOfCallsIsChecked) {
  const LevelParameters good = LevelDefaults();
  LevelParameters bad = good;
  bad.target_lufs = 3;
  uint32_t work_bytes = 0, param_bytes = 0;
  EXPECT_EQ(A0557(nullptr, &param_bytes), kNullPointer);
  EXPECT_EQ(A0557(&work_bytes, nullptr), kNullPointer);
  ASSERT_EQ(A0557(&work_bytes, &param_bytes), kOk);
  std::vector<char> memory(work_bytes);
  void* const work = memory.data();
  const Signal in(2 * kBlock, 0.1f), untouched(2 * kBlock, 7.0f);
  Signal out = untouched;
  const auto process = [&] { return A0217(work, in.data(), out.data()); };

  EXPECT_EQ(A0122(work, &good), kNotAnInstance);
  EXPECT_EQ(process(), kNotAnInstance);
  EXPECT_EQ(A0508(nullptr, kBlockFrames), kNullPointer);
  EXPECT_EQ(A0508(work, kBlockFrames - 1), kBadFrameCount);
  ASSERT_EQ(A0508(work, kBlockFrames), kOk);
  EXPECT_EQ(A0122(nullptr, &good), kNullPointer);
  EXPECT_EQ(A0122(work, nullptr), kNullPointer);
  EXPECT_EQ(A0122(work, &bad), kDataBadCrc);
  EXPECT_EQ(process(), kNotConfigured);
  EXPECT_EQ(out, untouched) << "a failure wrote";
  EXPECT_EQ(A0122(work, &good), kOk);
  EXPECT_EQ(A0217(nullptr, in.data(), out.data()), kNullPointer);
  EXPECT_EQ(A0217(work, nullptr, out.data()), kNullPointer);
  EXPECT_EQ(A0217(work, in.data(), nullptr), kNullPointer);
  EXPECT_EQ(process(), kOk);
  EXPECT_EQ(A0122(work, &bad), kDataBadCrc);
  EXPECT_EQ(process(), kOk) << "a refused change ended the old state";
  ASSERT_EQ(A0508(work, kBlockFrames), kOk);
  EXPECT_EQ(process(), kNotConfigured);
}

TEST(CinemaContract, CreateNeedsSoundParametersAndFilesAndMisuseIsRefused) {
  uint32_t bytes = 0;
  EXPECT_EQ(A0333(nullptr), kNullPointer);
  ASSERT_EQ(A0333(&bytes), kOk);
  EXPECT_EQ(bytes, sizeof(CinemaParameters));
  const TemporaryFolder files;
  const char* const directory = files.path().c_str();
  InstallIn(files, EncodeHrirSet(Probe({kFC})));
  files.Write("outside", "../data");
  files.Write("broken", "config");
  const CinemaParameters good = CinemaDefaults();
  CinemaParameters damaged = good;
  damaged.width = 0.9f;
  for (const char* config : {"absent", "outside", "broken"}) {
    EXPECT_EQ(A0218(&good, directory, config), nullptr) << config;
  }
  EXPECT_EQ(A0218(nullptr, directory, "config"), nullptr);
  EXPECT_EQ(A0218(&good, nullptr, "config"), nullptr);
  EXPECT_EQ(A0218(&good, directory, nullptr), nullptr);
  EXPECT_EQ(A0218(&damaged, directory, "config"), nullptr);
  void* instance = A0218(&good, directory, "config");
  ASSERT_NE(instance, nullptr);

  Signal block(kBlock);
  const float* in[2] = {block.data(), block.data()};
  const float* no_in[2] = {block.data(), nullptr};
  float* out[2] = {block.data(), block.data()};
  EXPECT_EQ(A0238(nullptr, out, instance), kNullPointer);
  EXPECT_EQ(A0238(in, nullptr, instance), kNullPointer);
  EXPECT_EQ(A0238(no_in, out, instance), kNullPointer);
  EXPECT_EQ(A0213(nullptr), kNullPointer);
  void* const stale = instance;
  EXPECT_EQ(A0213(&instance), kOk);
  EXPECT_EQ(instance, nullptr);
  for (void* const refused :
       {stale, static_cast<void*>(nullptr), static_cast<void*>(block.data())}) {
    void* dead = refused;
    EXPECT_EQ(A0238(in, out, dead), kBadHandle);
    EXPECT_EQ(A0593(dead), kBadHandle);
    EXPECT_EQ(A0213(&dead), kBadHandle);
    EXPECT_EQ(dead, refused) << "a destroy that failed took the pointer";
  }
}

}  // namespace
}  // namespace kelda::upmix_lib
