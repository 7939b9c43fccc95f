// What a tuning directory holds and which stage of the chain loads it. The engine, the stages
// and the tools all use these tables.
#ifndef KELDA_SETTINGS_TUNING_DIRECTORY_H_
#define KELDA_SETTINGS_TUNING_DIRECTORY_H_

#include <array>
#include <cstddef>

#include "platform/log.h"

namespace kelda {

// The stages, in the chain's order.
enum class Stage { PassThrough, Music, Cinema, HeadphoneEqualizer, LevelControl };

struct StageFacts {
  const char* name;     // in the report of the chain
  const char* log_tag;  // of the lines that it logs; null if it logs none
  const char* title;
};

inline constexpr std::array<StageFacts, 5> kStages = {{
    {"pass", nullptr, "pass-through"},
    {"upmm", log_tag::kMusic, "music upmix"},
    {"upmc", log_tag::kCinema, "cinema upmix"},
    {"hpeq", log_tag::kEqualizer, "headphone equalizer"},
    {"upl", log_tag::kLevelControl, "level control"},
}};

constexpr const StageFacts& FactsOf(Stage stage) {
  return kStages[static_cast<std::size_t>(stage)];
}

// The keys of the settings that say which files the stages load.
namespace parameter_key {
inline constexpr char kHki[] = "ap_param_hki_config";  // the music and the cinema stage
inline constexpr char kBa[] = "ap_param_ba_config";    // the headphone equalizer
inline constexpr char kMusic[] = "music_param_bin_file";
inline constexpr char kCinema[] = "cinema_param_bin_file";
inline constexpr char kLevel[] = "upl_param_bin_file";
}  // namespace parameter_key

enum class TuningFileKind {
  HkiConfig,  // names a set of HRIRs
  BaConfig,   // names a headphone equalizer
  MusicParameters,
  CinemaParameters,
  LevelParameters,
  AppList,
};

struct TuningFile {
  const char* name;
  TuningFileKind kind;
  const char* title;  // what it is for, in the tools' texts
};

namespace tuning_file {
inline constexpr TuningFile kAppList = {"tunedapp_list", TuningFileKind::AppList,
                                        "in auto, which applications get which mode"};
inline constexpr TuningFile kWiredHki = {"wired.hki.config", TuningFileKind::HkiConfig,
                                         "the ears of wired outputs"};
inline constexpr TuningFile kBluetoothHki = {"bluetooth.hki.config", TuningFileKind::HkiConfig,
                                             "the ears of bluetooth outputs"};
inline constexpr TuningFile kWiredBa = {
    "wired.ba.config", TuningFileKind::BaConfig,
    "the headphone equalizer of wired outputs, for personalized ears"};
inline constexpr TuningFile kBluetoothBa = {
    "bluetooth.ba.config", TuningFileKind::BaConfig,
    "the headphone equalizer of bluetooth outputs, for personalized ears"};
inline constexpr TuningFile kStandardMusic = {
    "upmix.music.hps.bin", TuningFileKind::MusicParameters, "music for standard ears"};
inline constexpr TuningFile kPersonalizedMusic = {
    "upmix.music.hpp.bin", TuningFileKind::MusicParameters, "music for personalized ears"};
inline constexpr TuningFile kStandardCinema = {
    "upmix.cinema.hps.bin", TuningFileKind::CinemaParameters, "cinema for standard ears"};
inline constexpr TuningFile kPersonalizedCinema = {
    "upmix.cinema.hpp.bin", TuningFileKind::CinemaParameters, "cinema for personalized ears"};
inline constexpr TuningFile kMusicLevel = {"upl.music.bin", TuningFileKind::LevelParameters,
                                           "the level of music"};
inline constexpr TuningFile kCinemaLevel = {"upl.cinema.bin", TuningFileKind::LevelParameters,
                                            "the level of cinema"};
}  // namespace tuning_file

// Every file that the effect reads by its name, in the order in which kelda lists them.
inline constexpr TuningFile kTuningFiles[] = {
    tuning_file::kAppList,           tuning_file::kWiredHki,       tuning_file::kBluetoothHki,
    tuning_file::kWiredBa,           tuning_file::kBluetoothBa,    tuning_file::kStandardMusic,
    tuning_file::kPersonalizedMusic, tuning_file::kStandardCinema, tuning_file::kPersonalizedCinema,
    tuning_file::kMusicLevel,        tuning_file::kCinemaLevel,
};

}  // namespace kelda

#endif  // KELDA_SETTINGS_TUNING_DIRECTORY_H_
