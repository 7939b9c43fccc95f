// A tuning directory for fuzz targets: small valid files, and ways to spoil them.
#ifndef KELDA_FUZZ_TUNING_H_
#define KELDA_FUZZ_TUNING_H_

#include <string_view>

#include "fuzz/byte_reader.h"
#include "tests/laboratory/temporary_folder.h"

namespace kelda::fuzz {

// Leaves the files that the effect looks for in the directory, valid, and nothing else.
void WriteTuning(const TemporaryFolder& directory);

// Rewrites a file of the input's choice: valid with other contents, damaged with or without
// the checksum put right, cut short, made longer, removed, a directory. Returns its name.
std::string_view RewriteTuning(const TemporaryFolder& directory, ByteReader* input);

}  // namespace kelda::fuzz

#endif  // KELDA_FUZZ_TUNING_H_
