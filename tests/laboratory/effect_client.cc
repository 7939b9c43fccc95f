#include "tests/laboratory/effect_client.h"

#include <unistd.h>

#include <array>
#include <cstdio>
#include <cstdlib>
#include <memory>
#include <stdexcept>
#include <utility>

namespace kelda::test {
namespace {

void Require(bool accepted, uint32_t code, const Reply& reply) {
  if (accepted) {
    return;
  }
  throw std::runtime_error("the effect answered command " + std::to_string(code) + " with " +
                           std::to_string(reply.result) + ", status " +
                           std::to_string(reply.status()));
}

}  // namespace

uint32_t Reply::Word(std::size_t offset) const {
  uint32_t word = 0;
  bytes.copy(reinterpret_cast<char*>(&word), sizeof(word), offset);
  return word;
}

std::string Bytes(uint32_t word) { return {reinterpret_cast<const char*>(&word), sizeof(word)}; }

std::string Bytes(const effect_config_t& config) {
  return {reinterpret_cast<const char*>(&config), sizeof(config)};
}

std::string Param(uint32_t id, const std::string& value, std::optional<uint32_t> vsize,
                  uint32_t psize) {
  return Bytes(0x5A5A5A5A) + Bytes(psize) +
         Bytes(vsize.value_or(static_cast<uint32_t>(value.size()))) + Bytes(id) + value;
}

Request DeviceRequest(uint32_t device, const std::string& tail) {
  return {
      .code = EFFECT_CMD_SET_DEVICE, .data = Bytes(device) + tail, .cmd_size = 4, .reply_room = 16};
}

effect_config_t StereoConfig() {
  effect_config_t config{};
  for (buffer_config_t* const half : {&config.inputCfg, &config.outputCfg}) {
    half->samplingRate = 48000;
    half->channels = AUDIO_CHANNEL_OUT_STEREO;
    half->format = AUDIO_FORMAT_PCM_FLOAT;
    half->mask = EFFECT_CONFIG_ALL;
  }
  return config;
}

Effect::Effect() {
  if (const int32_t status = Library().create_effect(&kUuid, 1, 2, &handle_)) {
    throw std::runtime_error("the effect was not created: " + std::to_string(status));
  }
}

Effect::~Effect() {
  if (const int32_t status = Library().release_effect(handle_)) {
    std::fprintf(stderr, "the effect was not released: %d\n", status);
    std::abort();
  }
}

Reply Effect::Command(const Request& request, std::size_t offset) {
  // On the heap and no byte longer than declared, so that a sanitizer bites.
  const std::size_t data_size = request.data.size();
  const auto data = std::make_unique<char[]>(offset + data_size);
  request.data.copy(data.get() + offset, data_size);
  Reply reply{0, std::string(request.reply_room.value_or(request.reply_size), '\xAA'),
              request.reply_size};
  const auto room = std::make_unique<char[]>(offset + reply.bytes.size());
  reply.bytes.copy(room.get() + offset, reply.bytes.size());
  reply.result = (*handle_)->command(handle_, request.code,
                                     request.cmd_size.value_or(static_cast<uint32_t>(data_size)),
                                     request.null_data ? nullptr : data.get() + offset,
                                     request.null_reply_size ? nullptr : &reply.size,
                                     request.null_reply ? nullptr : room.get() + offset);
  reply.bytes.assign(room.get() + offset, reply.bytes.size());
  return reply;
}

void Effect::Status(const Request& request) {
  const Reply reply = Command(request);
  Require(reply.result == 0 && reply.status() == 0, request.code, reply);
}

void Effect::SetDevice(uint32_t device) { Status(DeviceRequest(device)); }

uint32_t Effect::Mode() {
  return Command({.code = EFFECT_CMD_GET_PARAM, .data = Param(kMode, ""), .reply_size = 20})
      .Word(16);
}

void Effect::SetText(uint32_t id, const std::string& value) {
  Status({.code = EFFECT_CMD_SET_PARAM, .data = Param(id, value)});
}

int32_t Effect::SetConfig(const effect_config_t& config) {
  const Reply reply = Command({.code = EFFECT_CMD_SET_CONFIG, .data = Bytes(config)});
  Require(reply.result == 0, EFFECT_CMD_SET_CONFIG, reply);
  return reply.status();
}

std::string Effect::Dump() {
  int ends[2];
  if (pipe(ends) != 0) {
    std::abort();
  }
  const Reply reply =
      Command({.code = EFFECT_CMD_DUMP, .data = Bytes(static_cast<uint32_t>(ends[1]))});
  close(ends[1]);
  std::array<char, 65536> text;
  std::string dump;
  while (const ssize_t count = read(ends[0], text.data(), text.size())) {
    dump.append(text.data(), static_cast<std::size_t>(count));
  }
  close(ends[0]);
  Require(reply.result == 0, EFFECT_CMD_DUMP, reply);
  return dump;
}

std::string Effect::Stages() {
  const std::string dump = Dump();
  std::string stages;
  for (const auto& [letter, name] :
       {std::pair{'P', "pass"}, {'M', "upmm"}, {'C', "upmc"}, {'E', "hpeq"}, {'L', "upl "}}) {
    const bool on = dump.find("[*] " + std::string(name)) != std::string::npos;
    const bool off = dump.find("[ ] " + std::string(name)) != std::string::npos;
    stages += on == off ? '?' : on ? letter : '-';
  }
  return stages;
}

int32_t Effect::Process(float* in, float* out, std::size_t frames) const {
  audio_buffer_t from{frames, {in}}, to{frames, {out}};
  return (*handle_)->process(handle_, &from, &to);
}

int32_t Effect::Process(const std::vector<float>& in, std::vector<float>* out, bool in_place) {
  std::vector<float> input = in;
  out->assign(in.size(), 12345.0f);
  input.reserve(1);  // a block of no frames has buffers, too
  out->reserve(1);
  float* const to = in_place ? input.data() : out->data();
  const int32_t result = Process(input.data(), to, in.size() / 2);
  if (in_place) {
    *out = input;
  }
  return result;
}

}  // namespace kelda::test
