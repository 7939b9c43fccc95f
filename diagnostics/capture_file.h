#ifndef KELDA_DIAGNOSTICS_CAPTURE_FILE_H_
#define KELDA_DIAGNOSTICS_CAPTURE_FILE_H_

#include <cstdio>
#include <string>

namespace kelda {

// Opens the file that a capture goes to, and makes it if it is missing. `mode` is that of
// fopen: "ab" to go on at its end, "wb" to begin it anew. Only a regular file is taken, so
// that neither opening it nor a write waits for a reader. Returns null, with errno set, if
// it cannot be opened or is none. Control thread.
FILE* OpenCaptureFile(const std::string& path, const char* mode);

}  // namespace kelda

#endif  // KELDA_DIAGNOSTICS_CAPTURE_FILE_H_
