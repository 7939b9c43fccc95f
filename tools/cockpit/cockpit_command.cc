// The options --cockpit and --project of the commands that play live.
#include <CLI/CLI.hpp>
#include <charconv>
#include <filesystem>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "tools/cockpit/cockpit.h"
#include "tools/commands.h"
#include "tools/core/failure.h"
#include "tools/core/status_line.h"
#include "tools/core/text_file.h"
#include "tools/framework/installation.h"
#include "tools/live/live_command.h"
#include "tools/replay/private_folder.h"
#include "tools/tune/tuning_directory.h"

namespace kelda::tools {
namespace {

namespace fs = std::filesystem;

class CockpitCompanion : public LiveCompanion {
 public:
  void AddTo(CLI::App* command) override {
    command
        ->add_flag(
            std::string("--cockpit{") + kAnyPort + "}", port_,
            "Serve a page to tune and compare by ear, on this machine only, at PORT or a free "
            "port; prints its address")
        ->type_name("[=PORT]");
    command->add_option("--project", project_, "The tuning project that the page tunes and saves")
        ->type_name("FILE.toml");
  }

  bool wanted() const override {
    if (port_.empty() && !project_.empty()) {
      throw Failure(ExitCode::kUsage, "--project is for --cockpit");
    }
    return !port_.empty();
  }

  fs::path Prepare(const LiveArguments& arguments) override {
    static_cast<void>(Port());  // before anything is loaded
    if (!project_.empty() && !arguments.setting.tuning.empty()) {
      throw Failure(ExitCode::kUsage, "--project and --tuning: one of them is the tuning");
    }
    const auto origin = project_.empty()
                            ? OpenTuningDirectory(UseTuningDirectory(arguments.setting.tuning))
                            : OpenProject(fs::absolute(project_),
                                          [](const std::string& lines) { ShowLines(lines); });
    std::vector<Setting> settings = arguments.setting.Settings();
    a_ = MakeSide(origin, settings);
    if (arguments.b.empty()) {
      settings.push_back(ParseSetting("mode=off"));
    }
    for (const std::string& text : arguments.b) {
      settings.push_back(ParseSetting(text));
    }
    b_ = MakeSide(origin, settings);
    scratch_.emplace("kelda-cockpit-");
    std::vector<TuningFile> files;
    for (const auto& [name, bytes] : a_.files) {
      files.push_back({name, *bytes});
    }
    const fs::path tuning = scratch_->path() / (std::string(Cockpit::kTuningFolder) + "0");
    WriteTuningDirectory(tuning, files);
    return tuning;
  }

  std::unique_ptr<LiveRemote> Begin(LiveEngine* engine, FilePlayer* player,
                                    const std::vector<fs::path>& files) override {
    auto cockpit =
        std::make_unique<Cockpit>(CockpitOptions{.port = Port(), .scratch = scratch_->path()},
                                  TuningModel(a_, b_), engine, player, files);
    ShowMessage("cockpit: " + cockpit->address());
    return cockpit;
  }

 private:
  static constexpr const char* kAnyPort = "any";

  int Port() const {
    constexpr int kMost = 65535;
    if (port_ == kAnyPort) {
      return 0;
    }
    int port = -1;
    const char* const end = port_.data() + port_.size();
    if (std::from_chars(port_.data(), end, port).ptr != end || port < 0 || port > kMost) {
      throw Failure(ExitCode::kUsage,
                    "--cockpit: not a port: " + Quoted(port_) + " (0 to 65535; 0: a free one)");
    }
    return port;
  }

  std::string port_;
  fs::path project_;
  std::optional<PrivateFolder> scratch_;
  Side a_, b_;
};

}  // namespace

std::unique_ptr<LiveCompanion> MakeCockpit() { return std::make_unique<CockpitCompanion>(); }

}  // namespace kelda::tools
