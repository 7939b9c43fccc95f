// The report's page in a real browser: Chromium, without a window and without a network.
//
// A page around it gives it the width of a screen and hears from a script at its end how it
// went. The pictures of the screens stay in the build directory.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <png.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <filesystem>
#include <nlohmann/json.hpp>

#include "tests/tools/program.h"

namespace kelda::tools {
namespace {

struct Screen {
  const char* name;
  int width;
  int height;
  bool dark;
};

void PrintTo(const Screen& screen, std::ostream* stream) { *stream << screen.name; }

struct Rgb {
  std::vector<uint8_t> bytes;
  int width = 0;
  int height = 0;
};

Rgb ReadPng(const std::string& path) {
  png_image image{};
  image.version = PNG_IMAGE_VERSION;
  if (png_image_begin_read_from_file(&image, path.c_str()) == 0) {
    return {};
  }
  image.format = PNG_FORMAT_RGB;
  Rgb rgb{std::vector<uint8_t>(PNG_IMAGE_SIZE(image)), static_cast<int>(image.width),
          static_cast<int>(image.height)};
  png_image_finish_read(&image, nullptr, rgb.bytes.data(), 0, nullptr);
  return rgb;
}

double MeanBrightness(const Rgb& image) {
  double sum = 0;
  for (const uint8_t byte : image.bytes) {
    sum += byte;
  }
  return sum / static_cast<double>(image.bytes.size());
}

int CountColor(const Rgb& image, const std::array<int, 3>& color) {
  int count = 0;
  for (size_t at = 0; at + 3 <= image.bytes.size(); at += 3) {
    bool near = true;
    for (size_t i = 0; i < 3; ++i) {
      near = near && std::abs(image.bytes[at + i] - color[i]) < 12;
    }
    count += near ? 1 : 0;
  }
  return count;
}

class Browser : public testing::TestWithParam<Screen> {
 protected:
  static void SetUpTestSuite() {
    folder_ = new TemporaryFolder;
    std::filesystem::copy(KELDA_DEFAULT_TUNING, *folder_ / "tuning");
    // Text from a tuning must never become markup.
    folder_->Write("tuning/tunedapp_list",
                   "<img src=x onerror=console.log(1)>,MUSIC\n</script>,OFF\n");
    const ProgramResult result =
        RunKelda({"report", "--tuning", *folder_ / "tuning", "-o", *folder_ / "plain.html"});
    ASSERT_EQ(0, result.exit_code) << result.err;
    // What a page loads, and only that, stands in the resources of its timeline.
    folder_->Write("report.html", folder_->Read("plain.html") + R"(<script>
      setTimeout(() => parent.postMessage({
        drawn: document.documentElement.dataset.drawn ?? "failed",
        canvases: document.querySelectorAll("canvas[role=img][aria-label]").length,
        tables: document.querySelectorAll("figure table").length,
        images: document.images.length,
        loaded: performance.getEntriesByType("resource").length,
        overflow: document.documentElement.scrollWidth - innerWidth,
        canvasOverflow: Math.max(...[...document.querySelectorAll("canvas")].map(
            (canvas) => canvas.getBoundingClientRect().right - innerWidth)),
      }, "*"), 500);
      </script>)");
  }
  static void TearDownTestSuite() {
    delete folder_;
    folder_ = nullptr;
  }

  // Runs Chromium; its standard output and error go to files of the folder.
  static int Run(std::vector<std::string> arguments) {
    std::vector<char*> argv(arguments.size() + 1);
    std::transform(arguments.begin(), arguments.end(), argv.begin(),
                   [](std::string& argument) { return argument.data(); });
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    constexpr int kFlags = O_WRONLY | O_CREAT | O_TRUNC;
    posix_spawn_file_actions_addopen(&actions, STDOUT_FILENO, (*folder_ / "out").c_str(), kFlags,
                                     0600);
    posix_spawn_file_actions_addopen(&actions, STDERR_FILENO, (*folder_ / "err").c_str(), kFlags,
                                     0600);
    pid_t process = 0;
    const int error = posix_spawnp(&process, argv[0], &actions, nullptr, argv.data(), environ);
    posix_spawn_file_actions_destroy(&actions);
    if (error != 0) {
      return -1;
    }
    int status = 0;
    waitpid(process, &status, 0);
    return status;
  }

  static TemporaryFolder* folder_;
};

TemporaryFolder* Browser::folder_ = nullptr;

TEST_P(Browser, DrawsThePage) {
  const Screen& screen = GetParam();
  folder_->Write("screen.html", R"(<!doctype html><title>screen</title><style>body{margin:0}
      iframe{border:0;display:block;width:)" +
                                    std::to_string(screen.width) +
                                    "px;height:" + std::to_string(screen.height) + R"(px}</style>
      <script>addEventListener("message", (event) => {
        document.body.append(Object.assign(document.createElement("pre"),
            {id: "heard", hidden: true, textContent: JSON.stringify(event.data)})); });</script>
      <iframe src="report.html"></iframe>)");
  const std::string shot = std::string(KELDA_SCREENSHOTS) + "/report-" + screen.name + ".png";
  std::filesystem::create_directories(KELDA_SCREENSHOTS);
  std::filesystem::remove(shot);
  const std::string profile = *folder_ / ("profile-" + std::string(screen.name));
  const int status =
      Run({"chromium", "--headless", "--no-sandbox", "--disable-gpu", "--disable-quic",
           "--no-first-run", "--disable-background-networking", "--disable-component-update",
           "--disable-sync", "--host-resolver-rules=MAP * ~NOTFOUND", "--user-data-dir=" + profile,
           "--hide-scrollbars", "--enable-logging=stderr",
           std::string("--blink-settings=preferredColorScheme=") + (screen.dark ? "0" : "1"),
           "--window-size=" + std::to_string(std::max(screen.width, 500)) + "," +
               std::to_string(screen.height),
           "--virtual-time-budget=10000", "--dump-dom", "--screenshot=" + shot,
           "file://" + (*folder_ / "screen.html")});
  ASSERT_EQ(0, status) << "is chromium installed? " << folder_->Read("err");

  // "[...:INFO:CONSOLE:12] ..." is anything that the page said, or that it broke a rule.
  const std::string said = folder_->Read("err");
  EXPECT_EQ(std::string::npos, said.find("CONSOLE")) << said;
  const std::string dom = folder_->Read("out");
  const size_t begin = dom.find('{', dom.find("id=\"heard\""));
  ASSERT_NE(std::string::npos, begin) << "the page did not finish: " << dom;
  const auto heard = nlohmann::json::parse(dom.substr(begin, dom.find('}', begin) + 1 - begin));
  EXPECT_GE(heard["canvases"], 30);
  EXPECT_EQ(std::to_string(heard["canvases"].get<int>()), heard["drawn"]);
  EXPECT_EQ(heard["canvases"], heard["tables"]);
  EXPECT_EQ(0, heard["images"]);
  EXPECT_EQ(0, heard["loaded"]);
  EXPECT_LE(heard["overflow"], 0);
  EXPECT_LE(heard["canvasOverflow"], 0);

  const Rgb image = ReadPng(shot);
  ASSERT_EQ(screen.height, image.height) << shot;
  if (screen.dark) {
    EXPECT_LT(MeanBrightness(image), screen.width < 500 ? 110 : 60);  // beside the phone is white
  } else {
    EXPECT_GT(MeanBrightness(image), 220);
  }
  // The lines of the left and of the right ear.
  EXPECT_GT(
      CountColor(image, screen.dark ? std::array{0x62, 0xae, 0xf7} : std::array{0x0b, 0x62, 0xb8}),
      5000);
  EXPECT_GT(
      CountColor(image, screen.dark ? std::array{0xff, 0x9e, 0x64} : std::array{0xc2, 0x41, 0x0c}),
      2000);
}

INSTANTIATE_TEST_SUITE_P(Screens, Browser,
                         testing::Values(Screen{"desktop-light", 1280, 9000, false},
                                         Screen{"desktop-dark", 1280, 9000, true},
                                         Screen{"phone-light", 390, 14000, false},
                                         Screen{"phone-dark", 390, 14000, true}),
                         [](const auto& test) {
                           std::string name = test.param.name;
                           std::replace(name.begin(), name.end(), '-', '_');
                           return name;
                         });

}  // namespace
}  // namespace kelda::tools
