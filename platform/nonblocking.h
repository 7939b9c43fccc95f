#ifndef KELDA_PLATFORM_NONBLOCKING_H_
#define KELDA_PLATFORM_NONBLOCKING_H_

// Marks the functions that the audio thread calls, after their parameters: they do not
// allocate, lock or wait. A compiler that knows the attribute refuses calls from them to
// functions without it, unless it can see that these do not block either
// (-Wfunction-effects), and RealtimeSanitizer checks them as they run. Other compilers ignore it.
//
// The control thread is whichever thread creates, releases and commands an instance; the audio
// thread is the one that calls its process. Calls on one instance never overlap. Headers name
// the thread of each function: "Control.", "Audio." or "Any thread."
#if __has_cpp_attribute(clang::nonblocking)
#define KELDA_NONBLOCKING [[clang::nonblocking]]
#else
#define KELDA_NONBLOCKING
#endif

#endif  // KELDA_PLATFORM_NONBLOCKING_H_
