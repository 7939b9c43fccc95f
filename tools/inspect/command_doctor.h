// kelda doctor: whether a signal library or a directory of tuning files fits the effect.
#ifndef KELDA_TOOLS_COMMAND_DOCTOR_H_
#define KELDA_TOOLS_COMMAND_DOCTOR_H_

namespace CLI {
class App;
}

namespace kelda::tools {

// Adds the command to the program; it runs when the arguments are parsed and
// throws Failure.
void AddDoctorCommand(CLI::App* program);

}  // namespace kelda::tools

#endif  // KELDA_TOOLS_COMMAND_DOCTOR_H_
