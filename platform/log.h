// The library's log lines go to the platform's log: one function for each priority, and the tags.
// The platform's log may block, so the audio thread calls these inside MayBlock only. They
// allocate nothing.
//
//   LogWarning(log_tag::kEffect, "Invalid HRTF type: %u", type);
#ifndef KELDA_PLATFORM_LOG_H_
#define KELDA_PLATFORM_LOG_H_

namespace kelda {

// The tags are an interface: people and tools filter the log by them.
namespace log_tag {
inline constexpr char kEffect[] = "KelUpm";  // the effect and its engine
inline constexpr char kAppList[] = "EffectUpmix";
inline constexpr char kTuningFile[] = "KelApUtil";
inline constexpr char kHrtf[] = "KelApVirCommon";
inline constexpr char kFade[] = "KELAPutil";
inline constexpr char kPcmDump[] = "KelApsPcmd";
inline constexpr char kPcmDataDump[] = "kelda_upm";
inline constexpr char kMusic[] = "KelApUpmmLum";
inline constexpr char kCinema[] = "KelApUpmcLum";
inline constexpr char kEqualizer[] = "KELAPhpeq";
inline constexpr char kLevelControl[] = "KelApUplLum";
}  // namespace log_tag

// Writes one line, in printf's format, cut to 1023 bytes as the platform does. Any thread.
void LogError(const char* tag, const char* format, ...) __attribute__((__format__(printf, 2, 3)));
void LogWarning(const char* tag, const char* format, ...) __attribute__((__format__(printf, 2, 3)));
void LogInfo(const char* tag, const char* format, ...) __attribute__((__format__(printf, 2, 3)));

}  // namespace kelda

#endif  // KELDA_PLATFORM_LOG_H_
