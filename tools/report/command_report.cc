#include <CLI/CLI.hpp>
#include <filesystem>
#include <memory>
#include <optional>
#include <span>
#include <string>

#include "tools/commands.h"
#include "tools/core/failure.h"
#include "tools/core/output_file.h"
#include "tools/core/status_line.h"
#include "tools/framework/effect_library.h"
#include "tools/framework/installation.h"
#include "tools/framework/setting.h"
#include "tools/inspect/inspected_directory.h"
#include "tools/inspect/tuning_verdict.h"
#include "tools/report/report_data.h"
#include "tools/report/report_page.h"

namespace kelda::tools {
namespace {

struct ReportArguments {
  std::filesystem::path tuning;
  std::filesystem::path output = "report.html";
  std::filesystem::path json;
  std::filesystem::path library;
};

void Run(const ReportArguments& arguments) {
  const auto whole = [](const std::filesystem::path& path) {
    std::error_code error;  // then it cannot be opened, and that is said
    return std::filesystem::weakly_canonical(std::filesystem::absolute(path), error);
  };
  if (!arguments.json.empty() && whole(arguments.json) == whole(arguments.output)) {
    throw Failure(ExitCode::kUsage, "-o and --json name one file: " + arguments.output.string());
  }
  SetProperty("vendor.kelda.effect=1");
  const std::filesystem::path tuning = UseTuningDirectory(arguments.tuning);
  const EffectLibrary library(arguments.library.empty() ? DefaultEffectLibrary()
                                                        : arguments.library);
  OutputFile file(arguments.output);
  std::optional<OutputFile> json_file;
  if (!arguments.json.empty()) {
    json_file.emplace(arguments.json);
  }
  std::string page;
  std::string json;
  std::string problems;
  {
    StatusLine line;
    line.Show("asking the engine");
    const InspectedDirectory directory = InspectDirectory(tuning, library);
    const Json data =
        CollectReport(directory, library, [&](const std::string& what) { line.Show(what); });
    page = ReportPage(data);
    json = ToText(data);
    problems = Problems(directory);
  }
  file.Write(std::as_bytes(std::span(page)));
  if (json_file) {
    json_file->Write(std::as_bytes(std::span(json)));
    json_file->Commit();
  }
  file.Commit();
  if (!problems.empty()) {
    ShowLines(problems);
    throw Failure(ExitCode::kInput, "the tuning is not whole; " + arguments.output.string() +
                                        " shows what it does as it is");
  }
}

}  // namespace

void AddReportCommand(CLI::App* program) {
  CLI::App* const command =
      program->add_subcommand("report", "Measure a tuning and draw what it does, as one web page");
  const auto arguments = std::make_shared<ReportArguments>();
  const auto option = [&](const char* name, auto& value, const char* form, const char* help) {
    command->add_option(name, value, help)->type_name(form);
  };
  option("--tuning", arguments->tuning, "DIR",
         "Tuning files; else KELDA_DATA_DIR, else the installed ones");
  option("-o,--output", arguments->output, "FILE", "The page (report.html)");
  option("--json", arguments->json, "FILE", "Also write what the page shows as JSON, for scripts");
  option("--library", arguments->library, "FILE", "Effect library; else the installed one");
  command->footer(
      "The page holds everything it needs and loads nothing from a network. It begins with the\n"
      "verdicts of kelda doctor and shows each equalizer, each virtual loudspeaker, the measured\n"
      "response, latency and headroom of each chain that the engine runs, what a change of the\n"
      "mode sounds like, and how music and cinema sound: lines beside steady tones, colour,\n"
      "coherence of the ears, room, loudness.\n\n"
      "Example:\n"
      "  kelda report --tuning tuning -o report.html\n\n" +
      std::string(kExitCodeHelp) +
      "  A faulty file, or a stage that the tuning wants and that cannot load, is 3, as with\n"
      "  kelda inspect; the page is written all the same.\n");
  command->callback([arguments] { Run(*arguments); });
}

}  // namespace kelda::tools
