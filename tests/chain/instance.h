#ifndef KELDA_TESTS_CHAIN_INSTANCE_H_
#define KELDA_TESTS_CHAIN_INSTANCE_H_

#include <cutils/properties.h>
#include <gtest/gtest.h>
#include <hardware/audio_effect.h>

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <string>
#include <vector>

extern "C" audio_effect_library_t AELI;

namespace kelda::test {

// The effect's parameters.
enum Param : uint32_t { kMode = 0, kWiredHrtf = 1, kBluetoothHrtf = 2, kAppPackage = 10 };

// One instance of the effect, called as the framework calls it. Its tuning is what
// KELDA_DATA_DIR names. Every command is expected to succeed.
class Instance {
 public:
  Instance() {
    property_set("vendor.kelda.effect", "1");
    const audio_uuid_t uuid = {
        0x3f8a61c2, 0x9d47, 0x4b1e, 0x8c05, {0xd2, 0xe9, 0x7a, 0x4b, 0x6f, 0x10}};
    EXPECT_EQ(AELI.create_effect(&uuid, 0, 0, &effect_), 0);
  }
  Instance(const Instance&) = delete;
  Instance& operator=(const Instance&) = delete;
  ~Instance() { AELI.release_effect(effect_); }

  void Command(uint32_t code, std::vector<uint32_t> words = {}, std::size_t bytes = 0) const {
    int32_t reply[4] = {-1};
    uint32_t reply_size = sizeof(int32_t);
    EXPECT_EQ((*effect_)->command(effect_, code, static_cast<uint32_t>(bytes), words.data(),
                                  &reply_size, reply),
              0);
    EXPECT_EQ(reply[0], code == EFFECT_CMD_RESET ? -1 : 0);
  }
  void SetParam(Param param, uint32_t value) const {
    Command(EFFECT_CMD_SET_PARAM, {0, sizeof(param), sizeof(value), param, value}, 20);
  }
  void SetText(Param param, const std::string& value) const {
    std::vector<uint32_t> words = {0, sizeof(param), static_cast<uint32_t>(value.size()), param};
    words.resize(words.size() + (value.size() + 3) / 4);
    std::memcpy(&words[4], value.data(), value.size());
    Command(EFFECT_CMD_SET_PARAM, words, 16 + value.size());
  }
  void SetDevice(uint32_t device) const {
    Command(EFFECT_CMD_SET_DEVICE, {device, 0, 0, 0}, sizeof(device));
  }

  // `frames` interleaved stereo frames; in and out may be the same.
  int32_t Process(float* in, float* out, std::size_t frames) const {
    audio_buffer_t from{frames, {in}}, to{frames, {out}};
    return (*effect_)->process(effect_, &from, &to);
  }

 private:
  effect_handle_t effect_ = nullptr;
};

}  // namespace kelda::test

#endif  // KELDA_TESTS_CHAIN_INSTANCE_H_
