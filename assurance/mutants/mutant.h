// Included in front of each source that has mutants: says which one runs.
#ifndef KELDA_ASSURANCE_MUTANTS_MUTANT_H_
#define KELDA_ASSURANCE_MUTANTS_MUTANT_H_

#include <fcntl.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>

// The mutant that KELDA_MUTANT names; 0 is none, and at -1 no mutant runs but each one that is
// reached is noted. A copy for each source, so that the values of its constants know it, too.
static const int kelda_chosen_mutant = [] {
  const char* const number = std::getenv("KELDA_MUTANT");
  return number == nullptr ? 0 : std::atoi(number);
}();

// Opened before a test gives up its rights to files.
inline const int kelda_mutant_trace = [] {
  const char* const file = std::getenv("KELDA_MUTANT_TRACE");
  return file == nullptr ? -1 : open(file, O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0600);
}();

// Appends `mutant` to the file that KELDA_MUTANT_TRACE names. Calls the system itself: tests put
// their own functions in the place of the standard library's.
static inline void kelda_note_mutant(int mutant) {
  static bool noted[1000];
  if (noted[mutant]) {
    return;
  }
  noted[mutant] = true;
  char line[16];
  const int length = std::snprintf(line, sizeof(line), "%d\n", mutant);
  syscall(SYS_write, kelda_mutant_trace, line, length);
}

// Whether this mutant runs.
static inline bool kelda_mutant(int mutant) {
  if (kelda_chosen_mutant == -1) {
    kelda_note_mutant(mutant);
  }
  return kelda_chosen_mutant == mutant;
}

#endif  // KELDA_ASSURANCE_MUTANTS_MUTANT_H_
