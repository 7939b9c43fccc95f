// The commands of the program.
#ifndef KELDA_TOOLS_COMMANDS_H_
#define KELDA_TOOLS_COMMANDS_H_

#include <memory>

namespace CLI {
class App;
}

namespace kelda::tools {

class LiveCompanion;

// Makes what may accompany a command that plays live.
using CompanionMaker = std::unique_ptr<LiveCompanion> (*)();
std::unique_ptr<LiveCompanion> MakeCockpit();  // a page to tune and compare by ear

// Each adds a command to the program. It runs when the arguments are parsed, and throws Failure
// or Interrupted.
void AddCaptureCommand(CLI::App* program);  // what is in a raw capture of the effect
void AddDoctorCommand(CLI::App* program);   // whether a signal library or a tuning fits the effect
void AddInspectCommand(CLI::App* program);  // what tuning files hold, and what the engine does
void AddRenderCommand(CLI::App* program);   // an audio file as a listener would hear it
void AddReportCommand(CLI::App* program);   // a page with pictures of a tuning
void AddTuneCommand(CLI::App* program);     // tuning files from the files that people have

// A sink of the desktop through the effect, and audio files, played through it.
void AddLiveCommand(CLI::App* program, CompanionMaker make_companion);
void AddPlayCommand(CLI::App* program, CompanionMaker make_companion);

}  // namespace kelda::tools

#endif  // KELDA_TOOLS_COMMANDS_H_
