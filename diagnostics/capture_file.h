#ifndef KELDA_DIAGNOSTICS_CAPTURE_FILE_H_
#define KELDA_DIAGNOSTICS_CAPTURE_FILE_H_

#include <cstdio>
#include <string>

namespace kelda {

// Opens the file that a capture goes to, and creates it if it is missing. `mode` is that of
// fopen: "ab" to append, "wb" to empty it first. Only a regular file is accepted, so that
// neither opening nor writing it waits for a reader. Returns null, with errno set, if it
// cannot be opened or is not a regular file. Control thread.
FILE* OpenCaptureFile(const std::string& path, const char* mode);

}  // namespace kelda

#endif  // KELDA_DIAGNOSTICS_CAPTURE_FILE_H_
