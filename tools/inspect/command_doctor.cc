#include <CLI/CLI.hpp>
#include <filesystem>
#include <memory>
#include <string>
#include <vector>

#include "tools/commands.h"
#include "tools/core/failure.h"
#include "tools/core/format.h"
#include "tools/core/printable.h"
#include "tools/core/standard_output.h"
#include "tools/device/device_report.h"
#include "tools/framework/effect_library.h"
#include "tools/framework/installation.h"
#include "tools/framework/setting.h"
#include "tools/inspect/inspected_directory.h"
#include "tools/inspect/tuning_trial.h"
#include "tools/inspect/tuning_verdict.h"
#include "tools/library/library_doctor.h"

namespace kelda::tools {
namespace {

struct DoctorArguments {
  std::filesystem::path library;
  std::filesystem::path tuning;
  std::string device;
};

// Returns whether nothing is wrong.
bool DiagnoseTuning(const std::filesystem::path& directory) {
  const std::vector<DirectoryEntry> entries = ReadTuning(directory);
  std::string files = "files in " + Printable(directory.string()) + "\n";
  for (const DirectoryEntry& entry : entries) {
    if (const char* const finding = Finding(entry); finding != nullptr) {
      const std::string note = entry.file.summary.empty() ? Note(entry) : entry.file.summary;
      files += Format("  %-8s %-22s %s%s%s\n", finding, Printable(entry.name).c_str(),
                      Printable(note).c_str(), note.empty() ? "" : "; ", entry.purpose.c_str());
    }
  }
  PrintToStandardOutput(files);
  SetProperty("vendor.kelda.effect=1");
  UseTuningDirectory(directory);
  const TuningTrial trial = TryTuning(EffectLibrary(DefaultEffectLibrary()));
  std::string report =
      "heard, where outputs run at 48000 Hz (AT 44100 HZ ALL FREQUENCIES ARE 8 % LOWER)\n";
  for (const Heard& heard : trial.heard) {
    report += Format("  %-38s %s\n", heard.situation.c_str(), Verdict(heard).c_str());
  }
  if (!trial.log.empty()) {
    report += "the effect's log\n";
  }
  for (const std::string& line : trial.log) {
    report += "  " + Printable(line) + "\n";
  }
  PrintToStandardOutput(report);
  return IsWhole(entries, trial);
}

void Run(const DoctorArguments& arguments) {
  if (arguments.library.empty() && arguments.tuning.empty() && arguments.device.empty()) {
    throw Failure(ExitCode::kUsage, "doctor needs --library DIR, --tuning DIR or --device FILE");
  }
  const std::filesystem::path tuning =
      arguments.tuning.empty() ? DefaultTuningDirectory() : arguments.tuning;
  if (!arguments.library.empty() || !arguments.tuning.empty()) {
    CheckTuningDirectory(tuning);
  }
  const bool device_fits = arguments.device.empty() || DiagnoseDevice(arguments.device);
  // Before the effect is loaded, because that loads a signal library as well.
  const bool library_fits = arguments.library.empty() || DiagnoseLibrary(arguments.library, tuning);
  const bool tuning_fine = arguments.tuning.empty() || DiagnoseTuning(arguments.tuning);
  if (!library_fits) {
    throw Failure(ExitCode::kLibrary, "the signal library does not fit");
  }
  if (!device_fits) {
    throw Failure(ExitCode::kInput,
                  "the effect has no way into this device, or the text is not whole");
  }
  if (!tuning_fine) {
    throw Failure(ExitCode::kInput, "the tuning is not whole");
  }
}

}  // namespace

void AddDoctorCommand(CLI::App* program) {
  CLI::App* const command = program->add_subcommand(
      "doctor", "Check a signal library, tuning files pulled from a device, or a device");
  const auto arguments = std::make_shared<DoctorArguments>();
  command
      ->add_option("--library", arguments->library,
                   "Directory of a libupmix-lib.so: check its symbols and sizes, and run a block "
                   "through each component")
      ->type_name("DIR");
  command
      ->add_option(
          "--tuning", arguments->tuning,
          "Directory of tuning files: report what is missing or damaged and what the listener "
          "hears; the trial of --library uses these files, too")
      ->type_name("DIR");
  command
      ->add_option("--device", arguments->device,
                   "A device's own texts, the output of getprop and dumpsys, or - for standard "
                   "input: report which library it loads, and whether spatial audio is in the way")
      ->type_name("FILE");
  command->footer(
      "A library runs in child processes: if it crashes or hangs, that is reported.\n"
      "Files in the closed library's own format are reported as damaged.\n\n"
      "Examples:\n  kelda doctor --library closed/ --tuning pulled/\n"
      "  adb shell 'getprop; dumpsys -l; dumpsys audio; dumpsys media.audio_flinger' |\n"
      "    kelda doctor --device -\n\n" +
      std::string(kExitCodeHelp) +
      "  A tuning file that is missing or damaged, or a mode that is not heard as it should be, "
      "is\n"
      "  3. Only the list of tuned applications may be missing. A device that takes the effect by "
      "no\n"
      "  door, or whose texts do not tell, is 3, too.\n");
  command->callback([arguments] { Run(*arguments); });
}

}  // namespace kelda::tools
