#include "tools/device/device_report.h"

#include <algorithm>
#include <charconv>
#include <functional>
#include <map>

#include "tools/core/failure.h"
#include "tools/core/format.h"
#include "tools/core/printable.h"
#include "tools/core/standard_output.h"
#include "tools/core/text_file.h"

namespace kelda::tools {
namespace {

// A whole bug report has some 100 MB, most of it logs.
constexpr std::size_t kMaxTextBytes = 256 << 20;

constexpr int kAndroid13 = 33, kAndroid14 = 34, kVendor202404 = 202404, kVendor202504 = 202504;

using Properties = std::map<std::string, std::string, std::less<>>;

// What the lines of the text say, one by one.
struct Findings {
  Properties properties;
  bool lists_services = false;    // dumpsys, or dumpsys -l
  bool lists_factory = false;     // and among them the AIDL effect service
  bool lists_outputs = false;     // dumpsys media.audio_flinger
  bool spatial_output = false;    // and one of them is the spatializer's
  std::optional<bool> requested;  // dumpsys audio: spatial audio, by the listener's choice
  std::optional<bool> running;    // dumpsys media.audio_policy: the spatializer's level
  bool spatial_stereo = false;
};

// The text between `before` and `after` in the line, if it has both in this order.
std::optional<std::string_view> Between(std::string_view line, std::string_view before,
                                        std::string_view after) {
  const std::size_t begin = line.find(before);
  if (begin == std::string_view::npos) {
    return std::nullopt;
  }
  line.remove_prefix(begin + before.size());
  const std::size_t end = after.empty() ? line.size() : line.find(after);
  return end == std::string_view::npos ? std::nullopt : std::optional(line.substr(0, end));
}

Findings ReadLines(std::string_view text) {
  Findings found;
  bool in_helper = false;  // the section of the framework's own spatial audio
  while (!text.empty()) {
    std::string_view line = TakeLine(&text);
    SkipBlanks(&line);
    if (line.ends_with('\r')) {
      line.remove_suffix(1);
    }
    if (line.starts_with('[')) {
      const std::optional name = Between(line, "[", "]: [");
      if (name.has_value() && line.ends_with(']')) {
        line.remove_prefix(name->size() + 5);
        line.remove_suffix(1);
        found.properties.emplace(*name, line);
      }
    } else if (line == "Currently running services:") {
      found.lists_services = true;
    } else if (line == "android.hardware.audio.effect.IFactory/default") {
      found.lists_factory = true;
    } else if (line.starts_with("Output thread ")) {
      found.lists_outputs = true;
      found.spatial_output = found.spatial_output || line.ends_with("(SPATIALIZER):");
    } else if (line == "SpatializerHelper:") {
      in_helper = true;
    } else if (in_helper && line.starts_with("mState:")) {
      found.requested = line == "mState:4" || line == "mState:5";  // enabled, whatever is plugged
      in_helper = false;
    } else if (line.starts_with("Supported levels: [")) {
      if (const std::optional level = Between(line, "mLevel: ", ""); level.has_value()) {
        found.running = *level != "NONE";
      }
    } else if (line == "Stereo Spatialization: true") {
      found.spatial_stereo = true;
    }
  }
  return found;
}

std::string Text(const Properties& properties, std::string_view name) {
  const auto property = properties.find(name);
  return property == properties.end() ? "" : property->second;
}

// 0 if there is no such property, or no number in it.
int Number(const Properties& properties, std::string_view name) {
  const std::string text = Text(properties, name);
  int number = 0;
  std::from_chars(text.data(), text.data() + text.size(), number);
  return number;
}

void ChooseDoor(const Findings& found, DeviceReport* report) {
  const auto choose = [report](EffectDoor door, const char* reason) {
    report->door = door;
    report->door_reason = reason;
  };
  if (report->sdk < kAndroid13) {
    choose(EffectDoor::kNone, "the effect is for Android 13 and later");
  } else if (found.lists_factory) {
    choose(EffectDoor::kAidl, "the service android.hardware.audio.effect.IFactory runs");
  } else if (report->vendor_level >= kVendor202404 && found.lists_services) {
    choose(
        EffectDoor::kNone,
        "the vendor image must offer android.hardware.audio.effect.IFactory, but no such service "
        "runs: look for it in the log");
  } else if (report->vendor_level >= kVendor202404) {
    choose(EffectDoor::kAidl, "the vendor image may offer no other");
  } else if (report->sdk < kAndroid14 ||
             std::max(report->vendor_level,
                      Number(found.properties, "ro.vendor.build.version.sdk")) < kAndroid14) {
    choose(EffectDoor::kRecord, "the vendor image is older than the AIDL interface");
  } else if (found.lists_services) {
    choose(EffectDoor::kRecord,
           "the vendor image may offer either, and android.hardware.audio.effect.IFactory does not "
           "run");
  } else {
    choose(EffectDoor::kUnknown,
           "the vendor image may offer either: add the output of `dumpsys -l`");
  }
}

SpatialAudio FindSpatialAudio(const Findings& found) {
  if (const std::optional on = found.requested.has_value() ? found.requested : found.running;
      on.has_value()) {
    return *on ? SpatialAudio::kOn : SpatialAudio::kOff;
  }
  // Where it is only off, its output may be closed.
  const bool offered = Text(found.properties, "ro.audio.spatializer_enabled") == "true";
  return found.lists_outputs && !found.spatial_output && !offered ? SpatialAudio::kAbsent
                                                                  : SpatialAudio::kUnknown;
}

std::string DoorLine(const DeviceReport& report) {
  switch (report.door) {
    case EffectDoor::kRecord:
      return "AELI: libkelupmix.so, named in audio_effects.xml";
    case EffectDoor::kAidl:
      return "AIDL: libkelupmix-aidl.so, named in audio_effects_config.xml; interface version " +
             std::string(report.most_interface_version > 1 ? "1 to " : "") +
             std::to_string(report.most_interface_version);
    case EffectDoor::kNone:
      return "none";
    case EffectDoor::kUnknown:
      return "cannot be told";
  }
  return "";
}

std::string PropertyLine(const DeviceReport& report) {
  if (!report.effect_property.has_value()) {
    return "vendor.kelda.effect is not in the text; `getprop` shows it after `adb root` only";
  }
  return "vendor.kelda.effect is " + Printable(*report.effect_property) +
         (*report.effect_property == "1" ? "" : ", NOT 1: the effect is not offered");
}

std::string SpatialLine(const DeviceReport& report) {
  switch (report.spatial_audio) {
    case SpatialAudio::kOn:
      return std::string("ON: its output rejects effects on the output mix, so ") +
             (report.spatial_stereo ? "all media, stereo too, bypasses"
                                    : "media in quad, 5.1 or 7.1 bypasses") +
             " this effect";
    case SpatialAudio::kOff:
      return "off: all media is processed";
    case SpatialAudio::kAbsent:
      return "the device has none";
    case SpatialAudio::kUnknown:
      return "cannot be told: add the output of `dumpsys audio`";
  }
  return "";
}

}  // namespace

DeviceReport ReadDeviceReport(const std::string& name, std::string_view text) {
  const Findings found = ReadLines(text);
  const Properties& properties = found.properties;
  DeviceReport report;
  report.release = Text(properties, "ro.build.version.release");
  report.sdk = Number(properties, "ro.build.version.sdk");
  if (report.sdk == 0) {
    throw Failure(ExitCode::kInput, name +
                                        ": not the output of `getprop`: it has no line "
                                        "'[ro.build.version.sdk]: [NUMBER]'");
  }
  // The property of the vendor image came with Android 12. A vendor image without it was made for
  // the release that the device was launched with.
  for (const char* level : {"ro.vendor.api_level", "ro.product.first_api_level"}) {
    if (report.vendor_level == 0) {
      report.vendor_level = Number(properties, level);
    }
  }
  if (report.vendor_level == 0) {
    throw Failure(ExitCode::kInput, name +
                                        ": the output of `getprop` is not whole: it has neither "
                                        "ro.vendor.api_level nor ro.product.first_api_level");
  }
  ChooseDoor(found, &report);
  report.most_interface_version = report.vendor_level >= kVendor202504   ? 3
                                  : report.vendor_level >= kVendor202404 ? 2
                                                                         : 1;
  if (const auto property = properties.find("vendor.kelda.effect"); property != properties.end()) {
    report.effect_property = property->second;
  }
  report.spatial_audio = FindSpatialAudio(found);
  report.spatial_stereo =
      found.spatial_stereo || Text(properties, "ro.audio.stereo_spatialization_enabled") == "true";
  return report;
}

bool DiagnoseDevice(const std::string& path) {
  const bool standard_input = path == "-";
  const std::string name = standard_input ? "standard input" : path;
  const DeviceReport report = ReadDeviceReport(
      name, standard_input ? ReadStandardInput(kMaxTextBytes) : ReadTextFile(path, kMaxTextBytes));
  std::string lines = Format("device         Android %s (API level %d), vendor image of level %d\n",
                             Printable(report.release).c_str(), report.sdk, report.vendor_level) +
                      "door           " + DoorLine(report) + "\n               " +
                      report.door_reason + "\n";
  if (report.door == EffectDoor::kAidl && report.sdk == kAndroid14) {
    lines +=
        "               Android 14 before its first quarterly release (QPR1) passes on no\n"
        "               parameter's identifier: the effect refuses all parameters there\n";
  }
  PrintToStandardOutput(lines + "property       " + PropertyLine(report) + "\nspatial audio  " +
                        SpatialLine(report) + "\n");
  return report.door == EffectDoor::kRecord || report.door == EffectDoor::kAidl;
}

}  // namespace kelda::tools
