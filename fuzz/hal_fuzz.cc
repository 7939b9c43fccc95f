// The door of the AIDL effect service: three sessions, any calls in any order, parameters of any
// bytes, any outputs, rates that change, blocks of any samples, an effect that refuses to be made,
// and a worker that takes its steps now and then.
#include <cutils/properties.h>

#include <array>
#include <cstddef>
#include <memory>
#include <vector>

#include "fuzz/begin_effect.h"
#include "fuzz/byte_reader.h"
#include "fuzz/samples.h"
#include "fuzz/tuning.h"
#include "hal/session.h"
#include "tests/laboratory/effect_client.h"

namespace {

using namespace kelda::hal;
using namespace kelda::fuzz;
using kelda::changeover::Worker;

struct Stream {
  std::unique_ptr<Session> session;
  bool sound = true;  // all its input so far was noise or silence of at most full scale
};

void Require(bool holds) {
  if (!holds) {
    __builtin_trap();
  }
}

Common TakeCommon(ByteReader* input) {
  const auto side = [&] {
    const bool odd = input->Below(16) == 0;
    return AudioConfig{odd ? input->Take<int32_t>() : input->OneOf(kSampleRatesHz),
                       odd ? input->Take<uint32_t>() : 3, !odd || input->Below(2) == 0,
                       odd ? input->Take<int64_t>() : 1 + input->Below(200)};
  };
  const AudioConfig in = side();
  return {input->Take<int32_t>(), 1, in, input->Below(8) == 0 ? side() : in};
}

std::vector<DeviceDescription> TakeDevices(ByteReader* input) {
  constexpr const char* kConnections[] = {"analog", "usb", "bt-a2dp", "bt-le", "bt-sco", "", "x"};
  std::vector<DeviceDescription> devices(input->Below(4));
  for (DeviceDescription& device : devices) {
    device = {DeviceType{static_cast<int32_t>(input->Take<uint8_t>())}, input->OneOf(kConnections)};
  }
  return devices;
}

// An effect_param_t: one of the effect's own, or any bytes.
std::vector<uint8_t> TakeParameter(ByteReader* input) {
  if (input->Below(4) == 0) {
    const auto bytes = input->TakeBytes(input->Take<uint8_t>());
    return {bytes.begin(), bytes.end()};
  }
  constexpr uint8_t kIds[] = {0, 1, 2, 3, 10, 99};
  const uint8_t id = input->OneOf(kIds);
  if (id != 10) {
    const auto value = static_cast<uint8_t>(input->Below(5));
    return {0, 0, 0, 0, 4, 0, 0, 0, 4, 0, 0, 0, id, 0, 0, 0, value, 0, 0, 0};
  }
  return {
      0, 0, 0, 0, 4, 0, 0, 0, 5, 0, 0, 0, id, 0, 0, 0, 'a', '.', 'b', '&', input->Take<uint8_t>()};
}

void Process(Stream* stream, ByteReader* input) {
  const State before = stream->session->state();
  const std::size_t samples = input->Below(2) == 0 ? 512 : input->Take<uint16_t>() % 16384;
  const Samples in(samples), out(samples);
  const bool sound = Fill(in, input);
  const Samples& heard = input->Below(2) == 1 ? in : out;
  const BlockResult result = stream->session->Process(in.data(), heard.data(), samples);
  const bool plays = before == State::Processing || before == State::Draining;
  Require((result.status == 0) == (plays && samples % 2 == 0));
  Require(result.consumed == result.produced &&
          result.consumed == (result.status == 0 ? static_cast<int32_t>(samples) : 0));
  stream->sound &= sound || result.status != 0;
  if (stream->sound && result.status == 0) {
    TrapUnlessFinite(heard);
  }
}

void Step(Stream* stream, const std::shared_ptr<Worker>& worker, ByteReader* input) {
  const std::size_t step = input->Below(20);
  if (step == 0) {
    property_set("vendor.kelda.effect", input->Below(4) == 0 ? "0" : "1");
    return;
  }
  if (step < 4) {
    worker->Step();
    return;
  }
  if (stream->session == nullptr || (step == 4 && input->Below(4) == 0)) {
    *stream = {std::make_unique<Session>(worker, SessionOptions{input->Below(2) == 1})};
  }
  Session& session = *stream->session;
  const bool open = session.state() != State::Init;
  if (step == 5 || !open) {
    const Common common = TakeCommon(input);
    if (session.Open(common) == Status::Ok && !open) {
      Require(session.common() == common && session.latency_frames() > 0);
    }
  } else if (step == 6 && input->Below(4) == 0) {
    Require((session.Close() == Status::Ok) == (session.state() == State::Init));
  } else if (step < 9) {
    session.Do(Command{static_cast<int32_t>(input->Below(4))});
  } else if (step == 9) {
    const Common common = TakeCommon(input);
    if (session.SetCommon(common) == Status::Ok) {
      Require(session.common() == common);
    }
  } else if (step == 10) {
    const auto devices = TakeDevices(input);
    Require(session.SetDevices(devices) == Status::Ok && session.devices() == devices);
  } else if (step < 14) {
    session.SetParameter(TakeParameter(input));
  } else if (step == 14) {
    std::vector<uint8_t> answer;
    if (session.GetParameter(TakeParameter(input), &answer) == Status::Ok) {
      Require(answer.size() == 16 || (answer.size() == 20 && answer[16] < 4));
    }
  } else {
    Process(stream, input);
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, std::size_t size) {
  static const kelda::TemporaryFolder directory;
  constexpr int kMostSteps = 120;
  BeginEffect(directory);
  ByteReader input(data, size);
  const std::shared_ptr<Worker> worker =
      Worker::Make(kelda::test::Library(), Worker::Threads::None);
  std::array<Stream, 3> streams;
  for (int i = 0; i < kMostSteps && !input.empty(); ++i) {
    Step(&streams[input.Below(streams.size())], worker, &input);
  }
  return 0;
}
