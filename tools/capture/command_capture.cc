#include <CLI/CLI.hpp>
#include <algorithm>
#include <cmath>
#include <cstddef>
#include <filesystem>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "tools/audio/audio_sink.h"
#include "tools/audio/progress.h"
#include "tools/capture/capture_analysis.h"
#include "tools/capture/capture_layout.h"
#include "tools/capture/capture_reader.h"
#include "tools/capture/capture_report.h"
#include "tools/commands.h"
#include "tools/core/decibels.h"
#include "tools/core/failure.h"
#include "tools/core/format.h"
#include "tools/core/interruption.h"
#include "tools/core/replacement.h"
#include "tools/core/standard_output.h"
#include "tools/core/status_line.h"

namespace kelda::tools {
namespace {

struct CaptureArguments {
  std::filesystem::path capture;
  std::filesystem::path output;
  std::optional<int> channels;
  std::string layout;
  std::size_t list = 20;
  bool any_level = false;
  bool json = false;
  bool replace = false;
};

LayoutGuess ChooseLayout(const CaptureArguments& arguments, const CaptureReader& reader) {
  LayoutGuess chosen{{}, "as told"};
  if (!arguments.channels || arguments.layout.empty()) {
    chosen = GuessLayout(arguments.capture.filename().string(), reader.head());
    chosen.reason = "guessed: " + chosen.reason;
  }
  if (arguments.channels) {
    chosen.layout.channels = *arguments.channels;
  }
  if (!arguments.layout.empty()) {
    chosen.layout.planar = arguments.layout == "planar-1024";
  }
  return chosen;
}

// Refuses data that is too loud to be samples of audio. `piece` begins at `first_frame`.
void CheckLevels(const CaptureArguments& arguments, const CaptureLayout& layout,
                 const std::vector<float>& piece, int64_t first_frame) {
  constexpr float kLoudest = 1000;  // +60 dBFS
  const auto loud = std::find_if(piece.begin(), piece.end(),
                                 [](float sample) { return std::abs(sample) > kLoudest; });
  if (arguments.any_level || loud == piece.end()) {
    return;
  }
  const auto sample = static_cast<int64_t>(loud - piece.begin());
  const int64_t frame = first_frame + sample / layout.channels;
  throw Failure(
      ExitCode::kInput,
      arguments.capture.string() +
          Format(
              ": not a raw capture: channel %d reaches %+.1f dBFS at frame %lld (at most +60). A "
              "capture is 32-bit float samples at 48 kHz without a header; if this is a capture "
              "of a chain that went wrong, use --any-level",
              static_cast<int>(sample % layout.channels),
              ToDb(std::abs(static_cast<double>(*loud))), static_cast<long long>(frame)));
}

void Run(const CaptureArguments& arguments) {
  if (!arguments.output.empty()) {
    static_cast<void>(AudioFormat(arguments.output));  // refuses a bad name before anything is read
    CheckReplacement(arguments.capture, arguments.output, arguments.replace);
  }
  CaptureReader reader(arguments.capture);
  LayoutGuess chosen = ChooseLayout(arguments, reader);
  const auto expected_frames = reader.ExpectedFrames(chosen.layout);
  std::optional<AudioSink> sink;
  if (!arguments.output.empty()) {
    sink.emplace(arguments.output, expected_frames,
                 static_cast<std::size_t>(chosen.layout.channels));
  }

  CaptureSummary summary{arguments.capture.string(), chosen.layout, chosen.reason, 0, {}};
  CaptureAnalysis analysis(chosen.layout.channels);
  {
    Progress progress(expected_frames);
    std::vector<float> piece;
    int64_t done_frames = 0;
    for (reader.Read(chosen.layout, &piece); !piece.empty(); reader.Read(chosen.layout, &piece)) {
      CheckInterruption();
      const std::size_t frames = piece.size() / static_cast<std::size_t>(chosen.layout.channels);
      analysis.Add(&piece);
      CheckLevels(arguments, chosen.layout, piece, done_frames);
      if (sink) {
        sink->Write(piece.data(), frames);
      }
      summary.trailing_bytes = reader.trailing_bytes();
      done_frames += static_cast<int64_t>(frames);
      progress.Update(done_frames);
    }
  }
  if (reader.trailing_bytes() != 0) {
    summary.trailing_bytes = reader.trailing_bytes();
  }
  summary.findings = analysis.Finish();
  if (summary.findings.frames == 0) {
    throw Failure(ExitCode::kInput,
                  summary.file + ": it holds no whole frame of " + Describe(chosen.layout));
  }
  if (sink) {
    sink->Finish();
    if (sink->clipped_samples() != 0) {
      ShowMessage("warning: " + std::to_string(sink->clipped_samples()) +
                  " samples beyond full scale were clipped; a WAV file keeps them");
    }
  }
  PrintToStandardOutput(arguments.json ? FormatCaptureJson(summary)
                                       : FormatCapture(summary, arguments.list));
}

}  // namespace

void AddCaptureCommand(CLI::App* program) {
  CLI::App* const command =
      program->add_subcommand("capture", "Examine a raw capture, and turn it into a WAV file");
  const auto arguments = std::make_shared<CaptureArguments>();
  command
      ->add_option("CAPTURE", arguments->capture,
                   "pcmdump_*.pcm, rawfile_*.raw, or a file like these")
      ->required()
      ->type_name("");
  command
      ->add_option("-o,--output", arguments->output, "Audio: .wav (32-bit float) or .flac (24 bit)")
      ->type_name("FILE");
  command->add_flag("-y,--yes", arguments->replace, kReplaceHelp);
  command->add_option("--channels", arguments->channels, "1 to 8; if not given, guessed")
      ->type_name("COUNT")
      ->check(CLI::Range(1, kMaxCaptureChannels));
  command
      ->add_option(
          "--layout", arguments->layout,
          "interleaved, or planar-1024: blocks of 1024 frames, one channel after the other; "
          "if not given, guessed")
      ->type_name("LAYOUT")
      ->check(CLI::IsMember({"interleaved", "planar-1024"}));
  command->add_flag(
      "--any-level", arguments->any_level,
      "Accept samples beyond +60 dBFS, too; otherwise such a file is refused as no capture");
  command
      ->add_option("--list", arguments->list, "How many events of each kind to list at most (20)")
      ->type_name("COUNT");
  command->add_flag("--json", arguments->json,
                    "Print JSON for scripts, with up to 10000 events of each kind");
  command->footer(
      "A capture is raw: 32-bit float samples at 48 kHz, no header. The effect captures its "
      "output,\n"
      "interleaved, if the properties vendor.kelda.pcmdump=SECONDS and ro.debuggable=1 are set. A\n"
      "capture of the equalizer is planar.\n\n"
      "Silence is 2 ms or more below -90 dBFS in all channels. Clipping is sound beyond full "
      "scale,\n"
      "or several equal samples in a row close to it. A discontinuity is a step that fits neither\n"
      "the sound before it nor the sound after it. NaN and infinity are counted and taken as 0.\n\n"
      "Example:\n"
      "  kelda capture pcmdump_2026_1116_0357_10.pcm -o heard.wav\n\n" +
      std::string(kExitCodeHelp));
  command->callback([arguments] { Run(*arguments); });
}

}  // namespace kelda::tools
