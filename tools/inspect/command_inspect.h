// kelda inspect: what tuning files hold, and what the engine makes of them.
#ifndef KELDA_TOOLS_COMMAND_INSPECT_H_
#define KELDA_TOOLS_COMMAND_INSPECT_H_

namespace CLI {
class App;
}

namespace kelda::tools {

// Adds the command to the program; it runs when the arguments are parsed and
// throws Failure or Interrupted.
void AddInspectCommand(CLI::App* program);

}  // namespace kelda::tools

#endif  // KELDA_TOOLS_COMMAND_INSPECT_H_
