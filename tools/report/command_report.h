// kelda report: a page with pictures of a tuning.
#ifndef KELDA_TOOLS_COMMAND_REPORT_H_
#define KELDA_TOOLS_COMMAND_REPORT_H_

namespace CLI {
class App;
}

namespace kelda::tools {

// Adds the command to the program; it runs when the arguments are parsed and
// throws Failure or Interrupted.
void AddReportCommand(CLI::App* program);

}  // namespace kelda::tools

#endif  // KELDA_TOOLS_COMMAND_REPORT_H_
