// kelda render: turns an audio file into what a listener would hear.
#ifndef KELDA_TOOLS_COMMAND_RENDER_H_
#define KELDA_TOOLS_COMMAND_RENDER_H_

namespace CLI {
class App;
}

namespace kelda::tools {

// Adds the command to the program; it runs when the arguments are parsed and
// throws Failure or Interrupted.
void AddRenderCommand(CLI::App* program);

}  // namespace kelda::tools

#endif  // KELDA_TOOLS_COMMAND_RENDER_H_
