// The effect as tests, fuzz targets and benchmarks drive it: through its library's record, with
// any command, well-formed or not, and every buffer of exactly the size that is declared. A host
// that makes no mistakes is tools/framework/effect_session.h.
#ifndef KELDA_TESTS_LABORATORY_EFFECT_CLIENT_H_
#define KELDA_TESTS_LABORATORY_EFFECT_CLIENT_H_

#include <hardware/audio_effect.h>

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace kelda::test {

// The record of the library under test: the one that the program is linked to, unless the
// program defines this function itself.
const audio_effect_library_t& Library();

inline constexpr audio_uuid_t kUuid = {
    0x3f8a61c2, 0x9d47, 0x4b1e, 0x8c05, {0xd2, 0xe9, 0x7a, 0x4b, 0x6f, 0x10}};

// The effect's parameters.
enum ParamId : uint32_t {
  kMode = 0,
  kWiredHrtf = 1,
  kBluetoothHrtf = 2,
  kReloadTunedAppList = 3,
  kAppPackage = 10
};

// One call of the command entry.
struct Request {
  uint32_t code;
  std::string data{};
  std::optional<uint32_t> cmd_size{};  // that of `data`, unless given
  bool null_data = false;
  uint32_t reply_size = 4;
  std::optional<uint32_t> reply_room{};  // reply_size, unless given
  bool null_reply = false;
  bool null_reply_size = false;
};

struct Reply {
  int32_t result;
  std::string bytes;  // the whole room; 0xAA where nothing was written
  uint32_t size;

  uint32_t Word(std::size_t offset = 0) const;
  int32_t status() const { return static_cast<int32_t>(Word()); }
  bool untouched() const { return bytes.find_first_not_of('\xAA') == std::string::npos; }
};

std::string Bytes(uint32_t word);
std::string Bytes(const effect_config_t& config);
// The payload of a set or get parameter command.
std::string Param(uint32_t id, const std::string& value, std::optional<uint32_t> vsize = {},
                  uint32_t psize = 4);
// The command with 16 bytes, of which it declares the device's four.
Request DeviceRequest(uint32_t device, const std::string& tail = std::string(12, 'd'));
// float stereo at 48 kHz.
effect_config_t StereoConfig();

// One instance. Create, and the commands that are named after what they do, throw
// std::runtime_error with the command and its answer if they are not accepted; a release that
// fails ends the program.
class Effect {
 public:
  Effect();
  // Takes over an instance of Library()'s.
  explicit Effect(effect_handle_t handle) : handle_(handle) {}
  ~Effect();
  Effect(const Effect&) = delete;
  Effect& operator=(const Effect&) = delete;

  effect_handle_t handle() const { return handle_; }

  // `offset` shifts payload and reply away from their natural alignment.
  Reply Command(const Request& request, std::size_t offset = 0);

  void Init() { Status({.code = EFFECT_CMD_INIT}); }
  void Enable() { Status({.code = EFFECT_CMD_ENABLE}); }
  void Disable() { Status({.code = EFFECT_CMD_DISABLE}); }
  void Reset() { Command({.code = EFFECT_CMD_RESET}); }
  void SetDevice(uint32_t device);
  void SetParam(uint32_t id, uint32_t value) { SetText(id, Bytes(value)); }
  void SetText(uint32_t id, const std::string& value);
  void SetMode(uint32_t mode) { SetParam(kMode, mode); }
  uint32_t Mode();
  // Returns the status in the reply.
  int32_t SetConfig(const effect_config_t& config);
  std::string Dump();
  // One letter for each stage, '-' for those that are off: P pass-through, M music,
  // C cinema, E equalizer, L level control.
  std::string Stages();

  // Processes `frames` interleaved stereo frames; `in` and `out` may be the same.
  int32_t Process(float* in, float* out, std::size_t frames) const;
  // Processes a block of interleaved stereo and returns the output; in place on request.
  int32_t Process(const std::vector<float>& in, std::vector<float>* out, bool in_place = false);

 private:
  void Status(const Request& request);

  effect_handle_t handle_ = nullptr;
};

}  // namespace kelda::test

#endif  // KELDA_TESTS_LABORATORY_EFFECT_CLIENT_H_
