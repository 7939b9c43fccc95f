// The library's data files, as they lie on disk: layouts, limits, ranges, defaults.
//
// The library reads these files and the tuning tools write them; both include this
// header and nothing else describes the layout. All words are little-endian, all
// floats IEEE 754 binary32, and every struct is written as it lies in memory.
//
//   kind                file            behind the header
//   "KHKI" HRIR set     *.hki           HrirInfo, RoomParameters, kPlanes HrirPlane, taps
//   "KHEQ" equalizer    *.ba            EqualizerInfo, bands or FIR taps
//   "KMUP" music        upmix.music.*   the rest of MusicParameters
//   "KCUP" cinema       upmix.cinema.*  the rest of CinemaParameters
//   "KLEV" level        upl.*.bin       the rest of LevelParameters
#ifndef KELDA_UPMIX_LIB_FILES_DATA_FORMATS_H_
#define KELDA_UPMIX_LIB_FILES_DATA_FORMATS_H_

#include <cstddef>
#include <cstdint>

namespace kelda::upmix_lib {

static_assert(__BYTE_ORDER__ == __ORDER_LITTLE_ENDIAN__, "data files are used as they lie");

inline constexpr uint32_t kSampleRateHz = 48000;
inline constexpr uint32_t kBlockFrames = 1024;  // every component but the music upmix
inline constexpr uint32_t kPlanes = 7;          // FL FR FC SL SR BL BR
inline constexpr int kEars = 2;                 // left, right

// ---- Container ----------------------------------------------------------------------

struct DataHeader {
  char magic[4];         // the kind's
  uint32_t version;      // the kind's
  uint32_t byte_length;  // of the whole file, this header included
  uint32_t crc32;        // of everything behind this header, see crc32.h
};
static_assert(sizeof(DataHeader) == 16);

struct DataKind {
  char magic[4];
  uint32_t version;
  uint32_t max_bytes;  // the longest file of this kind, header included
};

// A parameter of a fixed-size parameter struct: every one is a float.
struct ParameterField {
  const char* name;       // the member's, with its unit
  uint32_t offset_bytes;  // from the start of the struct
  float min;              // smallest and largest value accepted
  float max;
  float initial;  // the default
};

// ---- HRIR set -----------------------------------------------------------------------
//
//   DataHeader | HrirInfo | RoomParameters | HrirPlane x 7
//              | plane 0: left taps, right taps | plane 1: left taps, right taps | ...
//
// The interaural delay is part of the taps. Azimuth counts counter-clockwise from
// straight ahead (+90 is the left ear's side), elevation upwards.

inline constexpr uint32_t kMaxHrirTaps = 8192;  // room responses fit
inline constexpr float kMaxHrirTap = 16.0f;     // magnitude

struct HrirInfo {
  uint32_t sample_rate_hz;  // kSampleRateHz
  uint32_t plane_count;     // kPlanes
  uint32_t tap_count;       // per ear, 1..kMaxHrirTaps
  uint32_t reserved;        // 0
  char source[128];         // who measured what, zero-terminated UTF-8
  char licence[64];         // of the measurement, zero-terminated UTF-8
};
static_assert(sizeof(HrirInfo) == 208);

// The room around the virtual loudspeakers; a level of kRoomOffDb leaves its part out.
struct RoomParameters {
  float early_level_db;  // energy of the first reflections, relative to the direct sound's
  float late_level_db;   // energy of the late tail, relative to the direct sound's
  float decay_s;         // RT60 of the late tail at low and middle frequencies
  float size_m;          // length of the room: the reflections' delays follow from it
  float damping_hz;      // where the tail decays twice as fast
  float reserved[3];     // 0
};
static_assert(sizeof(RoomParameters) == 32);

inline constexpr float kRoomOffDb = -80.0f;

inline constexpr ParameterField kRoomFields[] = {
    {"early_level_db", offsetof(RoomParameters, early_level_db), kRoomOffDb, 0.0f, -15.0f},
    {"late_level_db", offsetof(RoomParameters, late_level_db), kRoomOffDb, 0.0f, -20.0f},
    {"decay_s", offsetof(RoomParameters, decay_s), 0.05f, 2.0f, 0.2f},
    {"size_m", offsetof(RoomParameters, size_m), 2.5f, 20.0f, 5.0f},
    {"damping_hz", offsetof(RoomParameters, damping_hz), 500.0f, 20000.0f, 5000.0f},
    {"reserved[0]", offsetof(RoomParameters, reserved[0]), 0.0f, 0.0f, 0.0f},
    {"reserved[1]", offsetof(RoomParameters, reserved[1]), 0.0f, 0.0f, 0.0f},
    {"reserved[2]", offsetof(RoomParameters, reserved[2]), 0.0f, 0.0f, 0.0f},
};

// The direction that a plane's HRIRs were made for.
struct HrirPlane {
  float azimuth_deg;
  float elevation_deg;
};
static_assert(sizeof(HrirPlane) == 8);

inline constexpr DataKind kHrirKind = {
    {'K', 'H', 'K', 'I'},
    1,
    sizeof(DataHeader) + sizeof(HrirInfo) + sizeof(RoomParameters) +
        kPlanes*(sizeof(HrirPlane) + 2 * kMaxHrirTaps * sizeof(float))};

// The planes' directions. A file must hold exactly these, in this order: a set for other
// loudspeakers, or with its planes exchanged, is refused.
inline constexpr HrirPlane kPlaneDirections[kPlanes] = {{30, 0},  {-30, 0}, {0, 0},   {90, 0},
                                                        {-90, 0}, {135, 0}, {-135, 0}};

// ---- Headphone equalizer ------------------------------------------------------------
//
//   DataHeader | EqualizerInfo | EqualizerBand x count x curves   (form: bands)
//   DataHeader | EqualizerInfo | float x count x curves           (form: FIR)
//
// With two curves the left channel's come first, then the right's.

inline constexpr uint32_t kMaxEqualizerBands = 64;
inline constexpr uint32_t kMaxEqualizerTaps = 8192;
inline constexpr float kMaxEqualizerTap = 16.0f;  // magnitude

enum class EqualizerForm : uint32_t { kBands = 0, kFir = 1 };

enum class BandType : uint32_t {
  kPeaking = 0,
  kLowShelf = 1,
  kHighShelf = 2,
  kLowPass = 3,
  kHighPass = 4,
  kBandPass = 5,  // 0 dB at the centre
  kNotch = 6,
};
inline constexpr uint32_t kBandTypes = 7;

struct EqualizerInfo {
  EqualizerForm form;
  uint32_t curves;  // 1: both channels share one; 2: one each
  uint32_t count;   // per curve: 0..kMaxEqualizerBands bands or 1..kMaxEqualizerTaps taps
  float preamp_db;  // kPreampMinDb..kPreampMaxDb
};
static_assert(sizeof(EqualizerInfo) == 16);

struct EqualizerBand {
  BandType type;
  float freq_hz;  // centre or corner, kBandMinHz..kBandMaxHz
  float gain_db;  // peaking and shelves, kBandMinDb..kBandMaxDb; 0 for the others
  float q;        // kBandMinQ..kBandMaxQ
};
static_assert(sizeof(EqualizerBand) == 16);

inline constexpr float kPreampMinDb = -60.0f;
inline constexpr float kPreampMaxDb = 24.0f;
inline constexpr float kBandMinHz = 10.0f;
inline constexpr float kBandMaxHz = 23000.0f;
inline constexpr float kBandMinDb = -40.0f;
inline constexpr float kBandMaxDb = 40.0f;
inline constexpr float kBandMinQ = 0.01f;
inline constexpr float kBandMaxQ = 100.0f;

inline constexpr DataKind kEqualizerKind = {
    {'K', 'H', 'E', 'Q'},
    1,
    sizeof(DataHeader) + sizeof(EqualizerInfo) + 2 * kMaxEqualizerTaps * sizeof(float)};

// ---- Level control ------------------------------------------------------------------

struct LevelParameters {
  DataHeader header;
  float target_lufs;         // loudness that levelling steers towards
  float strength;            // share of the distance to the target that is corrected
  float max_boost_db;        // most that levelling amplifies
  float max_cut_db;          // most that levelling attenuates
  float max_limiting_db;     // most that a boost makes the limiter take off the peaks
  float boost_db_per_s;      // fastest rise of the levelling gain
  float cut_db_per_s;        // fastest fall of the levelling gain
  float window_s;            // length of the programme that the loudness is measured over
  float ceiling_dbtp;        // true-peak ceiling of the output
  float limiter_release_ms;  // time constant of the limiter's recovery
  float reserved[2];         // 0
};
static_assert(sizeof(LevelParameters) == 64);

inline constexpr DataKind kLevelKind = {{'K', 'L', 'E', 'V'}, 1, sizeof(LevelParameters)};

inline constexpr ParameterField kLevelFields[] = {
    {"target_lufs", offsetof(LevelParameters, target_lufs), -36.0f, -8.0f, -16.0f},
    {"strength", offsetof(LevelParameters, strength), 0.0f, 1.0f, 1.0f},
    {"max_boost_db", offsetof(LevelParameters, max_boost_db), 0.0f, 24.0f, 15.0f},
    {"max_cut_db", offsetof(LevelParameters, max_cut_db), 0.0f, 40.0f, 24.0f},
    {"max_limiting_db", offsetof(LevelParameters, max_limiting_db), 0.0f, 24.0f, 8.0f},
    {"boost_db_per_s", offsetof(LevelParameters, boost_db_per_s), 0.05f, 20.0f, 3.0f},
    {"cut_db_per_s", offsetof(LevelParameters, cut_db_per_s), 0.05f, 40.0f, 6.0f},
    {"window_s", offsetof(LevelParameters, window_s), 3.0f, 60.0f, 30.0f},
    {"ceiling_dbtp", offsetof(LevelParameters, ceiling_dbtp), -20.0f, 0.0f, -1.0f},
    {"limiter_release_ms", offsetof(LevelParameters, limiter_release_ms), 5.0f, 1000.0f, 80.0f},
    {"reserved[0]", offsetof(LevelParameters, reserved[0]), 0.0f, 0.0f, 0.0f},
    {"reserved[1]", offsetof(LevelParameters, reserved[1]), 0.0f, 0.0f, 0.0f},
};

// ---- Music upmix --------------------------------------------------------------------

struct MusicParameters {
  DataHeader header;
  float centre_amount;           // share of centred direct sound that moves to FC
  float centre_level_db;         // of FC
  float wide_amount;             // share of what is left in FL and FR that moves to SL and SR
  float direct_emphasis;         // more keeps direct sound out of the surround planes better
  float ambience_amount;         // share of the ambience that moves to the surround planes
  float surround_level_db;       // of the surround planes
  float back_share;              // of the surround power that goes to BL and BR
  float decorrelation;           // of the surround planes from each other
  float coherence_smoothing_ms;  // time constant of the direct-ambient estimate, at 1 kHz
  float gain_smoothing_ms;       // time constant of the per-band gains
  float bass_crossover_hz;       // below it no ambience leaves the front; 0: none stays
  float output_gain_db;
};
static_assert(sizeof(MusicParameters) == 64);

inline constexpr DataKind kMusicKind = {{'K', 'M', 'U', 'P'}, 1, sizeof(MusicParameters)};

inline constexpr ParameterField kMusicFields[] = {
    {"centre_amount", offsetof(MusicParameters, centre_amount), 0.0f, 1.0f, 1.0f},
    {"centre_level_db", offsetof(MusicParameters, centre_level_db), -12.0f, 12.0f, 0.0f},
    {"wide_amount", offsetof(MusicParameters, wide_amount), 0.0f, 1.0f, 0.0f},
    {"direct_emphasis", offsetof(MusicParameters, direct_emphasis), 1.0f, 16.0f, 6.0f},
    {"ambience_amount", offsetof(MusicParameters, ambience_amount), 0.0f, 1.0f, 1.0f},
    {"surround_level_db", offsetof(MusicParameters, surround_level_db), -24.0f, 12.0f, 0.0f},
    {"back_share", offsetof(MusicParameters, back_share), 0.0f, 1.0f, 0.4f},
    {"decorrelation", offsetof(MusicParameters, decorrelation), 0.0f, 1.0f, 1.0f},
    {"coherence_smoothing_ms", offsetof(MusicParameters, coherence_smoothing_ms), 5.0f, 500.0f,
     40.0f},
    {"gain_smoothing_ms", offsetof(MusicParameters, gain_smoothing_ms), 1.0f, 500.0f, 15.0f},
    {"bass_crossover_hz", offsetof(MusicParameters, bass_crossover_hz), 0.0f, 500.0f, 120.0f},
    {"output_gain_db", offsetof(MusicParameters, output_gain_db), -24.0f, 12.0f, 0.0f},
};

// ---- Cinema upmix -------------------------------------------------------------------

struct CinemaParameters {
  DataHeader header;
  float dialogue_amount;      // share of centred direct sound that moves to FC
  float dialogue_level_db;    // of FC
  float surround_amount;      // share of the ambience that moves to the surround planes
  float surround_level_db;    // of the surround planes
  float back_share;           // of the surround power that goes to BL and BR
  float width;                // share of what is left in FL and FR that moves to SL and SR
  float bass_crossover_hz;    // below it the sound goes past the HRIRs, in mono
  float bass_level_db;        // of what is below the crossover
  float room_level_db;        // of the late tail
  float room_decay_s;         // RT60 of the late tail
  float room_early_level_db;  // of the early reflections
  float output_gain_db;
};
static_assert(sizeof(CinemaParameters) == 64);

inline constexpr DataKind kCinemaKind = {{'K', 'C', 'U', 'P'}, 1, sizeof(CinemaParameters)};

inline constexpr ParameterField kCinemaFields[] = {
    {"dialogue_amount", offsetof(CinemaParameters, dialogue_amount), 0.0f, 1.0f, 1.0f},
    {"dialogue_level_db", offsetof(CinemaParameters, dialogue_level_db), -12.0f, 12.0f, 1.5f},
    {"surround_amount", offsetof(CinemaParameters, surround_amount), 0.0f, 1.0f, 1.0f},
    {"surround_level_db", offsetof(CinemaParameters, surround_level_db), -40.0f, 12.0f, 1.5f},
    {"back_share", offsetof(CinemaParameters, back_share), 0.0f, 1.0f, 0.5f},
    {"width", offsetof(CinemaParameters, width), 0.0f, 1.0f, 0.3f},
    {"bass_crossover_hz", offsetof(CinemaParameters, bass_crossover_hz), 40.0f, 300.0f, 100.0f},
    {"bass_level_db", offsetof(CinemaParameters, bass_level_db), -24.0f, 12.0f, 0.0f},
    {"room_level_db", offsetof(CinemaParameters, room_level_db), -80.0f, 0.0f, -18.0f},
    {"room_decay_s", offsetof(CinemaParameters, room_decay_s), 0.05f, 2.0f, 0.25f},
    {"room_early_level_db", offsetof(CinemaParameters, room_early_level_db), -80.0f, 0.0f, -12.0f},
    {"output_gain_db", offsetof(CinemaParameters, output_gain_db), -24.0f, 12.0f, 0.0f},
};

}  // namespace kelda::upmix_lib

#endif  // KELDA_UPMIX_LIB_FILES_DATA_FORMATS_H_
