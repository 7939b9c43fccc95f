// kelda tune apps: the list of tuned applications, checked.
#include <memory>

#include "settings/tuning_directory.h"
#include "tools/core/output_file.h"
#include "tools/core/standard_output.h"
#include "tools/core/status_line.h"
#include "tools/core/text_file.h"
#include "tools/tune/app_list_check.h"
#include "tools/tune/command_tune.h"

namespace kelda::tools {
namespace {

struct AppsArguments {
  std::filesystem::path list;
  std::filesystem::path output;
  bool keep_rejected = false;
};

void Run(const AppsArguments& arguments) {
  const std::string list = ReadWholeFile(arguments.list, kMaxAppListBytes);
  const AppListCheck check = CheckAppList(arguments.list.string(), list);
  PrintToStandardOutput(check.report + std::to_string(check.entries) + " applications\n");
  if (!check.doubtful.empty()) {
    ShowLines(check.doubtful.Text());
  }
  if (!arguments.keep_rejected) {
    check.rejected.ThrowIfAny();
  }
  if (!arguments.output.empty()) {
    WriteWholeFile(arguments.output, std::as_bytes(std::span(list)));
  }
}

}  // namespace

void AddTuneAppsCommand(CLI::App* tune) {
  CLI::App* const command =
      tune->add_subcommand("apps", "Check a list of tuned applications, and copy it");
  const auto arguments = std::make_shared<AppsArguments>();
  command
      ->add_option("LIST", arguments->list,
                   "A line for each application: package name, comma, OFF, MUSIC or CINEMA")
      ->required()
      ->type_name("");
  AddOutputOption(command, &arguments->output,
                  "Where to copy the list; if not given, it is only checked");
  command->add_flag("--keep-rejected", arguments->keep_rejected,
                    "Copy the list even if the engine rejects some lines");
  command->footer(TuneFooter(
      "Prints for every line what the engine does with it in mode auto. Applications that "
      "are\nnot listed play in music or cinema, as the player asks.\n",
      std::string("kelda tune apps applications.txt -o ") + tuning_file::kAppList.name));
  command->callback([arguments] { Run(*arguments); });
}

}  // namespace kelda::tools
