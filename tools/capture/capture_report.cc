#include "tools/capture/capture_report.h"

#include <cmath>
#include <cstddef>
#include <optional>

#include "tools/core/format.h"
#include "tools/core/json.h"
#include "tools/framework/block_sizes.h"
#include "tools/framework/effect_session.h"

namespace kelda::tools {
namespace {

// "1:05.0234"
std::string Time(int64_t frame) {
  const int64_t minutes = frame / (60 * int64_t{kSampleRateHz});
  const double seconds =
      static_cast<double>(frame - minutes * 60 * int64_t{kSampleRateHz}) / kSampleRateHz;
  return Format("%lld:%07.4f", static_cast<long long>(minutes), seconds);
}

double Milliseconds(int64_t frames) { return 1000.0 * static_cast<double>(frames) / kSampleRateHz; }

std::optional<double> Decibels(double magnitude) {
  return magnitude > 0 ? std::optional(20 * std::log10(magnitude)) : std::nullopt;
}

std::string DecibelText(double magnitude) {
  const auto level_db = Decibels(magnitude);
  return level_db ? Format("%.2f", *level_db) : "-inf";
}

std::string Levels(const CaptureFindings& findings) {
  std::string text =
      "channel  peak dBFS         at   RMS dBFS         DC  beyond full scale       NaN       "
      "Inf\n";
  for (std::size_t i = 0; i < findings.channels.size(); ++i) {
    const ChannelLevels& levels = findings.channels[i];
    text +=
        Format("%7zu %10s %10s %10s %10.6f %18lld %9lld %9lld\n", i,
               DecibelText(levels.peak).c_str(), Time(levels.peak_frame).c_str(),
               DecibelText(levels.rms).c_str(), levels.mean, static_cast<long long>(levels.beyond),
               static_cast<long long>(levels.nans), static_cast<long long>(levels.infinities));
  }
  return text;
}

template <typename Line>
std::string List(const char* title, const CaptureEvents& events, std::size_t most, Line line) {
  std::string text = Format("\n%s", title);
  if (events.count == 0) {
    return text + ": none\n";
  }
  text += ": " + std::to_string(events.count) + "\n";
  const std::size_t shown = std::min(most, events.listed.size());
  for (std::size_t i = 0; i < shown; ++i) {
    const CaptureEvent& event = events.listed[i];
    text += Format("  %s  frame %-10lld ", Time(event.frame).c_str(),
                   static_cast<long long>(event.frame));
    text += line(event);
    text += '\n';
  }
  if (const int64_t more = events.count - static_cast<int64_t>(shown); more > 0) {
    text += Format("  and %lld more\n", static_cast<long long>(more));
  }
  return text;
}

Json ToJson(const std::optional<double>& value) { return value ? Json(*value) : Json(); }

template <typename Value>
Json ToJson(const CaptureEvents& events, Value value) {
  Json listed = Json::array();
  for (const CaptureEvent& event : events.listed) {
    Json entry{{"frame", event.frame}, {"frames", event.frames}};
    if (event.channel >= 0) {
      entry["channel"] = event.channel;
    }
    value(event, &entry);
    listed.push_back(std::move(entry));
  }
  return {{"count", events.count}, {"events", std::move(listed)}};
}

}  // namespace

std::string FormatCapture(const CaptureSummary& summary, std::size_t most_events) {
  const CaptureFindings& findings = summary.findings;
  std::string text = summary.file + ": " +
                     Format("%lld frames, ", static_cast<long long>(findings.frames)) +
                     Time(findings.frames) + " at 48 kHz; " + Describe(summary.layout) + " (" +
                     summary.layout_reason + ")\n";
  if (summary.trailing_bytes != 0) {
    text +=
        Format("The file was cut off: its last %zu bytes are not a whole frame and are left out.\n",
               summary.trailing_bytes);
  }
  text += '\n';
  text += Levels(findings);
  text += List("NaN and infinity", findings.not_finite, most_events, [](const CaptureEvent& event) {
    return Format("channel %d, %f", event.channel, event.value);
  });
  text += List("Silence", findings.silence, most_events, [](const CaptureEvent& event) {
    return Format("%.1f ms, ", Milliseconds(event.frames)) +
           (event.value == 0 ? "all samples 0"
                             : Format("peak %s dBFS", DecibelText(event.value).c_str()));
  });
  text += List("Clipping", findings.clipping, most_events, [](const CaptureEvent& event) {
    return Format("channel %d, %.1f ms, peak ", event.channel, Milliseconds(event.frames)) +
           DecibelText(event.value) + " dBFS" + (event.value > 1 ? "" : ", flat");
  });
  text +=
      List("Discontinuities", findings.discontinuities, most_events, [](const CaptureEvent& event) {
        return Format("channel %d, step of %.4f, %lld frames into a period of 1024", event.channel,
                      event.value, static_cast<long long>(event.frame % int64_t{kPeriodFrames}));
      });
  return text;
}

std::string FormatCaptureJson(const CaptureSummary& summary) {
  const CaptureFindings& findings = summary.findings;
  Json channels = Json::array();
  for (const ChannelLevels& levels : findings.channels) {
    channels.push_back({{"peak_dbfs", ToJson(Decibels(levels.peak))},
                        {"peak_frame", levels.peak_frame},
                        {"rms_dbfs", ToJson(Decibels(levels.rms))},
                        {"mean", levels.mean},
                        {"beyond_full_scale", levels.beyond},
                        {"nan", levels.nans},
                        {"inf", levels.infinities}});
  }
  const auto peak = [](const CaptureEvent& event, Json* entry) {
    (*entry)["peak_dbfs"] = ToJson(Decibels(event.value));
  };
  const Json json{{"file", summary.file},
                  {"frames", findings.frames},
                  {"sample_rate_hz", kSampleRateHz},
                  {"layout",
                   {{"channels", summary.layout.channels},
                    {"order", summary.layout.planar ? "planar-1024" : "interleaved"},
                    {"reason", summary.layout_reason}}},
                  {"trailing_bytes", summary.trailing_bytes},
                  {"channels", std::move(channels)},
                  {"not_finite", ToJson(findings.not_finite, [](const CaptureEvent&, Json*) {})},
                  {"silence", ToJson(findings.silence, peak)},
                  {"clipping", ToJson(findings.clipping, peak)},
                  {"discontinuities",
                   ToJson(findings.discontinuities, [](const CaptureEvent& event, Json* entry) {
                     (*entry)["step"] = event.value;
                   })}};
  return ToText(json);
}

}  // namespace kelda::tools
