// In the place of the tree's headers: as much of android.hardware.audio.effect and of the
// platform's EffectImpl as the skin uses, for the version VERSION, without queues and threads.
// Below version 2 the base class is that of Android 14's first releases.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <iostream>
#include <memory>
#include <optional>
#include <string>
#include <variant>
#include <vector>

using binder_status_t = int32_t;
using binder_exception_t = int32_t;
inline constexpr binder_status_t STATUS_OK = 0, STATUS_UNKNOWN_ERROR = -2147483647 - 1;
inline constexpr binder_exception_t EX_NONE = 0, EX_ILLEGAL_ARGUMENT = -3, EX_ILLEGAL_STATE = -5,
                                    EX_UNSUPPORTED_OPERATION = -7;

#define LOG(severity) std::clog
#define LOG_IF(severity, condition) \
  if (condition) std::clog
#define RETURN_IF(condition, exception, message)                                     \
  if (condition) {                                                                   \
    return ndk::ScopedAStatus::fromExceptionCodeWithMessage((exception), (message)); \
  }

namespace ndk {

class ScopedAStatus {
 public:
  static ScopedAStatus ok() { return {}; }
  static ScopedAStatus fromExceptionCode(binder_exception_t code) {
    return fromExceptionCodeWithMessage(code, "");
  }
  static ScopedAStatus fromExceptionCodeWithMessage(binder_exception_t code, const char*) {
    ScopedAStatus status;
    status.code_ = code;
    return status;
  }
  bool isOk() const { return code_ == EX_NONE; }
  binder_exception_t getExceptionCode() const { return code_; }

 private:
  binder_exception_t code_ = EX_NONE;
};

struct SharedRefBase {
  template <typename Type>
  static std::shared_ptr<Type> make() {
    return std::make_shared<Type>();
  }
};

}  // namespace ndk

namespace aidl::android::media::audio::common {

struct AudioUuid {
  int32_t timeLow = 0, timeMid = 0, timeHiAndVersion = 0, clockSeq = 0;
  std::vector<uint8_t> node;
  bool operator==(const AudioUuid&) const = default;
};

enum class AudioFormatType : int8_t { DEFAULT = 0, PCM = 1 };
enum class PcmType : int8_t { INT_16_BIT = 1, FLOAT_32_BIT = 4 };
struct AudioFormatDescription {
  AudioFormatType type = AudioFormatType::PCM;
  PcmType pcm = PcmType::FLOAT_32_BIT;
};

struct AudioChannelLayout {
  enum Tag : int32_t { none, invalid, indexMask, layoutMask };
  Tag getTag() const { return tag; }
  template <Tag>
  int32_t get() const {
    return mask;
  }
  Tag tag = layoutMask;
  int32_t mask = 3;
};

struct AudioConfig {
  struct {
    int32_t sampleRate = 48000;
    AudioChannelLayout channelMask;
    AudioFormatDescription format;
  } base;
  int64_t frameCount = 512;
};

struct AudioDeviceDescription {
  int32_t type = 0;
  std::string connection;
};

}  // namespace aidl::android::media::audio::common

namespace aidl::android::hardware::audio::effect {

namespace media = ::aidl::android::media::audio::common;

struct Flags {
  enum class Type : int8_t { INSERT = 0, AUXILIARY = 1 };
  enum class Insert : int8_t { ANY = 0, FIRST = 1 };
  Type type = Type::AUXILIARY;
  Insert insert = Insert::ANY;
  bool deviceIndication = false;
  bool operator==(const Flags&) const = default;
};

struct Descriptor {
  struct {
    struct {
      media::AudioUuid type, uuid;
      std::optional<media::AudioUuid> proxy;
    } id;
    Flags flags;
    std::string name, implementor;
  } common;
};

struct DefaultExtension {
  std::vector<uint8_t> bytes;
};

// With what a parcel of another kind gives, too.
struct VendorExtension {
  struct {
    binder_status_t getParcelable(std::optional<DefaultExtension>* value) const {
      *value = held;
      return of_another_kind ? STATUS_UNKNOWN_ERROR : STATUS_OK;
    }
    binder_status_t setParcelable(const DefaultExtension& value) {
      held = value;
      return STATUS_OK;
    }
    std::optional<DefaultExtension> held;
    bool of_another_kind = false;
  } extension;
};

struct Parameter {
  struct Common {
    int32_t session = 0, ioHandle = 0;
    media::AudioConfig input, output;
  };
  // Unions of which the effect knows one member.
  struct Specific {
    enum Tag : int32_t { vendorEffect, equalizer };
    Tag getTag() const { return tag; }
    template <Tag>
    const VendorExtension& get() const {
      return vendor;
    }
    template <Tag kTag>
    void set(const VendorExtension& value) {
      tag = kTag;
      vendor = value;
    }
    Tag tag = vendorEffect;
    VendorExtension vendor;
  };
  struct Id {
    enum Tag : int32_t { vendorEffectTag, equalizerTag };
    Tag getTag() const { return tag; }
    template <Tag>
    const VendorExtension& get() const {
      return vendor;
    }
    Tag tag = vendorEffectTag;
    VendorExtension vendor;
  };
};

enum class CommandId : int32_t { START, STOP, RESET };
enum class State : int8_t { INIT, IDLE, PROCESSING };
enum class RetCode { SUCCESS, ERROR_ILLEGAL_PARAMETER };

struct IEffect {
  static constexpr int32_t version = VERSION;
  struct Status {
    int32_t status = 0, fmqConsumed = 0, fmqProduced = 0;
    bool operator==(const Status&) const = default;
  };
  virtual ~IEffect() = default;
  virtual binder_status_t dump(int descriptor, const char** arguments, uint32_t count) = 0;
};

class EffectContext {
 public:
  EffectContext(std::size_t, const Parameter::Common& common) : common_(common) {}
  virtual ~EffectContext() = default;
  virtual RetCode setCommon(const Parameter::Common& common) {
    common_ = common;
    return RetCode::SUCCESS;
  }
  virtual RetCode setOutputDevice(const std::vector<media::AudioDeviceDescription>&) {
    return RetCode::SUCCESS;
  }
  void resetBuffer() { ++resets; }

  int resets = 0;
  Parameter::Common common_;
};

class EffectImpl : public IEffect {
 public:
  virtual ndk::ScopedAStatus getDescriptor(Descriptor* descriptor) = 0;
  virtual std::string getEffectName() = 0;
  virtual std::shared_ptr<EffectContext> createContext(const Parameter::Common& common) = 0;
#if VERSION < 2
  virtual std::shared_ptr<EffectContext> getContext() = 0;
#endif
  virtual RetCode releaseContext() = 0;
  virtual ndk::ScopedAStatus commandImpl(CommandId id) = 0;
  virtual ndk::ScopedAStatus setParameterSpecific(const Parameter::Specific& specific) = 0;
  virtual ndk::ScopedAStatus getParameterSpecific(const Parameter::Id& id,
                                                  Parameter::Specific* specific) = 0;
  virtual IEffect::Status effectProcessImpl(float* in, float* out, int samples) = 0;

 protected:
  void cleanUp() { releaseContext(); }
};

}  // namespace aidl::android::hardware::audio::effect

extern "C" binder_exception_t destroyEffect(
    const std::shared_ptr<aidl::android::hardware::audio::effect::IEffect>& instance) {
  return instance == nullptr ? EX_ILLEGAL_ARGUMENT : EX_NONE;
}
