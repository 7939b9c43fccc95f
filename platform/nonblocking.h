#ifndef KELDA_PLATFORM_NONBLOCKING_H_
#define KELDA_PLATFORM_NONBLOCKING_H_

// Stands behind the parameters of what the audio thread calls: the function neither
// allocates nor locks nor waits. A compiler that knows the attribute refuses calls from
// it to anything of which this is not known (-Wfunction-effects), and RealtimeSanitizer
// watches what it does; to other compilers it says nothing.
#if __has_cpp_attribute(clang::nonblocking)
#define KELDA_NONBLOCKING [[clang::nonblocking]]
#else
#define KELDA_NONBLOCKING
#endif

#endif  // KELDA_PLATFORM_NONBLOCKING_H_
