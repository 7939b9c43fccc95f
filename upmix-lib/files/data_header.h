// The container that all data files share, as it lies on disk. All words are little-endian,
// all floats IEEE 754 binary32, and every struct is written as it lies in memory.
//
// The library reads the files and the tuning tools write them; both include the headers
// named here, and nothing else describes the layouts.
//
//   kind                file            after the header      described in
//   "KHKI" HRIR set     *.hki           HrirInfo ... taps     binaural/hrir_format.h
//   "KHEQ" equalizer    *.ba            EqualizerInfo ...     equalizer/equalizer_format.h
//   "KMUP" music        upmix.music.*   MusicParameters       upmix/music_parameters.h
//   "KCUP" cinema       upmix.cinema.*  CinemaParameters      upmix/cinema_parameters.h
//   "KLEV" level        upl.*.bin       LevelParameters       level/level_parameters.h
#ifndef KELDA_UPMIX_LIB_FILES_DATA_HEADER_H_
#define KELDA_UPMIX_LIB_FILES_DATA_HEADER_H_

#include <cstdint>

namespace kelda::upmix_lib {

static_assert(__BYTE_ORDER__ == __ORDER_LITTLE_ENDIAN__,
              "data files are used as they are in memory");

struct DataHeader {
  char magic[4];         // the kind's
  uint32_t version;      // the kind's
  uint32_t byte_length;  // of the whole file, this header included
  uint32_t crc32;        // of everything after this header, see crc32.h
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

}  // namespace kelda::upmix_lib

#endif  // KELDA_UPMIX_LIB_FILES_DATA_HEADER_H_
