// The cinema upmix, driven as its host does.
#ifndef KELDA_TESTS_UPMIX_LIB_CINEMA_INSTANCE_H_
#define KELDA_TESTS_UPMIX_LIB_CINEMA_INSTANCE_H_

#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <span>

#include "processors/upmix_lib.h"
#include "tests/upmix-lib/mixes.h"
#include "tests/upmix-lib/temp_directory.h"
#include "upmix-lib/data_file.h"
#include "upmix-lib/hrir_set.h"
#include "upmix-lib/plane_upmix.h"

namespace kelda::upmix_lib {

inline void SealCinema(CinemaParameters& parameters) {
  Seal(std::as_writable_bytes(std::span(&parameters, 1)), kCinemaKind);
}

inline CinemaParameters CinemaDefaults() {
  return DefaultParameters<CinemaParameters>(kCinemaKind, kCinemaFields);
}

// Without room and level changes, so that planes can be compared.
inline CinemaParameters CinemaDry() {
  CinemaParameters parameters = CinemaDefaults();
  parameters.room_level_db = parameters.room_early_level_db = kRoomOffDb;
  parameters.dialogue_level_db = parameters.surround_level_db = 0.0f;
  SealCinema(parameters);
  return parameters;
}

// HRIRs that let through, unchanged and to both ears, the planes in `audible`.
inline HrirSet Probe(std::initializer_list<int> audible) {
  HrirSet set;
  set.taps = 32;
  set.responses.resize(kPlanes * kEars * 32);
  set.room = {kRoomOffDb, kRoomOffDb, 0.25f, 5.0f, 5000.0f, {}};
  std::copy_n(kPlaneDirections, kPlanes, set.directions.begin());
  for (int plane : audible) {
    set.responses[static_cast<size_t>(plane * 2) * 32] = 1.0f;
    set.responses[static_cast<size_t>(plane * 2 + 1) * 32] = 1.0f;
  }
  return set;
}

class CinemaInstance {
 public:
  explicit CinemaInstance(const CinemaParameters& parameters,
                          const HrirSet& hrirs = Probe({kFL, kFR, kFC, kSL, kSR, kBL, kBR})) {
    files_.Write("probe.hki", EncodeHrirSet(hrirs));
    files_.Write("wired.hki.config", "probe.hki\n");
    A0244();
    instance_ = A0218(&parameters, files_.path().c_str(), "wired.hki.config");
    EXPECT_NE(instance_, nullptr);
  }
  ~CinemaInstance() { EXPECT_EQ(A0213(&instance_), 0); }

  void* get() const { return instance_; }
  const TempDirectory& files() const { return files_; }

  // Whole blocks of `in`.
  Stereo Upmix(const Stereo& in) {
    Stereo out = {Signal(in.left.size()), Signal(in.left.size())};
    for (size_t at = 0; at + kBlockFrames <= in.left.size(); at += kBlockFrames) {
      const float* from[2] = {&in.left[at], &in.right[at]};
      float* to[2] = {&out.left[at], &out.right[at]};
      EXPECT_EQ(A0238(from, to, instance_), 0);
    }
    return out;
  }

 private:
  TempDirectory files_;
  void* instance_ = nullptr;
};

}  // namespace kelda::upmix_lib

#endif  // KELDA_TESTS_UPMIX_LIB_CINEMA_INSTANCE_H_
