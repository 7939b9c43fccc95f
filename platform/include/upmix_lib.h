// The signal-processing library behind the processors: `libupmix-lib`.
//
// Both the closed library of the phones and the open one in upmix-lib/ have these entries.
// Common rules:
//
//  - Every entry returns a status: 0 is success, anything else an error code.
//    The one exception is A0218, which returns an instance, null on failure.
//  - Audio is 32-bit float at 48 kHz and planar, unless the entry says
//    otherwise. Planes are passed as arrays of plane pointers.
//  - After a failure outputs and instance are as before, but for the block of a process
//    entry that failed, which may hold anything.
//  - "control" and "audio" name the thread that may call an entry, "any" either. Calls on one
//    instance never overlap; different instances may be used concurrently.
//  - Each wrapper (processors/) calls its set-up entry when it is constructed; calling it
//    again is harmless.
#ifndef KELDA_PLATFORM_UPMIX_LIB_H_
#define KELDA_PLATFORM_UPMIX_LIB_H_

#include <cstdint>

#include "platform/nonblocking.h"

#pragma GCC visibility push(default)
extern "C" {

// ---- Headphone equalizer: blocks of 1024 frames, stereo, in place, no latency.

// Component set-up. Control.
int32_t A0507(void);
// Creates an instance from the configuration file `directory`/`file`; `directory`
// has no trailing '/'. Writes the instance's non-zero handle to *handle on
// success only. Control.
int32_t A0243(uint32_t* handle, const char* directory, const char* file);
// Initialises the instance. Control.
int32_t A0214(uint32_t handle);
// Clears the instance's signal history. Control.
int32_t A0237(uint32_t handle);
// Processes 1024 frames in place: planes[0] is left, planes[1] right. Audio.
int32_t A0836(uint32_t handle, float* const* planes) KELDA_NONBLOCKING;
// Writes the last error of the instance: its class, and its detail code. Any.
int32_t A0332(uint32_t handle, int32_t* error, int32_t* detail) KELDA_NONBLOCKING;
// Ends processing; the instance remains until A0812. Control.
int32_t A0562(uint32_t handle);
// Destroys the instance and clears *handle. Control.
int32_t A0812(uint32_t* handle);

// ---- Music upmix: blocks of 64 frames, 2 planes in, 7 planes out. The instance
// lives in work memory that the caller owns; releasing it ends the instance.

// Component set-up. Control.
int32_t A0216(void);
// Writes the size of the work memory and of the parameter data, in bytes. Control.
int32_t A0511(uint32_t* work_bytes, uint32_t* param_bytes);
// Builds the instance in `work` from parameter data of the size A0511 reports.
// `work` may have any alignment. Control.
int32_t A0559(const void* params, void* work);
// Upmixes 64 frames; in and out do not overlap. Audio.
int32_t A0239(const float* const* in, float* const* out, void* work) KELDA_NONBLOCKING;

// ---- Virtualizer: blocks of 1024 frames, 7 planes in, 2 planes out.

// Component set-up. Control.
int32_t A0779(void);
// As A0243. Control.
int32_t A0782(uint32_t* handle, const char* directory, const char* file);
// As A0214. Control.
int32_t A0556(uint32_t handle);
// As A0237. Control.
int32_t A0236(uint32_t handle);
// Renders one block of 1024 frames. Audio.
//   kind           2: first block of a stream; 1: first block after a kind-2
//                  block or after a flush; 0: every other block.
//   frames         valid input frames: 1024, or fewer for a kind-2 block.
//   out            2 plane pointers of 1024 floats.
//   in             7 contiguous planes of 1024 floats.
//   channel_flags  7 integers, one per input plane: 0 renders the plane, others mute it.
int32_t A0560(uint32_t handle, int32_t kind, int32_t frames, float* const* out, const float* in,
              const int32_t* channel_flags) KELDA_NONBLOCKING;
// As A0332. Any.
int32_t A0783(uint32_t handle, int32_t* error, int32_t* detail) KELDA_NONBLOCKING;
// As A0562. Control.
int32_t A0212(uint32_t handle);
// As A0812. Control.
int32_t A0810(uint32_t* handle);

// ---- Cinema upmix: blocks of 1024 frames, 2 planes in, 2 planes out.

// Component set-up. Control.
int32_t A0244(void);
// Writes the size of the parameter data, in bytes. Control.
int32_t A0333(uint32_t* param_bytes);
// Creates and initialises an instance from parameter data and the configuration
// file `directory`/`file`; null on failure. Control.
void* A0218(const void* params, const char* directory, const char* file);
// Processes 1024 frames; in and out do not overlap. Audio.
int32_t A0238(const float* const* in, float* const* out, void* instance) KELDA_NONBLOCKING;
// Clears the instance's signal history. Control.
int32_t A0593(void* instance);
// Destroys the instance and clears *instance. Control.
int32_t A0213(void** instance);

// ---- Level control: blocks of 1024 frames, INTERLEAVED stereo. The instance
// lives in work memory that the caller owns; releasing it ends the instance.

// Component set-up. Control.
int32_t A0834(void);
// As A0511. Control.
int32_t A0557(uint32_t* work_bytes, uint32_t* param_bytes);
// Initialises the instance in `work` for blocks of `block_frames` frames (1024).
// `work` may have any alignment. It is filled with zeros, or holds an instance, whose
// gain and loudness go on. Control.
int32_t A0508(void* work, int32_t block_frames);
// Applies parameter data of the size A0557 reports. Control.
int32_t A0122(void* work, const void* params);
// Processes 1024 interleaved stereo frames; in and out do not overlap. Audio.
int32_t A0217(void* work, const float* in, float* out) KELDA_NONBLOCKING;

}  // extern "C"
#pragma GCC visibility pop

#endif  // KELDA_PLATFORM_UPMIX_LIB_H_
