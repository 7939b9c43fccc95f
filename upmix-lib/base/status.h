// Every status that an entry of this library can return.
//
// A status is `class * 100 + number`. Entries return the status itself: a failed create
// leaves no instance that could be asked, and its status still says what went wrong. The error
// queries A0332 and A0783 write the class of the instance's last failure as the error, and the
// status as the detail code.
#ifndef KELDA_UPMIX_LIB_BASE_STATUS_H_
#define KELDA_UPMIX_LIB_BASE_STATUS_H_

#include <cstdint>

namespace kelda::upmix_lib {

enum class ErrorClass : int32_t {
  kNone = 0,
  kUsage = 1,       // the call itself: its arguments or its order
  kConfigFile = 2,  // the text file that names the data file
  kDataFile = 3,    // the data's container: file, header, length, checksum
  kContents = 4,    // what the container holds
  kResources = 5,   // memory or instances ran out
};

enum Status : int32_t {
  kOk = 0,

  kNullPointer = 101,     // a pointer that must not be null is
  kBadHandle = 102,       // zero, destroyed, or never given out by this component
  kNotInitialized = 103,  // the instance was created but not initialised
  kClosed = 104,          // the instance was closed and not initialised again
  kNotAnInstance = 105,   // the work memory or pointer holds no instance
  kNotConfigured = 106,   // level control: no parameters were applied yet
  kBadFrameCount = 107,   // a block length that the component does not process
  kBadBlockKind = 108,    // virtualizer: a block kind other than 0, 1 and 2

  kConfigMissing = 201,     // cannot be opened
  kConfigNotRegular = 202,  // a directory, pipe or device
  kConfigUnreadable = 203,  // a read failed
  kConfigNoName = 204,      // no token within the first kMaxConfigBytes bytes
  kConfigBadName = 205,     // holds "/" or "..", a control character, or is too long

  kDataMissing = 301,     // cannot be opened
  kDataNotRegular = 302,  // a directory, pipe or device
  kDataUnreadable = 303,  // a read failed or came up short
  kDataTooShort = 304,    // shorter than its header
  kDataTooLong = 305,     // longer than any data of its kind
  kDataBadMagic = 306,    // of another kind
  kDataBadVersion = 307,  // of a version that this library does not read
  kDataBadLength = 308,   // the header's length is not the data's
  kDataBadCrc = 309,      // the checksum does not match

  kNotFinite = 401,      // a number is NaN or infinite
  kOutOfRange = 402,     // a number is outside its range
  kBadCount = 403,       // a count is outside its range or contradicts the length
  kBadType = 404,        // an enumerated value is unknown
  kBadReserved = 405,    // a reserved integer is not zero
  kBadSampleRate = 406,  // not made for 48 kHz
  kBadText = 407,        // a text field has no terminating zero
  kBadDirection = 408,   // an HRIR pair was not made for its plane's direction

  kOutOfMemory = 501,
  kTooManyInstances = 502,  // all slots of the component are taken
};

constexpr ErrorClass ClassOf(Status status) {
  return static_cast<ErrorClass>(static_cast<int32_t>(status) / 100);
}

}  // namespace kelda::upmix_lib

#endif  // KELDA_UPMIX_LIB_BASE_STATUS_H_
