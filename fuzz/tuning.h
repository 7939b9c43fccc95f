// A tuning directory for fuzz targets: small valid files, and ways to spoil them.
#ifndef KELDA_FUZZ_TUNING_H_
#define KELDA_FUZZ_TUNING_H_

#include <string_view>

#include "fuzz/byte_reader.h"
#include "tests/laboratory/temporary_folder.h"

namespace kelda::fuzz {

// Empties the directory and writes valid versions of the files that the effect looks for.
void WriteTuning(const TemporaryFolder& directory);

// Rewrites a file that the input chooses: valid with other contents, damaged with or without
// a corrected checksum, cut short, made longer, removed, or a directory. Returns its name.
std::string_view RewriteTuning(const TemporaryFolder& directory, ByteReader* input);

}  // namespace kelda::fuzz

#endif  // KELDA_FUZZ_TUNING_H_
