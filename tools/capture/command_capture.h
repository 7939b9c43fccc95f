// kelda capture: what is in a raw capture of the effect.
#ifndef KELDA_TOOLS_COMMAND_CAPTURE_H_
#define KELDA_TOOLS_COMMAND_CAPTURE_H_

namespace CLI {
class App;
}

namespace kelda::tools {

// Adds the command to the program; it runs when the arguments are parsed and
// throws Failure or Interrupted.
void AddCaptureCommand(CLI::App* program);

}  // namespace kelda::tools

#endif  // KELDA_TOOLS_COMMAND_CAPTURE_H_
