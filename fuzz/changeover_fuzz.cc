// The host that changes settings without a click: sessions that open and close, settings, starts,
// stops and resets in any order, blocks of any samples, tuning files that are spoiled meanwhile, an
// effect that refuses to be made, and a worker that takes its steps now and then.
#include <cutils/properties.h>

#include <array>
#include <cstddef>
#include <memory>

#include "changeover/session.h"
#include "changeover/worker.h"
#include "fuzz/begin_effect.h"
#include "fuzz/byte_reader.h"
#include "fuzz/samples.h"
#include "fuzz/tuning.h"
#include "tests/laboratory/effect_client.h"

namespace {

using namespace kelda::changeover;
using namespace kelda::fuzz;

struct Stream {
  std::unique_ptr<Session> session;
  bool started = false;
  bool sound = true;  // all its input so far was noise or silence of at most full scale
};

Setting TakeSetting(ByteReader* input) {
  constexpr uint32_t kDevices[] = {AUDIO_DEVICE_OUT_WIRED_HEADPHONE,
                                   AUDIO_DEVICE_OUT_BLUETOOTH_A2DP, AUDIO_DEVICE_OUT_SPEAKER, 0,
                                   AUDIO_DEVICE_OUT_BLE_HEADSET};
  constexpr const char* kApps[] = {"a.b", "c.d", "e.f", "g", ""};
  const auto kind = static_cast<Setting::Kind>(input->Below(7));
  switch (kind) {
    case Setting::Kind::Mode:
      return {kind, input->Below(4)};
    case Setting::Kind::Device:
      return {kind, input->OneOf(kDevices)};
    case Setting::Kind::Application:
      return {kind, input->Below(2), input->OneOf(kApps)};
    default:
      return {kind, 1 + input->Below(2)};
  }
}

void Process(Stream* stream, ByteReader* input) {
  const std::size_t frames = input->Below(2) == 0 ? 1024 : input->Take<uint16_t>() % 8192;
  const Samples in(2 * frames), out(2 * frames);
  const bool in_place = input->Below(2) == 1;
  stream->sound &= Fill(in, input);
  const Samples& heard = in_place ? in : out;
  stream->session->Process(in.data(), heard.data(), frames);
  if (stream->sound) {
    TrapUnlessFinite(heard);
  }
}

void Step(Stream* stream, Worker* worker, const kelda::TemporaryFolder& directory,
          ByteReader* input) {
  const std::size_t step = input->Below(16);
  if (step == 0) {
    RewriteTuning(directory, input);
  } else if (step == 1) {
    property_set("vendor.kelda.effect", input->Below(4) == 0 ? "0" : "1");
  } else if (step < 5) {
    worker->Step();
  } else if (stream->session == nullptr) {
    *stream = {Session::Open(worker, {input->Below(2) == 1})};
  } else if (step == 5 && input->Below(4) == 0) {
    *stream = {};
  } else if (step == 6) {
    stream->started ? stream->session->Stop() : stream->session->Start();
    stream->started = !stream->started;
  } else if (step == 7 && stream->started) {
    stream->session->Reset();
  } else if (step < 11) {
    stream->session->Set(TakeSetting(input));
  } else if (stream->started) {
    Process(stream, input);
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, std::size_t size) {
  static const kelda::TemporaryFolder directory;
  constexpr int kMostSteps = 120;
  BeginEffect(directory);
  ByteReader input(data, size);
  const auto worker = Worker::Make(kelda::test::Library(), Worker::Threads::None);
  std::array<Stream, 3> streams;
  for (int i = 0; i < kMostSteps && !input.empty(); ++i) {
    Step(&streams[input.Below(streams.size())], worker.get(), directory, &input);
  }
  return 0;
}
