#include "tools/inspect/library_status.h"

namespace kelda::tools {
namespace {

const char* Text(upmix_lib::Status status) {
  using namespace upmix_lib;  // NOLINT(google-build-using-namespace): thirty names of one
                              // enumeration
  switch (status) {
    case kConfigMissing:
    case kDataMissing:
      return "missing";
    case kConfigNotRegular:
    case kDataNotRegular:
      return "not a regular file";
    case kConfigUnreadable:
    case kDataUnreadable:
      return "cannot be read";
    case kConfigNoName:
      return "names no file";
    case kConfigBadName:
      return "names a file outside its directory";
    case kDataTooShort:
      return "shorter than its header";
    case kDataTooLong:
      return "longer than any file of its kind";
    case kDataBadMagic:
      return "a file of another kind";
    case kDataBadVersion:
      return "of another version";
    case kDataBadLength:
      return "cut off or grown: its length is not the one in its header";
    case kDataBadCrc:
      return "changed: its checksum does not match";
    case kNotFinite:
      return "holds a number that is not finite";
    case kOutOfRange:
      return "holds a number beyond its range";
    case kBadCount:
      return "holds an impossible count";
    case kBadType:
      return "holds an unknown type";
    case kBadReserved:
      return "holds something where nothing may be";
    case kBadSampleRate:
      return "not made for 48 kHz";
    case kBadText:
      return "holds a text without an end";
    case kBadDirection:
      return "made for other directions than the planes'";
    default:
      return "cannot be used";
  }
}

}  // namespace

std::string DescribeStatus(upmix_lib::Status status) {
  return std::string(Text(status)) + " (status " + std::to_string(status) + ")";
}

}  // namespace kelda::tools
