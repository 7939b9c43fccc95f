// The three functions that the library for the AIDL effect service exports, and the instances that
// they make, with this test as the service's factory and as the base class's caller.
#include <android/log.h>
#include <cutils/properties.h>
#include <dlfcn.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <utility>

#include "effect-impl/EffectImpl.h"

namespace aidl::android::hardware::audio::effect {
namespace {

const media::AudioUuid kUuid{
    0x3f8a61c2, 0x9d47, 0x4b1e, 0x8c05, {0xd2, 0xe9, 0x7a, 0x4b, 0x6f, 0x10}};

class AidlTest : public testing::Test {
 protected:
  using Create = binder_exception_t(const media::AudioUuid*, std::shared_ptr<IEffect>*);
  using Query = binder_exception_t(const media::AudioUuid*, Descriptor*);
  using Destroy = binder_exception_t(const std::shared_ptr<IEffect>&);

  AidlTest() {
    property_set("vendor.kelda.effect", "1");
    __android_log_set_minimum_priority(ANDROID_LOG_FATAL);
    std::clog.setstate(std::ios::failbit);
    EXPECT_NE(library_, nullptr) << dlerror();
  }

  template <typename Function>
  Function* Exported(const char* name) const {
    return reinterpret_cast<Function*>(dlsym(library_, name));
  }

  std::shared_ptr<EffectImpl> MakeInstance() const {
    std::shared_ptr<IEffect> instance;
    EXPECT_EQ(create_(&kUuid, &instance), EX_NONE);
    return std::static_pointer_cast<EffectImpl>(instance);
  }

  // Not unloaded: the worker's thread ends by itself, but sanitizers report by address.
  void* const library_ = dlopen(LIBRARY, RTLD_NOW);
  Create* const create_ = Exported<Create>("createEffect");
  Query* const query_ = Exported<Query>("queryEffect");
  Destroy* const destroy_ = Exported<Destroy>("destroyEffect");
};

VendorExtension Vendor(std::vector<uint8_t> bytes) {
  return {{DefaultExtension{std::move(bytes)}}};
}

// An effect_param_t with an identifier and room for a value.
std::vector<uint8_t> Param(uint8_t id, const std::vector<uint8_t>& value) {
  std::vector<uint8_t> bytes(16 + value.size());
  bytes[4] = 4;
  bytes[8] = static_cast<uint8_t>(value.size());
  bytes[12] = id;
  std::copy(value.begin(), value.end(), bytes.begin() + 16);
  return bytes;
}

TEST_F(AidlTest, DescribesOneEffectAsTheRecordDoes) {
  EXPECT_EQ(dlsym(library_, "AELI"), nullptr) << "exported, too";
  Descriptor queried;
  ASSERT_EQ(query_(&kUuid, &queried), EX_NONE);
  for (const auto& instance : {MakeInstance(), MakeInstance()}) {
    Descriptor own;
    ASSERT_TRUE(instance->getDescriptor(&own).isOk());
    for (const Descriptor& descriptor : {queried, own}) {
      EXPECT_EQ(descriptor.common.id.uuid, kUuid);
      EXPECT_EQ(descriptor.common.id.type, kUuid);
      EXPECT_FALSE(descriptor.common.id.proxy.has_value());
      EXPECT_EQ(descriptor.common.flags, (Flags{Flags::Type::INSERT, Flags::Insert::FIRST, true}));
      EXPECT_EQ(descriptor.common.name, "Kelda Upmix");
      EXPECT_EQ(descriptor.common.implementor, "Orvane Corporation");
    }
    EXPECT_EQ(destroy_(instance), EX_NONE);
  }
}

TEST_F(AidlTest, IsUnknownByAnyOtherUuidAndWithoutItsProperty) {
  std::vector<media::AudioUuid> others(7, kUuid);
  others[0] = {};
  ++others[1].timeLow;
  ++others[2].timeMid;
  ++others[3].timeHiAndVersion;
  ++others[4].clockSeq;
  ++others[5].node[5];
  others[6].node.pop_back();
  std::shared_ptr<IEffect> instance;
  Descriptor descriptor;
  const auto is_unknown = [&](const media::AudioUuid* uuid) {
    return create_(uuid, &instance) == EX_ILLEGAL_ARGUMENT &&
           query_(uuid, &descriptor) == EX_ILLEGAL_ARGUMENT;
  };
  for (std::size_t i = 0; i < others.size(); ++i) {
    EXPECT_TRUE(is_unknown(&others[i])) << i;
  }
  EXPECT_TRUE(is_unknown(nullptr));
  for (const char* value : {"0", "2", ""}) {
    property_set("vendor.kelda.effect", value);
    EXPECT_TRUE(is_unknown(&kUuid)) << value;
  }
  EXPECT_EQ(instance, nullptr);
  EXPECT_EQ(descriptor.common.name, "");
  property_set("vendor.kelda.effect", "1");
  EXPECT_EQ(create_(&kUuid, nullptr), EX_ILLEGAL_ARGUMENT);
  EXPECT_EQ(query_(&kUuid, nullptr), EX_ILLEGAL_ARGUMENT);
}

TEST_F(AidlTest, OpensOnlyWhatItCanProcess) {
  const auto instance = MakeInstance();
  for (const int wrong : {0, 1, 2, 3, 4, 5}) {
    Parameter::Common common;
    (wrong == 0 ? common.input : common.output).base.channelMask.mask = wrong < 2 ? 0x3F : 3;
    common.input.base.sampleRate = wrong == 2 ? 8000 : 48000;
    common.input.base.format.pcm =
        wrong == 3 ? media::PcmType::INT_16_BIT : media::PcmType::FLOAT_32_BIT;
    common.output.base.channelMask.tag =
        wrong == 4 ? media::AudioChannelLayout::indexMask : media::AudioChannelLayout::layoutMask;
    common.output.frameCount = wrong == 5 ? 0 : 512;
    EXPECT_EQ(instance->createContext(common), nullptr) << wrong;
  }
  EXPECT_EQ(instance->commandImpl(CommandId::START).getExceptionCode(), EX_ILLEGAL_STATE);

  Parameter::Common common;
  ASSERT_NE(instance->createContext(common), nullptr);
  common.input.base.sampleRate = common.output.base.sampleRate = 44100;
  const auto context = instance->createContext(common);
  ASSERT_NE(context, nullptr);
  // A larger queue takes a reopening, which version 1 has not.
  Parameter::Common larger = common;
  ++larger.input.frameCount;
  const bool reopens = VERSION >= 2;
  EXPECT_EQ(context->setCommon(larger) == RetCode::SUCCESS, reopens);
  EXPECT_EQ(context->common_.input.frameCount, reopens ? 513 : 512);
  larger.input.base.sampleRate = 22050;
  EXPECT_NE(context->setCommon(larger), RetCode::SUCCESS);
  EXPECT_EQ(context->setOutputDevice({{136, "analog"}, {4, "bt-a2dp"}}), RetCode::SUCCESS);
  EXPECT_EQ(instance->releaseContext(), RetCode::SUCCESS);
  EXPECT_NE(context->setOutputDevice({}), RetCode::SUCCESS) << "closed";
}

TEST_F(AidlTest, TakesWholeParametersAndNoBareValues) {
  const auto instance = MakeInstance();
  const auto set = [&](VendorExtension vendor, Parameter::Specific::Tag tag = {}) {
    return instance->setParameterSpecific({tag, std::move(vendor)}).getExceptionCode();
  };
  const auto get = [&](VendorExtension vendor, Parameter::Id::Tag tag = {}) {
    Parameter::Specific specific{Parameter::Specific::equalizer, {}};
    const auto code = instance->getParameterSpecific({tag, std::move(vendor)}, &specific);
    EXPECT_EQ(code.isOk(), specific.tag == Parameter::Specific::vendorEffect);
    return std::pair(code.getExceptionCode(),
                     specific.vendor.extension.held.value_or(DefaultExtension{}).bytes);
  };
  const std::vector<uint8_t> cinema = Param(0, {2, 0, 0, 0}), mode = Param(0, {0, 0, 0, 0});
  EXPECT_EQ(set(Vendor(cinema)), EX_ILLEGAL_STATE);
  ASSERT_NE(instance->createContext({}), nullptr);
  EXPECT_EQ(set(Vendor(cinema)), EX_NONE);
  EXPECT_EQ(get(Vendor(mode)), std::pair(EX_NONE, cinema));
  // The value alone, as Android 14's first releases pass it, of the mode and of an application.
  const std::string application = "com.example.player&1";
  for (const std::vector<uint8_t>& value :
       {std::vector<uint8_t>{1, 0, 0, 0}, {application.begin(), application.end()}, {}}) {
    EXPECT_EQ(set(Vendor(value)), EX_ILLEGAL_ARGUMENT);
    EXPECT_EQ(get(Vendor(value)).first, EX_ILLEGAL_ARGUMENT);
  }
  // What is no parameter of this effect at all.
  VendorExtension other = Vendor(Param(0, {1, 0, 0, 0}));
  other.extension.of_another_kind = true;
  for (const VendorExtension& vendor : {other, VendorExtension{}}) {
    EXPECT_EQ(set(vendor), EX_ILLEGAL_ARGUMENT);
    EXPECT_EQ(get(vendor).first, EX_ILLEGAL_ARGUMENT);
  }
  EXPECT_EQ(set(Vendor(cinema), Parameter::Specific::equalizer), EX_ILLEGAL_ARGUMENT);
  EXPECT_EQ(get(Vendor(mode), Parameter::Id::equalizerTag).first, EX_ILLEGAL_ARGUMENT);
  EXPECT_EQ(get(Vendor(mode)), std::pair(EX_NONE, cinema)) << "one of them set something";
  // An opening begins anew, after one that failed in the base class, too.
  ASSERT_NE(instance->createContext({}), nullptr);
  EXPECT_EQ(get(Vendor(mode)), std::pair(EX_NONE, mode));
}

TEST_F(AidlTest, ProcessesBlocksInTwoInstancesAgainAndAgain) {
  for (int round = 0; round < 20; ++round) {
    const auto left = MakeInstance(), right = MakeInstance();
    for (const auto& instance : {left, right}) {
      ASSERT_NE(instance->createContext({}), nullptr);
      ASSERT_TRUE(instance->commandImpl(CommandId::START).isOk());
    }
    // Switched off: what goes in comes out, once, 1167 frames later.
    for (int block = 0; block < 4; ++block) {
      float samples[1024] = {};
      samples[0] = block == 0 ? 0.5f : 0.0f;
      EXPECT_EQ(left->effectProcessImpl(samples, samples, 1024), (IEffect::Status{0, 1024, 1024}));
      for (int frame = 0; frame < 512; ++frame) {
        EXPECT_EQ(samples[2 * frame], block * 512 + frame == 1167 ? 0.5f : 0.0f);
      }
    }
    float half[3] = {1, 2, 3};
    EXPECT_EQ(right->effectProcessImpl(half, half, 3), (IEffect::Status{-EINVAL, 0, 0}));
    ASSERT_TRUE(right->commandImpl(CommandId::RESET).isOk());
    EXPECT_EQ(right->effectProcessImpl(half, half, 2), (IEffect::Status{-ENODATA, 0, 0}));
    int pipes[2];
    ASSERT_EQ(pipe(pipes), 0);
    EXPECT_EQ(left->dump(pipes[1], nullptr, 0), STATUS_OK);
    char report[4096];
    EXPECT_GT(read(pipes[0], report, sizeof(report)), 0);
    close(pipes[0]);
    EXPECT_NE(left->dump(pipes[0], nullptr, 0), STATUS_OK);
    close(pipes[1]);
    ASSERT_TRUE(left->commandImpl(CommandId::STOP).isOk());
    EXPECT_EQ(destroy_(left), EX_NONE);
  }
}

}  // namespace
}  // namespace aidl::android::hardware::audio::effect
