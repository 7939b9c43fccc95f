// What the platform's AIDL effect service loads: the effect over the platform's own EffectImpl,
// EffectContext and EffectThread, in one source for the versions 1 to 3 of
// android.hardware.audio.effect. It translates between the interface's types and hal/session.h.
#include <aidl/android/hardware/audio/effect/DefaultExtension.h>
#include <unistd.h>

#include <iterator>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

#include "effect-impl/EffectImpl.h"
#include "effect/interface_table.h"
#include "hal/session.h"

extern "C" audio_effect_library_t AUDIO_EFFECT_LIBRARY_INFO_SYM;

namespace aidl::android::hardware::audio::effect {
namespace {

namespace common = ::aidl::android::media::audio::common;
namespace hal = ::kelda::hal;
using ::kelda::kDescriptor;
using ::ndk::ScopedAStatus;

common::AudioUuid ToUuid(const audio_uuid_t& uuid) {
  common::AudioUuid converted;
  converted.timeLow = static_cast<int32_t>(uuid.timeLow);
  converted.timeMid = uuid.timeMid;
  converted.timeHiAndVersion = uuid.timeHiAndVersion;
  converted.clockSeq = uuid.clockSeq;
  converted.node.assign(std::begin(uuid.node), std::end(uuid.node));
  return converted;
}

// That of the record.
Descriptor MakeDescriptor() {
  Descriptor descriptor;
  descriptor.common.id.type = ToUuid(kDescriptor.type);
  descriptor.common.id.uuid = ToUuid(kDescriptor.uuid);
  descriptor.common.flags.type = Flags::Type::INSERT;
  descriptor.common.flags.insert = Flags::Insert::FIRST;
  descriptor.common.flags.deviceIndication = true;
  descriptor.common.name = kDescriptor.name;
  descriptor.common.implementor = kDescriptor.implementor;
  return descriptor;
}

hal::AudioConfig ToConfig(const common::AudioConfig& config) {
  using Layout = common::AudioChannelLayout;
  const Layout& layout = config.base.channelMask;
  const bool is_mask = layout.getTag() == Layout::layoutMask;
  return {.sample_rate_hz = config.base.sampleRate,
          .channel_mask = is_mask ? static_cast<uint32_t>(layout.get<Layout::layoutMask>()) : 0,
          .is_float = config.base.format.type == common::AudioFormatType::PCM &&
                      config.base.format.pcm == common::PcmType::FLOAT_32_BIT,
          .frame_count = config.frameCount};
}

hal::Common ToCommon(const Parameter::Common& common) {
  return {common.session, common.ioHandle, ToConfig(common.input), ToConfig(common.output)};
}

RetCode ToRetCode(hal::Status status) {
  return status == hal::Status::Ok ? RetCode::SUCCESS : RetCode::ERROR_ILLEGAL_PARAMETER;
}

ScopedAStatus ToStatus(hal::Status status) {
  constexpr binder_exception_t kExceptions[] = {EX_NONE, EX_ILLEGAL_STATE, EX_ILLEGAL_ARGUMENT,
                                                EX_UNSUPPORTED_OPERATION};
  return ScopedAStatus::fromExceptionCode(kExceptions[static_cast<int>(status)]);
}

// The bytes of one of the effect's own parameters, or of its identifier.
template <auto kTag, typename Union>
std::optional<DefaultExtension> BytesOf(const Union& parameter) {
  std::optional<DefaultExtension> bytes;
  if (parameter.getTag() != kTag ||
      parameter.template get<kTag>().extension.getParcelable(&bytes) != STATUS_OK) {
    bytes.reset();
  }
  return bytes;
}

// The session of an instance. The base classes of later trees lock calls, but not the dump; those
// of Android 14's first releases lock nothing.
class LockedSession {
 public:
  template <typename Call>
  auto Control(Call call) {
    const std::lock_guard lock(control_);
    return call(session_);
  }

  hal::BlockResult Process(const float* in, float* out, int samples) {
    const std::lock_guard lock(audio_);
    return session_.Process(in, out, static_cast<std::size_t>(samples));
  }

  hal::Status SetCommon(const Parameter::Common& common) {
    const std::lock_guard lock(audio_);
    return Control([&](hal::Session& session) { return session.SetCommon(ToCommon(common)); });
  }

 private:
  hal::Session session_{hal::SharedWorker(AUDIO_EFFECT_LIBRARY_INFO_SYM), {}};
  std::mutex control_;  // taken after audio_
  std::mutex audio_;
};

// The queues of an open instance, and the parameters that the getters give back.
class Context final : public EffectContext {
 public:
  Context(const Parameter::Common& common, LockedSession* session)
      : EffectContext(1 /* depth of the status queue */, common),
        opened_(common),
        session_(*session) {}

  RetCode setCommon(const Parameter::Common& common) override {
    // Version 1 has no reopen, so its queues stay as they are.
    if (IEffect::version < 2 && (common.input.frameCount > opened_.input.frameCount ||
                                 common.output.frameCount > opened_.output.frameCount)) {
      LOG(ERROR) << __func__ << ": the queues hold fewer frames; close and open";
      return RetCode::ERROR_ILLEGAL_PARAMETER;
    }
    const hal::Status status = session_.SetCommon(common);
    return status == hal::Status::Ok ? EffectContext::setCommon(common) : ToRetCode(status);
  }

  RetCode setOutputDevice(const std::vector<common::AudioDeviceDescription>& devices) override {
    std::vector<hal::DeviceDescription> converted;
    for (const common::AudioDeviceDescription& device : devices) {
      converted.push_back({static_cast<hal::DeviceType>(device.type), device.connection});
    }
    const hal::Status status =
        session_.Control([&](hal::Session& session) { return session.SetDevices(converted); });
    return status == hal::Status::Ok ? EffectContext::setOutputDevice(devices) : ToRetCode(status);
  }

 private:
  const Parameter::Common opened_;
  LockedSession& session_;
};

class KeldaUpmixAidl final : public EffectImpl {
 public:
  ~KeldaUpmixAidl() override { cleanUp(); }

  ScopedAStatus getDescriptor(Descriptor* descriptor) override {
    *descriptor = MakeDescriptor();
    return ScopedAStatus::ok();
  }

  std::string getEffectName() override { return kDescriptor.name; }

  // The session looks at the formats first: the platform's context ends the process for those that
  // it cannot hold. It is still open if the last opening failed in the base class.
  std::shared_ptr<EffectContext> createContext(const Parameter::Common& common) override {
    const hal::Status status = session_.Control([&](hal::Session& session) {
      session.Close();
      return session.Open(ToCommon(common));
    });
    context_ = status == hal::Status::Ok ? std::make_shared<Context>(common, &session_) : nullptr;
    return context_;
  }

  RetCode releaseContext() override {
    context_.reset();
    return ToRetCode(session_.Control([](hal::Session& session) { return session.Close(); }));
  }

  // Overrides what Android 14's first releases ask for, and no other base class has.
  std::shared_ptr<EffectContext> getContext() { return context_; }

  // Comes while the audio thread is out.
  ScopedAStatus commandImpl(CommandId id) override {
    if (id == CommandId::RESET) {
      context_->resetBuffer();
    }
    return ToStatus(session_.Control(
        [id](hal::Session& session) { return session.Do(static_cast<hal::Command>(id)); }));
  }

  // Android 14's first releases pass the value alone. Which parameter it is for cannot be told, and
  // the session refuses it: it is too short for an effect_param_t, or does not begin like one.
  ScopedAStatus setParameterSpecific(const Parameter::Specific& specific) override {
    const auto bytes = BytesOf<Parameter::Specific::vendorEffect>(specific);
    RETURN_IF(!bytes.has_value(), EX_ILLEGAL_ARGUMENT, "notAnEffectParam");
    return ToStatus(session_.Control(
        [&](hal::Session& session) { return session.SetParameter(bytes->bytes); }));
  }

  ScopedAStatus getParameterSpecific(const Parameter::Id& id,
                                     Parameter::Specific* specific) override {
    const auto bytes = BytesOf<Parameter::Id::vendorEffectTag>(id);
    RETURN_IF(!bytes.has_value(), EX_ILLEGAL_ARGUMENT, "notAnEffectParam");
    DefaultExtension answer;
    const hal::Status status = session_.Control(
        [&](hal::Session& session) { return session.GetParameter(bytes->bytes, &answer.bytes); });
    VendorExtension vendor;
    if (status == hal::Status::Ok) {
      vendor.extension.setParcelable(answer);
      specific->set<Parameter::Specific::vendorEffect>(vendor);
    }
    return ToStatus(status);
  }

  IEffect::Status effectProcessImpl(float* in, float* out, int samples) override {
    const hal::BlockResult block = session_.Process(in, out, samples);
    return {block.status, block.consumed, block.produced};
  }

  binder_status_t dump(int descriptor, const char** /*arguments*/, uint32_t /*count*/) override {
    const std::string report =
        session_.Control([](const hal::Session& session) { return session.Report(); });
    return write(descriptor, report.data(), report.size()) < 0 ? STATUS_UNKNOWN_ERROR : STATUS_OK;
  }

 private:
  LockedSession session_;
  std::shared_ptr<Context> context_;  // from open to close
};

// Without its property the effect is as unknown as any other UUID.
bool IsOffered(const common::AudioUuid* uuid) {
  const bool offered = uuid != nullptr && *uuid == ToUuid(kDescriptor.uuid) && hal::Offered();
  LOG_IF(ERROR, !offered) << "not the UUID of " << kDescriptor.name
                          << ", or vendor.kelda.effect is not 1";
  return offered;
}

}  // namespace
}  // namespace aidl::android::hardware::audio::effect

namespace aidl_effect = aidl::android::hardware::audio::effect;

// What the service calls; destroyEffect comes with EffectImpl.
extern "C" binder_exception_t createEffect(const aidl_effect::common::AudioUuid* uuid,
                                           std::shared_ptr<aidl_effect::IEffect>* instance) {
  if (!aidl_effect::IsOffered(uuid) || instance == nullptr) {
    return EX_ILLEGAL_ARGUMENT;
  }
  *instance = ndk::SharedRefBase::make<aidl_effect::KeldaUpmixAidl>();
  return EX_NONE;
}

extern "C" binder_exception_t queryEffect(const aidl_effect::common::AudioUuid* uuid,
                                          aidl_effect::Descriptor* descriptor) {
  if (!aidl_effect::IsOffered(uuid) || descriptor == nullptr) {
    return EX_ILLEGAL_ARGUMENT;
  }
  *descriptor = aidl_effect::MakeDescriptor();
  return EX_NONE;
}
