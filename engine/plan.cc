#include "engine/plan.h"

#include <iterator>

namespace kelda {
namespace {

using namespace tuning_file;

constexpr Parameter kParameters[kParameterSets][4] = {
    {{parameter_key::kLevel, kMusicLevel.name}},
    {{parameter_key::kLevel, kCinemaLevel.name}},
    {{parameter_key::kHki, kWiredHki.name},
     {parameter_key::kBa, nullptr},
     {parameter_key::kMusic, kStandardMusic.name},
     {parameter_key::kCinema, kStandardCinema.name}},
    {{parameter_key::kHki, kWiredHki.name},
     {parameter_key::kBa, kWiredBa.name},
     {parameter_key::kMusic, kPersonalizedMusic.name},
     {parameter_key::kCinema, kPersonalizedCinema.name}},
    {{parameter_key::kHki, kBluetoothHki.name},
     {parameter_key::kBa, nullptr},
     {parameter_key::kMusic, kStandardMusic.name},
     {parameter_key::kCinema, kStandardCinema.name}},
    {{parameter_key::kHki, kBluetoothHki.name},
     {parameter_key::kBa, kBluetoothBa.name},
     {parameter_key::kMusic, kPersonalizedMusic.name},
     {parameter_key::kCinema, kPersonalizedCinema.name}},
};

// Stages are switched off before others are switched on. Only the equalizer may stay on.
std::optional<ModeChange> ChangeTo(UpmixMode mode, bool equalizer) {
  switch (mode) {
    case UpmixMode::Off:
      // Takes effect at once: nothing is faded and nothing is loaded.
      return ModeChange{{{{Stage::Music, false},
                          {Stage::Cinema, false},
                          {Stage::HeadphoneEqualizer, false},
                          {Stage::LevelControl, false},
                          {Stage::PassThrough, true}}},
                        /*fade=*/false,
                        std::nullopt};
    case UpmixMode::Music:
      return ModeChange{{{{Stage::PassThrough, false},
                          {Stage::Cinema, false},
                          {Stage::Music, true},
                          {Stage::HeadphoneEqualizer, equalizer},
                          {Stage::LevelControl, true}}},
                        /*fade=*/true,
                        ParameterSet::MusicLevel};
    case UpmixMode::Cinema:
      return ModeChange{{{{Stage::PassThrough, false},
                          {Stage::Music, false},
                          {Stage::Cinema, true},
                          {Stage::HeadphoneEqualizer, equalizer},
                          {Stage::LevelControl, true}}},
                        /*fade=*/true,
                        ParameterSet::CinemaLevel};
    default:
      return std::nullopt;
  }
}

ParameterSet HeadphoneFiles(bool wired, bool personalized) {
  if (wired) {
    return personalized ? ParameterSet::WiredPersonalized : ParameterSet::WiredStandard;
  }
  return personalized ? ParameterSet::BluetoothPersonalized : ParameterSet::BluetoothStandard;
}

}  // namespace

std::span<const Parameter> ParametersOf(ParameterSet set) {
  const auto& parameters = kParameters[static_cast<std::size_t>(set)];
  std::size_t count = 0;
  while (count < std::size(parameters) && parameters[count].key != nullptr) {
    ++count;
  }
  return std::span(parameters).first(count);
}

Plan MakePlan(const EngineSettings& settings, UpmixMode running, Changed changed) {
  const bool headphone = settings.device != AudioDeviceType::Other;
  const bool wired = settings.device == AudioDeviceType::Wired;
  const HrtfType hrtf = wired ? settings.wired_hrtf : settings.bluetooth_hrtf;
  const bool personalized = headphone && hrtf == HrtfType::Personalized;
  Plan plan{running, std::nullopt, std::nullopt};
  if (changed != Changed::Hrtf) {
    const UpmixMode wanted =
        settings.requested_mode == UpmixMode::Auto ? settings.app_mode : settings.requested_mode;
    plan.mode = headphone ? wanted : UpmixMode::Off;
    if (plan.mode != running) {
      plan.mode_change = ChangeTo(plan.mode, personalized);
    }
  }
  // In every mode: with a personalized HRTF the headphone's equalizer also runs while the upmix
  // is off, until the next change to Off or to another HRTF.
  if (changed != Changed::Mode && headphone) {
    plan.headphone = HeadphoneChange{personalized, HeadphoneFiles(wired, personalized)};
  }
  return plan;
}

}  // namespace kelda
