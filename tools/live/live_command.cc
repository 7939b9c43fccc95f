#include "tools/live/live_command.h"

#include <unistd.h>

#include <CLI/CLI.hpp>
#include <algorithm>
#include <system_error>
#include <utility>

#include "tools/core/failure.h"
#include "tools/core/format.h"
#include "tools/core/interruption.h"
#include "tools/core/replacement.h"
#include "tools/core/status_line.h"
#include "tools/framework/installation.h"

namespace kelda::tools {
namespace {

constexpr int kTickMs = 50;

// Before anything is made.
const LiveArguments& Checked(const LiveArguments& arguments) {
  std::vector<std::filesystem::path> outputs;
  if (!arguments.log.empty()) {
    outputs.push_back(arguments.log);
  }
  if (!arguments.keep.empty()) {
    outputs.insert(outputs.end(), {arguments.keep / kKeptIn, arguments.keep / kKeptOut});
  }
  for (const std::filesystem::path& output : outputs) {
    CheckReplacement({}, output, arguments.replace);
  }
  if (std::count(outputs.begin(), outputs.end(), arguments.log) > 1) {
    throw Failure(ExitCode::kUsage, "--log and --keep write the same file");
  }
  // The tunings of a log that was moved away are no longer known to be somebody's.
  const std::filesystem::path kept = TurnLog::KeptBeside(arguments.log);
  std::error_code error;
  if (!arguments.log.empty() && !arguments.replace && !std::filesystem::exists(arguments.log) &&
      std::filesystem::exists(kept, error)) {
    throw Failure(ExitCode::kOutput, kept.string() + ": it exists; -y replaces it");
  }
  return arguments;  // NOLINT(bugprone-return-const-ref-from-parameter): the caller's
}

}  // namespace

void LiveArguments::AddTo(CLI::App* command) {
  setting.AddTo(command);
  const auto option = [&](const char* name, auto& value, const char* form,
                          const std::string& help) {
    return command->add_option(name, value, help)->type_name(form);
  };
  option("--b", b, "KEY=VALUE",
         "What B has other than A, as mode=cinema or tuning=DIR; may be repeated (mode=off)")
      ->allow_extra_args(false);
  option("--output", output, "NODE", "The output's node name (pw-cli ls Node); else the default");
  option("--log", log, "FILE", "Write every setting and change, for kelda render --host --replay");
  option("--keep", keep, "DIR", "Record DIR/in.wav and DIR/out.wav: before and after the effect");
  command->add_flag("-y,--yes", replace, kReplaceHelp);
  command->add_flag("-q,--quiet", quiet, "No summary at the end");
  companion->AddTo(command);
}

LiveCommand::LiveCommand(const LiveArguments& arguments, bool keep_warm)
    : arguments_(Checked(arguments)),
      library_file_(arguments.setting.Prepare()),
      tuning_(UseTuningDirectory(arguments.setting.tuning)),
      tunings_(arguments.log.empty() ? tuning_ : log_.emplace(arguments.log, tuning_).kept()),
      library_(library_file_),
      settings_(arguments.setting.Settings()),
      engine_(library_, &tunings_, {.settings = settings_, .keep_warm = keep_warm},
              log_ ? &*log_ : nullptr),
      keys_(&engine_, settings_, tuning_, arguments.b) {
  if (!arguments.keep.empty()) {
    recording_.emplace(&engine_, arguments.keep);
  }
}

void LiveCommand::Run(LiveAudio* audio, const StreamOptions& options, const LiveView& view) {
  StreamOptions wanted = options;
  wanted.latency_frames = changeover::Session::kLatencyFrames;
  {
    Keyboard keyboard;
    StatusLine line;
    while (!Ends(view)) {
      try {
        PipeWireConnection connection;
        connection.RoundTrip();
        CheckOutput(connection);
        PipeWireStreams streams(&connection, wanted, audio);
        played_ = true;
        Play(&connection, streams, view, &keyboard, &line);
      } catch (const Interrupted&) {
        // What is open is completed first.
      } catch (const ServerGone& gone) {
        if (!played_) {
          throw;
        }
        NoteTarget("", gone.what());
        constexpr useconds_t kAgainUs = 500'000;
        usleep(kAgainUs);
        for (const KeyPress& key : keyboard.Take()) {
          quit_ = quit_ || key.character == 'q';
        }
      }
    }
  }
  if (recording_) {
    recording_->Finish();
  }
  if (!arguments_.quiet) {
    Summarize();
  }
  if (!quit_) {
    CheckInterruption();
  }
}

bool LiveCommand::Ends(const LiveView& view) const {
  return quit_ || view.over() || InterruptionCame();
}

// At the beginning only: later the output may be away for a while.
void LiveCommand::CheckOutput(const PipeWireConnection& connection) const {
  if (played_ || arguments_.output.empty() || connection.HasSink(arguments_.output)) {
    return;
  }
  const std::string sinks = connection.Sinks();
  throw Failure(ExitCode::kUsage,
                "there is no output " + arguments_.output +
                    (sinks.empty() ? "; there is none at all" : "; there are:\n" + sinks));
}

// Returns also when the streams have to be made anew.
void LiveCommand::Play(PipeWireConnection* connection, const PipeWireStreams& streams,
                       const LiveView& view, Keyboard* keyboard, StatusLine* line) {
  std::optional<std::string> sinks;  // when a stream failed, because there was none for it
  while (!Ends(view)) {
    connection->Iterate(kTickMs);
    engine_.Poll();
    if (recording_) {
      recording_->Poll();
    }
    for (const KeyPress& key : keyboard->Take()) {
      quit_ = quit_ || key.character == 'q';
      if (!(view.remote != nullptr ? view.remote->Press(key.character)
                                   : keys_.Press(key.character))) {
        view.press(key);
      }
    }
    if (!streams.fault().empty()) {
      if (sinks && *sinks != connection->Sinks()) {
        return;
      }
      if (!sinks) {
        ShowMessage("PipeWire: " + streams.fault() + "; waiting for an output");
        sinks = connection->Sinks();
      }
    }
    const std::string target = streams.target();
    NoteTarget(target, target.empty() ? target_ + " is gone" : "plays to " + target);
    std::string heard;
    if (view.remote != nullptr) {
      view.remote->ShowOutput(target);
      heard = view.remote->Status(engine_.State(), engine_.TakePeaks());
    } else {
      heard = LiveStatus(keys_.side(), engine_.State(), engine_.TakePeaks());
    }
    line->Show(view.status() + heard + (target.empty() ? "  no output" : "  to " + target));
  }
}

void LiveCommand::NoteTarget(const std::string& target, const std::string& note) {
  if (target == target_) {
    return;
  }
  target_ = target;
  engine_.Note(note);
  ShowMessage(note);
}

void LiveCommand::Summarize() {
  const LiveState state = engine_.State();
  constexpr double kPercent = 100;
  ShowMessage(
      Format("played %.1f s; load %.2f %%, at most %.1f %% of a cycle; of %llu cycles %llu "
             "took more than half of their time; %llu xruns",
             static_cast<double>(state.frames) / kSampleRateHz, kPercent * state.cycles.mean,
             kPercent * state.cycles.worst, static_cast<unsigned long long>(state.cycles.cycles),
             static_cast<unsigned long long>(state.cycles.slow),
             static_cast<unsigned long long>(state.cycles.xruns)));
}

}  // namespace kelda::tools
