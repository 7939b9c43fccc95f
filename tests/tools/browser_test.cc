// The report's page in a real browser: Chromium, without a window and without a network.
//
// A page around it gives it the width of a screen; a script at its end reports to that page how it
// went. The pictures of the screens stay in the build directory.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <nlohmann/json.hpp>

#include "tests/tools/expectations.h"
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

class Browser : public testing::TestWithParam<Screen> {
 protected:
  static void SetUpTestSuite() {
    folder_ = new TemporaryFolder;
    std::filesystem::copy(KELDA_DEFAULT_TUNING, *folder_ / "tuning");
    // Text from a tuning must never become markup.
    folder_->Write("tuning/tunedapp_list",
                   "<img src=x onerror=console.log(1)>,MUSIC\n</script>,OFF\n");
    Succeed({"report", "--tuning", *folder_ / "tuning", "-o", *folder_ / "plain.html"});
    // What a page loads, and only that, stands in the resources of its timeline.
    folder_->Write("report.html", folder_->Read("plain.html") + R"(<script>
      const canvases = [...document.querySelectorAll("canvas[role=img][aria-label]")];
      const pixels = (canvas) => {
        const { width, height } = canvas;
        const copy = Object.assign(document.createElement("canvas"), { width, height });
        const context = copy.getContext("2d", { willReadFrequently: true });
        context.drawImage(canvas, 0, 0);
        return context.getImageData(0, 0, width, height).data;
      };
      // How many pixels of the drawings have nearly the colour.
      const count = (...rgb) => canvases.map(pixels).reduce((sum, data) => {
        for (let at = 0; at < data.length; at += 4) {
          sum += data[at + 3] > 250 && rgb.every((c, i) => Math.abs(data[at + i] - c) < 12);
        }
        return sum;
      }, 0);
      setTimeout(() => parent.postMessage({
        drawn: document.documentElement.dataset.drawn ?? "failed",
        background: getComputedStyle(document.body).backgroundColor,
        left: [count(0x0b, 0x62, 0xb8), count(0x62, 0xae, 0xf7)],  // its line: light, dark
        right: [count(0xc2, 0x41, 0x0c), count(0xff, 0x9e, 0x64)],
        canvases: canvases.length,
        tables: document.querySelectorAll("figure table").length,
        images: document.images.length,
        loaded: performance.getEntriesByType("resource").length,
        overflow: document.documentElement.scrollWidth - innerWidth,
        canvasOverflow: Math.max(
            ...canvases.map((canvas) => canvas.getBoundingClientRect().right - innerWidth)),
      }, "*"), 500);
      </script>)");
  }
  static void TearDownTestSuite() {
    delete folder_;
    folder_ = nullptr;
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
  const std::string size =
      std::to_string(std::max(screen.width, 500)) + "," + std::to_string(screen.height);
  const std::string command =
      "chromium --headless --no-sandbox --disable-gpu --disable-quic --no-first-run "
      "--disable-background-networking --disable-component-update --disable-sync "
      "--host-resolver-rules='MAP * ~NOTFOUND' --hide-scrollbars --enable-logging=stderr "
      "--blink-settings=preferredColorScheme=" +
      std::string(screen.dark ? "0" : "1") +
      " --virtual-time-budget=10000 --dump-dom --window-size=" + size +
      " --user-data-dir=" + *folder_ / ("profile-" + std::string(screen.name)) + " --screenshot='" +
      shot + "' file://" + *folder_ / "screen.html" + " >" + *folder_ / "out" + " 2>" +
      *folder_ / "err";
  ASSERT_EQ(0, std::system(command.c_str())) << "is chromium installed? " << folder_->Read("err");

  // "[...:INFO:CONSOLE:12] ..." is anything that the page said, or that it broke a rule.
  const std::string said = folder_->Read("err");
  EXPECT_FALSE(Holds(said, "CONSOLE")) << said;
  const std::string dom = folder_->Read("out");
  const std::size_t begin = dom.find('{', dom.find("id=\"heard\""));
  ASSERT_NE(std::string::npos, begin) << "the page did not finish: " << dom;
  const auto heard = nlohmann::json::parse(dom.substr(begin, dom.find('}', begin) + 1 - begin));
  EXPECT_GE(heard["canvases"], 30);
  EXPECT_EQ(std::to_string(heard["canvases"].get<int>()), heard["drawn"].get<std::string>());
  EXPECT_EQ(heard["canvases"], heard["tables"]);
  EXPECT_EQ(0, heard["images"]);
  EXPECT_EQ(0, heard["loaded"]);
  EXPECT_LE(heard["overflow"], 0);
  EXPECT_LE(heard["canvasOverflow"], 0);

  EXPECT_EQ(screen.dark ? "rgb(20, 23, 27)" : "rgb(251, 251, 249)", heard["background"]);
  EXPECT_GT(heard["left"][screen.dark ? 1 : 0], 5000);
  EXPECT_GT(heard["right"][screen.dark ? 1 : 0], 2000);
  EXPECT_GT(std::filesystem::file_size(shot), 100000u) << "a picture of nothing";
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
