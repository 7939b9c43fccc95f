// Sessions of the AIDL effect service: what the platform's suites ask of an effect, the audio to
// the bit, and every sample rate.
#include "hal/session.h"

#include <android/log.h>
#include <cutils/properties.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <complex>
#include <filesystem>
#include <functional>
#include <random>
#include <thread>

#include "hal/rate_converter.h"
#include "tests/laboratory/allocations.h"
#include "tests/laboratory/effect_client.h"
#include "tests/laboratory/temporary_folder.h"

namespace kelda::hal {
namespace {

using changeover::Setting;
using changeover::Worker;

constexpr int32_t kOtherRatesHz[] = {44100, 88200, 96000, 176400, 192000};
const DeviceDescription kHeadphone{DeviceType::OutHeadphone, "analog"};

class HalTest : public testing::Test {
 protected:
  HalTest() {
    std::filesystem::copy(DEFAULT_TUNING, tuning_.path());
    setenv("KELDA_DATA_DIR", tuning_.path().c_str(), 1);
    property_set("vendor.kelda.effect", "1");
    property_set("vendor.kelda.pcmdump", "0");
    __android_log_set_minimum_priority(ANDROID_LOG_FATAL);
  }

  const TemporaryFolder tuning_;
};

// The bytes of an effect_param_t, as the framework fills it.
std::string Param(uint32_t id, const std::string& value, std::optional<uint32_t> vsize = {},
                  uint32_t psize = 4) {
  return test::Param(id, value, vsize, psize).replace(0, 4, test::Bytes(0));
}

std::span<const uint8_t> BytesOf(const std::string& text) {
  return {reinterpret_cast<const uint8_t*>(text.data()), text.size()};
}

std::string FromHex(std::string_view hex) {
  std::string bytes;
  std::string digits;
  std::copy_if(hex.begin(), hex.end(), std::back_inserter(digits), [](char c) { return c != ' '; });
  for (std::size_t i = 0; i < digits.size(); i += 2) {
    bytes += static_cast<char>(std::stoi(digits.substr(i, 2), nullptr, 16));
  }
  return bytes;
}

// The answer as text, or how the call was refused.
std::string Get(Session* session, const std::string& id) {
  std::vector<uint8_t> answer{'?'};
  const Status status = session->GetParameter(BytesOf(id), &answer);
  return status == Status::Ok ? std::string(answer.begin(), answer.end())
                              : "status " + std::to_string(static_cast<int>(status)) +
                                    std::string(answer.begin(), answer.end());
}

Common CommonOf(int32_t rate_hz, int64_t frames = 256) {
  const AudioConfig side{rate_hz, 3, true, frames};
  return {1, 13, side, side};
}

// A session whose worker takes its steps when it is told to.
struct Stage {
  explicit Stage(int32_t rate_hz = 48000, bool drains = false)
      : worker(Worker::Make(test::Library(), Worker::Threads::None)), session(worker, {drains}) {
    EXPECT_EQ(session.Open(CommonOf(rate_hz)), Status::Ok);
  }

  void Start() { EXPECT_EQ(session.Do(Command::Start), Status::Ok); }
  void Set(const std::string& bytes) {
    EXPECT_EQ(session.SetParameter(BytesOf(bytes)), Status::Ok);
  }
  // In place, in blocks of `most` frames, or of 1 to 8192 at random.
  std::vector<float> Play(std::vector<float> sound, std::size_t most = 0) {
    for (std::size_t at = 0, block = 0; at < sound.size(); at += 2 * block) {
      block = std::min(sound.size() / 2 - at / 2, most != 0 ? most : 1 + blocks() % 8192);
      const auto samples = static_cast<int32_t>(2 * block);
      EXPECT_EQ(session.Process(&sound[at], &sound[at], 2 * block),
                (BlockResult{0, samples, samples}));
    }
    return sound;
  }

  std::shared_ptr<Worker> worker;
  Session session;
  std::mt19937 blocks{2};
};

std::vector<float> Noise(std::size_t frames, uint32_t seed) {
  std::mt19937 random(seed);
  std::vector<float> noise(2 * frames);
  for (float& sample : noise) {
    sample = 0.1f * (static_cast<float>(random()) / 0x1p31f - 1.0f);
  }
  return noise;
}

// ---- States.

// Three sessions side by side, any calls in any order: every state refuses what it must, keeps its
// state where a call has no effect, and may be left by destroying the session.
TEST_F(HalTest, StatesFollowFromTheCalls) {
  constexpr std::size_t kBlock = 480;
  enum Call { kOpen, kClose, kReopen, kStart, kStop, kReset, kSet, kBlockOfAudio, kCalls };
  std::mt19937 random(7);
  const std::shared_ptr<Worker> worker = Worker::Make(test::Library(), Worker::Threads::None);
  for (int walk = 0; walk < 4; ++walk) {
    std::vector<std::unique_ptr<Session>> sessions;
    State states[3] = {};
    std::size_t drained[3] = {};
    for (int i = 0; i < 3; ++i) {
      sessions.push_back(std::make_unique<Session>(worker, SessionOptions{walk % 2 == 1}));
      EXPECT_EQ(sessions.back()->state(), State::Init);
    }
    for (int step = 0; step < 90; ++step) {
      const std::size_t which = random() % 3;
      Session& session = *sessions[which];
      State& state = states[which];
      const auto call = static_cast<Call>(random() % kCalls);
      const bool open = state != State::Init;
      const Status expected = (call == kClose && state == State::Processing) ||
                                      (!open && call != kOpen && call != kClose)
                                  ? Status::IllegalState
                                  : Status::Ok;
      std::vector<float> block(2 * kBlock, 0.1f);
      Status status = expected;
      switch (call) {
        case kOpen:
          status = session.Open(CommonOf(48000));
          state = open ? state : State::Idle;
          break;
        case kClose:
          status = session.Close();
          state = state == State::Processing ? state : State::Init;
          break;
        case kReopen:
          status = session.Reopen();
          break;
        case kStart:
          status = session.Do(Command::Start);
          drained[which] = state == State::Idle ? 0 : drained[which];
          state = open ? State::Processing : state;
          break;
        case kStop:
          status = session.Do(Command::Stop);
          state = state != State::Processing ? state
                  : walk % 2 == 1            ? State::Draining
                                             : State::Idle;
          break;
        case kReset:
          status = session.Do(Command::Reset);
          state = open ? State::Idle : state;
          break;
        case kSet:
          status = session.SetParameter(BytesOf(Param(0, test::Bytes(1))));
          EXPECT_EQ(session.SetAudioMode(1), expected);
          EXPECT_EQ(session.SetDevices({&kHeadphone, 1}), expected);
          EXPECT_EQ(session.SetCommon(CommonOf(48000, 1 + step)), expected);
          EXPECT_EQ(session.common().has_value(), open);
          break;
        default: {
          const bool plays = state == State::Processing || state == State::Draining;
          const BlockResult result = session.Process(block.data(), block.data(), block.size());
          EXPECT_EQ(result, plays ? (BlockResult{0, 2 * kBlock, 2 * kBlock})
                                  : (BlockResult{-ENODATA, 0, 0}));
          EXPECT_EQ(plays, block[0] != 0.1f || state == State::Draining);
          // The way to the unprocessed input is 5 blocks long, there and back.
          if (state == State::Draining && ++drained[which] == 5) {
            state = State::Idle;
          } else if (state == State::Processing && drained[which] > 0) {
            --drained[which];
          }
        }
      }
      ASSERT_EQ(status, expected) << "walk " << walk << " step " << step << " call " << call;
      ASSERT_EQ(session.state(), state) << "walk " << walk << " step " << step << " call " << call;
      if (step % 10 == 0) {
        worker->Step();
      }
    }
  }
  EXPECT_EQ(Session(nullptr, {}).Open(CommonOf(48000)), Status::Unsupported);
  EXPECT_EQ(Stage().session.Do(Command{3}), Status::IllegalArgument);
  float frame[3] = {1, 2, 3};
  Stage stage;
  stage.Start();
  EXPECT_EQ(stage.session.Process(frame, frame, 3), (BlockResult{-EINVAL, 0, 0}));
  EXPECT_EQ(stage.session.Process(nullptr, frame, 2), (BlockResult{-EINVAL, 0, 0}));
  EXPECT_EQ(stage.session.Process(frame, nullptr, 2), (BlockResult{-EINVAL, 0, 0}));
  EXPECT_EQ(frame[0], 1.0f);
}

// ---- Parameters.

TEST_F(HalTest, CommonParametersAreKeptAndOthersRefused) {
  Stage stage;
  Session& session = stage.session;
  EXPECT_EQ(session.common(), CommonOf(48000));
  EXPECT_EQ(session.devices(), std::vector<DeviceDescription>());
  const std::vector<DeviceDescription> inputs = {{DeviceType::InDefault, "analog"},
                                                 {DeviceType::InDevice, "bt-a2dp"}};
  for (const bool starts : {false, true}) {
    if (starts) {
      stage.Start();
    }
    Common common = CommonOf(44100);
    for (const int64_t more : {0, 1, 4}) {
      common.input.frame_count += more;
      EXPECT_EQ(session.SetCommon(common), Status::Ok);
      EXPECT_EQ(session.common(), common);
      EXPECT_EQ(session.Reopen(), Status::Ok);
    }
    for (const int32_t value : {0, 3, 6}) {
      EXPECT_EQ(session.SetAudioMode(value), Status::Ok);
      EXPECT_EQ(session.SetAudioSource(value + 1), Status::Ok);
      EXPECT_EQ(session.SetVolume({10.0f, static_cast<float>(value)}), Status::Ok);
      EXPECT_EQ(session.audio_mode(), value);
      EXPECT_EQ(session.audio_source(), value + 1);
      EXPECT_EQ(session.volume(), (Volume{10.0f, static_cast<float>(value)}));
    }
    EXPECT_EQ(session.SetDevices(inputs), Status::Ok);
    EXPECT_EQ(session.devices(), inputs);
    // What the effect does not take.
    const Common before = *session.common();
    const auto refused = [&](auto change) {
      Common other = before;
      change(&other);
      EXPECT_EQ(session.SetCommon(other), Status::IllegalArgument);
      EXPECT_EQ(Session(stage.worker, {}).Open(other), Status::IllegalArgument);
      EXPECT_EQ(session.common(), before);
    };
    for (const int32_t rate : {0, -1, 8000, 32000, 47999, 384000}) {
      refused([&](Common* c) { c->input.sample_rate_hz = c->output.sample_rate_hz = rate; });
    }
    for (const uint32_t mask : {0u, 1u, 7u, 0x3Fu, 0x1000001u, 0x30000003u}) {
      refused([&](Common* c) { c->input.channel_mask = c->output.channel_mask = mask; });
    }
    refused([](Common* c) { c->output.sample_rate_hz = 48000; });
    refused([](Common* c) { c->output.channel_mask = 0x30; });
    refused([](Common* c) { c->input.is_float = false; });
    refused([](Common* c) { c->output.is_float = false; });
    refused([](Common* c) { c->input.frame_count = 0; });
    refused([](Common* c) { c->output.frame_count = -5; });
    refused([](Common* c) { c->input.frame_count = int64_t{1} << 31; });
  }
  EXPECT_EQ(session.Do(Command::Reset), Status::Ok);
  EXPECT_EQ(session.devices(), inputs);
  EXPECT_EQ(session.Close(), Status::Ok);
  EXPECT_EQ(session.latency_frames(), 0u);
  EXPECT_EQ(session.Open(CommonOf(96000)), Status::Ok);
  EXPECT_EQ(session.devices(), std::vector<DeviceDescription>());
  EXPECT_EQ(session.audio_mode(), 0);
}

TEST_F(HalTest, OutputsAreTheEffectsDevices) {
  using Type = DeviceType;
  const struct {
    std::vector<DeviceDescription> devices;
    uint32_t word;
  } kCases[] = {
      {{}, 0},
      {{{Type::OutSpeakerEarpiece}}, AUDIO_DEVICE_OUT_EARPIECE},
      {{{Type::OutSpeaker}}, AUDIO_DEVICE_OUT_SPEAKER},
      {{{Type::OutHeadset, "analog"}}, AUDIO_DEVICE_OUT_WIRED_HEADSET},
      {{kHeadphone}, AUDIO_DEVICE_OUT_WIRED_HEADPHONE},
      {{{Type::OutDevice, "analog"}}, AUDIO_DEVICE_OUT_LINE},
      {{{Type::OutDock, "analog"}}, AUDIO_DEVICE_OUT_ANLG_DOCK_HEADSET},
      {{{Type::OutDock, "usb"}}, AUDIO_DEVICE_OUT_DGTL_DOCK_HEADSET},
      {{{Type::OutAccessory, "usb"}}, AUDIO_DEVICE_OUT_USB_ACCESSORY},
      {{{Type::OutDevice, "usb"}}, AUDIO_DEVICE_OUT_USB_DEVICE},
      {{{Type::OutHeadset, "usb"}}, AUDIO_DEVICE_OUT_USB_HEADSET},
      {{{Type::OutDevice, "bt-sco"}}, AUDIO_DEVICE_OUT_BLUETOOTH_SCO},
      {{{Type::OutHeadset, "bt-sco"}}, AUDIO_DEVICE_OUT_BLUETOOTH_SCO_HEADSET},
      {{{Type::OutCarkit, "bt-sco"}}, AUDIO_DEVICE_OUT_BLUETOOTH_SCO_CARKIT},
      {{{Type::OutDevice, "bt-a2dp"}}, AUDIO_DEVICE_OUT_BLUETOOTH_A2DP},
      {{{Type::OutHeadphone, "bt-a2dp"}}, AUDIO_DEVICE_OUT_BLUETOOTH_A2DP_HEADPHONES},
      {{{Type::OutSpeaker, "bt-a2dp"}}, AUDIO_DEVICE_OUT_BLUETOOTH_A2DP_SPEAKER},
      {{{Type::OutHeadset, "bt-le"}}, AUDIO_DEVICE_OUT_BLE_HEADSET},
      {{{Type::OutSpeaker, "bt-le"}}, AUDIO_DEVICE_OUT_BLE_SPEAKER},
      {{{Type::OutBroadcast, "bt-le"}}, AUDIO_DEVICE_OUT_BLE_BROADCAST},
      {{{Type::OutDevice, "hdmi"}}, 0},
      {{{Type::OutHeadphone}}, 0},
      {{{static_cast<Type>(147), "x"}}, 0},
      // Several: the same one twice is one; others are no headphone, though one of them may be.
      {{kHeadphone, kHeadphone}, AUDIO_DEVICE_OUT_WIRED_HEADPHONE},
      {{kHeadphone, {Type::InDevice, "usb"}}, AUDIO_DEVICE_OUT_WIRED_HEADPHONE},
      {{kHeadphone, {Type::OutSpeaker}}, 0},
      {{kHeadphone, {Type::OutDevice, "hdmi"}}, 0},
      // As the framework takes the words of the LE speaker and broadcast apart, bit by bit.
      {{{Type::OutHeadset, "bt-le"}, {Type::OutSpeakerEarpiece}}, 0},
      {{{Type::OutHeadset, "bt-le"}, {Type::OutSpeaker}}, 0},
  };
  for (const auto& [devices, word] : kCases) {
    EXPECT_EQ(DeviceWord(devices), word) << word << (devices.empty() ? "" : devices[0].connection);
    EXPECT_FALSE(OnlyInputs(devices));
  }
}

// Every row of the parameter table in docs/integration.md, and what may come in its place.
TEST_F(HalTest, ParametersAreTheBytesOfTheOtherDoor) {
  const std::string cinema = FromHex("00000000 04000000 04000000 00000000 02000000");
  const std::string rows[] = {
      cinema,
      FromHex("00000000 04000000 04000000 01000000 02000000"),
      FromHex("00000000 04000000 04000000 02000000 01000000"),
      FromHex("00000000 04000000 04000000 03000000 00000000"),
      FromHex("00000000 04000000 0a000000 0a000000 636f6d2e 66696c6d 2631"),
  };
  const std::string id = FromHex("00000000 04000000 04000000 00000000");
  Stage stage;
  Session& session = stage.session;
  EXPECT_EQ(Get(&session, id), Param(0, test::Bytes(0)));
  for (const std::string& row : rows) {
    for (std::size_t size = 0; size < row.size(); ++size) {
      EXPECT_EQ(session.SetParameter(BytesOf(row.substr(0, size))), Status::IllegalArgument);
    }
    EXPECT_EQ(Get(&session, id), Param(0, test::Bytes(0)));
  }
  for (const std::string& row : rows) {
    stage.Set(row + "and what follows");
  }
  EXPECT_EQ(Get(&session, id), cinema);
  EXPECT_EQ(Get(&session, id + "????"), cinema);
  stage.Set(Param(0, test::Bytes(3)));
  EXPECT_EQ(Get(&session, id), FromHex("00000000 04000000 04000000 00000000 03000000"));
  // Ignored: unknown parameters, values out of range. Refused: values of the wrong size, an
  // identifier of another, and lies about the size.
  for (const std::string& ignored :
       {Param(0, test::Bytes(4)), Param(1, test::Bytes(0)), Param(2, test::Bytes(3)),
        Param(10, "x"), Param(10, ""), Param(4, test::Bytes(1)), Param(11, "a&1"), Param(3, "")}) {
    EXPECT_EQ(session.SetParameter(BytesOf(ignored)), Status::Ok);
  }
  for (const std::string& bad : {Param(0, "ab"), Param(1, ""), Param(2, test::Bytes(1) + "x"),
                                 Param(0, test::Bytes(1), 5), Param(0, test::Bytes(1), 0xFFFFFFF0),
                                 Param(0, test::Bytes(1), {}, 8), Param(0, "", {}, 0)}) {
    EXPECT_EQ(session.SetParameter(BytesOf(bad)), Status::IllegalArgument);
  }
  EXPECT_EQ(Get(&session, id), Param(0, test::Bytes(3)));
  EXPECT_EQ(Get(&session, Param(1, test::Bytes(0))), Param(1, ""));
  EXPECT_EQ(Get(&session, Param(99, "")), Param(99, ""));
  for (const std::string& bad :
       {std::string(), id.substr(0, 15), Param(0, "", 3), Param(0, "", 4, 8)}) {
    EXPECT_EQ(Get(&session, bad), "status 2?");
  }
}

TEST_F(HalTest, IsOfferedWhereThePropertySaysSo) {
  Stage stage;
  for (const char* value : {"0", "2", "x", ""}) {
    property_set("vendor.kelda.effect", value);
    EXPECT_FALSE(Offered()) << value;
    const std::shared_ptr<Worker> worker = Worker::Make(test::Library(), Worker::Threads::None);
    Session session(worker, {});
    EXPECT_EQ(session.Open(CommonOf(48000)), Status::Unsupported);
    EXPECT_EQ(session.state(), State::Init);
  }
  property_set("vendor.kelda.effect", "1");
  EXPECT_TRUE(Offered());
  // One worker for as long as somebody holds it.
  std::shared_ptr<Worker> worker = SharedWorker(test::Library());
  EXPECT_EQ(worker, SharedWorker(test::Library()));
  EXPECT_EQ(worker.use_count(), 1);
}

TEST_F(HalTest, MemoryThatRunsOutChangesNothing) {
  const std::vector<DeviceDescription> devices = {kHeadphone, {DeviceType::OutSpeaker, "bt-a2dp"}};
  const std::string app = Param(10, "a.package.of.films&1"), id = Param(0, "", 4);
  Stage stage;
  Session& session = stage.session;
  Session other(stage.worker, {});
  std::vector<uint8_t> answer;
  const std::function<Status()> kCalls[] = {
      [&] { return other.Open(CommonOf(44100)); },
      [&] { return session.SetCommon(CommonOf(176400)); },
      [&] { return session.SetDevices(devices); },
      [&] { return session.SetParameter(BytesOf(app)); },
      [&] { return session.GetParameter(BytesOf(id), &answer); },
  };
  // What each call changes.
  const std::function<bool()> kDone[] = {
      [&] { return other.state() == State::Idle; },
      [&] { return session.common() == CommonOf(176400); },
      [&] { return session.devices() == devices; },
      [&] { return true; },
      [&] { return !answer.empty(); },
  };
  for (std::size_t i = 0; i < std::size(kCalls); ++i) {
    Status status = Status::Unsupported;
    for (uint64_t failing = 1; status != Status::Ok; failing += i == 0 ? 9 : 1) {
      EXPECT_TRUE(i == 3 || !kDone[i]()) << i;
      test::FailNew(failing);
      status = kCalls[i]();
      test::FailNew(0);
      ASSERT_TRUE(status == Status::Unsupported || (status == Status::Ok && failing > 1)) << i;
    }
    EXPECT_TRUE(kDone[i]()) << i;
  }
  // A block takes none at all, at any rate, nor while it drains.
  for (const int32_t rate : kSampleRatesHz) {
    Stage draining(rate, true);
    draining.Start();
    std::vector<float> block = Noise(1000, 1);
    const uint64_t before = test::NewCalls();
    draining.session.Process(block.data(), block.data(), block.size());
    draining.session.Do(Command::Stop);
    draining.session.Process(block.data(), block.data(), block.size());
    EXPECT_EQ(test::NewCalls(), before);
  }
}

// ---- Audio.

// The host itself, which is given the same settings by its own interface.
struct Host {
  std::unique_ptr<Worker> worker = Worker::Make(test::Library(), Worker::Threads::None);
  std::unique_ptr<changeover::Session> session = changeover::Session::Open(worker.get(), {});
};

// Gives both a random setting.
void SetAny(Stage* stage, Host* host, std::mt19937* random) {
  using Kind = Setting::Kind;
  const uint32_t value = (*random)() % 4, two = 1 + value % 2;
  switch ((*random)() % 6) {
    case 0:
      stage->Set(Param(1, test::Bytes(two)));
      host->session->Set({Kind::WiredHrtf, two});
      return;
    case 1:
      stage->Set(Param(2, test::Bytes(two)));
      host->session->Set({Kind::BluetoothHrtf, two});
      return;
    case 2:
      stage->Set(Param(10, value % 2 == 0 ? "a.film&1" : "a.song&0"));
      host->session->Set({Kind::Application, 1 - value % 2, value % 2 == 0 ? "a.film" : "a.song"});
      return;
    case 3: {
      const DeviceDescription devices[] = {kHeadphone,
                                           {DeviceType::OutHeadset, "bt-le"},
                                           {DeviceType::OutSpeaker, ""},
                                           {DeviceType::InDevice, "usb"}};
      constexpr uint32_t kWords[] = {AUDIO_DEVICE_OUT_WIRED_HEADPHONE, AUDIO_DEVICE_OUT_BLE_HEADSET,
                                     AUDIO_DEVICE_OUT_SPEAKER};
      EXPECT_EQ(stage->session.SetDevices({&devices[value], 1}), Status::Ok);
      if (value < 3) {
        host->session->Set({Kind::Device, kWords[value]});
      }
      return;
    }
    case 4:
      stage->Set(Param(3, test::Bytes(0)));
      host->session->Set({Kind::ReloadApplications});
      return;
    default:
      stage->Set(Param(0, test::Bytes(value)));
      host->session->Set({Kind::Mode, value});
  }
}

TEST_F(HalTest, ItsAudioIsTheHostsWhateverTheBlocksAndQueues) {
  Stage stage;
  Host host;
  std::mt19937 random(11);
  EXPECT_EQ(stage.session.SetDevices({&kHeadphone, 1}), Status::Ok);
  host.session->Set({Setting::Kind::Device, AUDIO_DEVICE_OUT_WIRED_HEADPHONE});
  int changed = 0;
  for (uint32_t sequence = 0; sequence < 100; ++sequence) {
    stage.Start();
    host.session->Start();
    for (int part = 0; part < 3; ++part) {
      if (sequence % 3 == 0 && part == static_cast<int>(random() % 3)) {
        SetAny(&stage, &host, &random);
      }
      stage.worker->Step();
      host.worker->Step();
      const std::vector<float> sound = Noise(random() % 4000, sequence);
      std::vector<float> expected(sound.size());
      host.session->Process(sound.data(), expected.data(), sound.size() / 2);
      changed += expected != sound;
      const std::size_t half = sound.size() / 4 * 2;
      const auto middle = sound.begin() + static_cast<std::ptrdiff_t>(half);
      std::vector<float> heard = stage.Play({sound.begin(), middle});
      // A queue of another size in between.
      EXPECT_EQ(stage.session.SetCommon(CommonOf(48000, 1 + random() % 999)), Status::Ok);
      EXPECT_EQ(stage.session.Reopen(), Status::Ok);
      const std::vector<float> rest = stage.Play({middle, sound.end()});
      heard.insert(heard.end(), rest.begin(), rest.end());
      ASSERT_EQ(heard, expected) << "sequence " << sequence;
    }
    EXPECT_EQ(stage.session.Do(sequence % 2 == 0 ? Command::Stop : Command::Reset), Status::Ok);
    host.session->Stop();
  }
  EXPECT_GT(changed, 250);
}

// The Fourier coefficient at `hz` of the last 10 ms of a side, as an amplitude and its phase at
// frame 0.
std::complex<double> At(double hz, const std::vector<float>& sound, std::size_t side,
                        int32_t rate) {
  const std::size_t frames = static_cast<std::size_t>(rate) / 100;
  const std::complex<double> step = std::polar(1.0, -2 * M_PI * hz / rate);
  const std::size_t first = sound.size() / 2 - frames;
  std::complex<double> turn = std::polar(1.0, -2 * M_PI * hz / rate * static_cast<double>(first));
  std::complex<double> sum = 0;
  for (std::size_t frame = first; frame < sound.size() / 2; ++frame) {
    sum += turn * double{sound[2 * frame + side]};
    turn *= step;
  }
  return 2.0 / static_cast<double>(frames) * sum;
}

// Off, as at 48000 Hz, is the input that much later: to 18 kHz within 0.05 dB, and what else
// appears there is below -80 dB in all, whatever frequency comes in.
TEST_F(HalTest, OtherRatesAreAsRightAs48000Hz) {
  EXPECT_EQ(Session::LatencyFrames(48000), changeover::Session::kLatencyFrames);
  for (const int32_t rate : kOtherRatesHz) {
    Stage stage(rate);
    const std::size_t latency = stage.session.latency_frames();
    EXPECT_LT(static_cast<double>(latency) / rate, 0.0259);
    double worst_gain = 0, worst_other = 0;
    // Left and right.
    const std::pair<double, double> kTonesHz[] = {{100, 1000},    {4000, 8000},   {12000, 16000},
                                                  {18000, 20000}, {17000, 22000}, {26000, 30500},
                                                  {33000, 44000}, {47000, 62000}, {78000, 95500}};
    for (const auto& [left, right] : kTonesHz) {
      if (2 * right > rate) {
        continue;
      }
      std::vector<float> sound(2 * (latency + static_cast<std::size_t>(rate) / 50));
      for (std::size_t i = 0; i < sound.size(); ++i) {
        const std::size_t frame = i / 2;
        const double turns = (i % 2 == 0 ? left : right) / rate * static_cast<double>(frame);
        sound[i] = static_cast<float>(0.5 * std::cos(2 * M_PI * turns));
      }
      stage.Start();
      const std::vector<float> heard = stage.Play(sound);
      for (const std::size_t side : {0u, 1u}) {
        const double tone = side == 0 ? left : right;
        double others = 0;
        for (int hz = 0; hz <= 18000; hz += 100) {
          const std::complex<double> there = At(hz, heard, side, rate);
          if (hz == tone) {
            const auto expected =
                std::polar(0.5, -2 * M_PI * hz / rate * static_cast<double>(latency));
            worst_gain = std::max(worst_gain, std::abs(there / expected - 1.0));
          } else {
            others += std::norm(there);
          }
        }
        worst_other = std::max(worst_other, others / 0.25);
      }
      EXPECT_EQ(stage.session.Do(Command::Stop), Status::Ok);
    }
    EXPECT_LT(20 * std::log10(1 + worst_gain), 0.05) << rate;
    EXPECT_LT(10 * std::log10(worst_other), -80) << rate;
  }
}

// Each way alone: sides stay apart, and frames come in time.
TEST_F(HalTest, ConvertersKeepSidesAndCount) {
  for (const int32_t rate : kOtherRatesHz) {
    for (const auto& [from, to] : {std::pair(rate, 48000), std::pair(48000, rate)}) {
      RateConverter converter(from, to, 20.0);
      std::vector<float> left(2 * 300), out(2 * 1300);
      for (std::size_t i = 0; i < left.size(); i += 2) {
        left[i] = 1.0f;
      }
      int64_t taken = 0, made = 0;
      for (const std::size_t frames : {1u, 299u, 7u, 300u}) {
        taken += static_cast<int64_t>(frames);
        const std::size_t more = converter.Convert(left.data(), frames, out.data());
        made += static_cast<int64_t>(more);
        EXPECT_EQ(made, (taken * to + from - 1) / from) << from << " to " << to;
        EXPECT_EQ(out[2 * more - 1], 0.0f);
        EXPECT_NEAR(out[2 * more - 2], 1.0f,
                    taken == 1 ? 1.1f : 1e-5f);  // from its second block on
      }
    }
  }
}

// A stream of any rate: the same audio for blocks of any size, through changes, and after a
// restart.
TEST_F(HalTest, OtherRatesTakeAnyBlocks) {
  for (const int32_t rate : kOtherRatesHz) {
    std::vector<float> first;
    for (const std::size_t block : {1024u, 0u, 1u}) {
      Stage stage(rate);
      EXPECT_EQ(stage.session.SetDevices({&kHeadphone, 1}), Status::Ok);
      stage.Start();
      if (block != 1024) {  // nothing of what was before is heard again
        stage.Play(Noise(777, 5));
        EXPECT_EQ(stage.session.Do(Command::Reset), Status::Ok);
        stage.Start();
      }
      std::vector<float> heard;
      for (uint32_t part = 0; part < 3; ++part) {
        stage.Set(Param(0, test::Bytes(part % 2)));
        stage.worker->Step();
        const std::vector<float> more = stage.Play(Noise(2000, part), block);
        heard.insert(heard.end(), more.begin(), more.end());
      }
      first = first.empty() ? heard : first;
      EXPECT_TRUE(heard == first) << rate << " in blocks of " << block;
    }
    // Another rate begins anew.
    Stage stage(48000), anew(rate);
    stage.Start();
    stage.Play(Noise(5000, 1));
    EXPECT_EQ(stage.session.SetCommon(CommonOf(rate)), Status::Ok);
    EXPECT_EQ(stage.session.state(), State::Processing);
    EXPECT_EQ(stage.session.latency_frames(), Session::LatencyFrames(rate));
    anew.Start();
    EXPECT_TRUE(stage.Play(Noise(3000, 2)) == anew.Play(Noise(3000, 2))) << rate;
  }
}

// To the unprocessed input and back, between the two all the way.
TEST_F(HalTest, DrainingGoesOverToTheInput) {
  for (const int32_t rate : {48000, 44100}) {
    const auto way = static_cast<std::size_t>(rate / 20);
    Stage stage(rate, true), twin(rate);
    stage.Start();
    twin.Start();
    stage.Play(Noise(5000, 1));
    twin.Play(Noise(5000, 1));
    const auto check = [&](std::size_t frames, uint32_t seed) {
      const std::vector<float> dry = Noise(frames, seed), wet = twin.Play(dry);
      const std::vector<float> heard = stage.Play(dry);
      std::vector<double> parts;
      for (std::size_t i = 0; i < heard.size(); ++i) {
        const double part = double{heard[i] - wet[i]} / double{dry[i] - wet[i]};
        if (std::fabs(dry[i] - wet[i]) > 0.05f) {
          parts.push_back(part);
        }
      }
      return parts;
    };
    EXPECT_EQ(stage.session.Do(Command::Stop), Status::Ok);
    std::vector<double> parts = check(way - 1, 2);
    EXPECT_EQ(stage.session.state(), State::Draining);
    EXPECT_LT(parts.front(), 1e-3);
    EXPECT_GT(parts.back(), 0.999);
    EXPECT_TRUE(std::is_sorted(parts.begin(), parts.end(),
                               [](double a, double b) { return a < b - 1e-5; }));
    // Back again, and there once more.
    EXPECT_EQ(stage.session.Do(Command::Start), Status::Ok);
    parts = check(way, 3);
    EXPECT_GT(parts.front(), 0.99);
    EXPECT_LT(parts.back(), 1e-3);
    parts = check(999, 4);
    EXPECT_EQ(*std::max_element(parts.begin(), parts.end()), 0.0);
    EXPECT_EQ(stage.session.Do(Command::Stop), Status::Ok);
    const std::vector<float> dry = Noise(way + 300, 5);
    const std::vector<float> heard = stage.Play(dry);
    EXPECT_TRUE(std::equal(heard.end() - 600, heard.end(), dry.end() - 600));
    EXPECT_EQ(stage.session.state(), State::Idle);
  }
}

// Control calls while audio plays at its pace and the worker works.
TEST_F(HalTest, ThreadsMayMeet) {
  for (const int32_t rate : {48000, 44100}) {
    Session session(SharedWorker(test::Library()), {.drains = true});
    EXPECT_EQ(session.Open(CommonOf(rate)), Status::Ok);
    EXPECT_EQ(session.Do(Command::Start), Status::Ok);
    std::atomic<bool> ends{false};
    std::thread audio([&] {
      std::vector<float> block(960);
      for (auto next = std::chrono::steady_clock::now(); !ends;
           next += std::chrono::milliseconds(10)) {
        std::fill(block.begin(), block.end(), 0.1f);
        session.Process(block.data(), block.data(), block.size());
        EXPECT_LE(*std::max_element(block.begin(), block.end()), 2.0f);
        std::this_thread::sleep_until(next);
      }
    });
    for (uint32_t change = 0; change < 60; ++change) {
      const std::vector<DeviceDescription> devices(1 + change % 2, kHeadphone);
      EXPECT_EQ(session.SetDevices(devices), Status::Ok);
      EXPECT_EQ(session.SetParameter(BytesOf(Param(0, test::Bytes(change / 5 % 3)))), Status::Ok);
      EXPECT_EQ(session.SetVolume({1, 1}), Status::Ok);
      EXPECT_EQ(Get(&session, Param(0, "", 4)), Param(0, test::Bytes(change / 5 % 3)));
      EXPECT_EQ(session.devices(), devices);
      EXPECT_EQ(session.state(), State::Processing);
      session.Report();
      std::this_thread::sleep_for(std::chrono::milliseconds(10));
    }
    ends = true;
    audio.join();
    EXPECT_EQ(session.Do(Command::Stop), Status::Ok);
  }
}

}  // namespace
}  // namespace kelda::hal
