// `kelda report`: what the page says is what the files hold and the effect does.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <nlohmann/json.hpp>

#include "tests/tools/expectations.h"
#include "tests/tools/program.h"
#include "upmix-lib/equalizer_file.h"

namespace kelda::tools {
namespace {

using nlohmann::json;
using upmix_lib::BandType;

class Report : public testing::Test {
 protected:
  Report() {
    std::filesystem::copy(KELDA_DEFAULT_TUNING, folder_ / "tuning");
    folder_.Write("tuning/wired.hki.config", "personalized.hki");
    std::filesystem::copy(folder_ / "tuning/standard.hki", folder_ / "tuning/personalized.hki");
    // Ears that are not alike, a sharp band, a loud one, a cut.
    upmix_lib::EqualizerTuning tuning;
    tuning.preamp_db = -4;
    tuning.curves.resize(2);
    tuning.curves[0].bands = {{BandType::kPeaking, 1000, 9, 8},
                              {BandType::kLowShelf, 100, 5, 0.7F}};
    tuning.curves[1].bands = {{BandType::kNotch, 3000, 0, 4},
                              {BandType::kHighShelf, 8000, -6, 0.7F}};
    const std::vector<std::byte> file = upmix_lib::BuildEqualizerFile(tuning);
    folder_.Write("tuning/personalized.ba",
                  std::string(reinterpret_cast<const char*>(file.data()), file.size()));
  }

  json Data() {
    EXPECT_EQ("", Succeed(report_).err);
    const std::string page = folder_.Read("report.html");
    const std::string mark = "id=\"data\">";
    EXPECT_TRUE(Holds(page, mark));
    const size_t begin = page.find(mark) + mark.size();
    return json::parse(page.substr(begin, page.find("</script>", begin) - begin), nullptr, false);
  }

  static json Chain(const json& data, const std::string& title) {
    for (const json& chain : data["chains"]) {
      if (chain["title"] == title) {
        return chain;
      }
    }
    ADD_FAILURE() << title << " is missing";
    return {};
  }

  const TemporaryFolder folder_;
  const std::vector<std::string> report_{"report", "--tuning", folder_ / "tuning", "-o",
                                         folder_ / "report.html"};
};

void ExpectFades(const json& changes) {
  for (const json& change : changes) {
    const bool fades = change["to"] != "off";
    // 144 frames of silence, and 0 is the first and the last gain of the fades.
    EXPECT_NEAR(fades ? 3.0 : 0.0, change["silence_ms"], 0.1) << change["to"];
    EXPECT_EQ(0, change["steps"]);
    const auto levels = change["level_db"].get<std::vector<double>>();
    const auto lowest = std::min_element(levels.begin(), levels.end());
    EXPECT_EQ(fades, *lowest < -60) << *lowest;
    if (fades) {
      EXPECT_NEAR(0, 5.0 * static_cast<double>(lowest - levels.begin()) - 135, 25);
    }
  }
}

TEST_F(Report, MeasuresWhatTheFilesSay) {
  const json data = Data();
  ExpectFades(data["changes"]);
  const json equalizer = data["equalizers"][0];
  EXPECT_LT(equalizer["deviation_db"], 0.02);
  const auto frequencies_hz = data["frequencies"].get<std::vector<double>>();
  const auto nearest = [&](double hz) {
    const auto closer = [&](double a, double b) { return std::abs(a - hz) < std::abs(b - hz); };
    const auto at = std::min_element(frequencies_hz.begin(), frequencies_hz.end(), closer);
    return static_cast<size_t>(at - frequencies_hz.begin());
  };
  // In words: the left ear's bell and preamp, the right ear's notch.
  EXPECT_NEAR(4.5, equalizer["curves"][0]["measured_db"][nearest(1000)], 0.7);
  EXPECT_NEAR(-4, equalizer["curves"][1]["measured_db"][nearest(1000)], 0.3);
  EXPECT_LT(equalizer["curves"][1]["measured_db"][nearest(3000)], -15);

  const json pass = Chain(data, "Off, standard");
  EXPECT_EQ(0, pass["latency_frames"]);
  EXPECT_EQ(0, pass["images"]["centre"]["level_db"]);
  for (const json& gain_db : pass["images"]["left"]["left_db"]) {
    EXPECT_EQ(0, gain_db);
  }
  EXPECT_TRUE(pass["images"]["left"]["right_db"][50].is_null()) << "silence on the right";

  for (const char* title : {"Music, standard, bluetooth", "Cinema, standard, bluetooth"}) {
    const json chain = Chain(data, title);
    EXPECT_EQ(144, chain["latency_frames"]) << title;
    EXPECT_NEAR(144, chain["images"]["centre"]["arrival_frames"], 1) << title;
    // The level control's ceiling, and its boost of quiet sound.
    EXPECT_LT(chain["images"]["diffuse"]["true_peak_db"], -0.9) << title;
    EXPECT_GT(chain["images"]["diffuse"]["level_db"], 2) << title;
    // At high frequencies the head is in the way of what comes from the left.
    const json left = chain["images"]["left"];
    EXPECT_GT(left["left_db"][nearest(8000)], left["right_db"][nearest(8000)].get<double>() + 6);
  }
}

TEST_F(Report, SaysWhatItCouldNotMeasure) {
  std::filesystem::remove(folder_ / "tuning/upmix.music.hps.bin");
  folder_.Write("tuning/personalized.hki", "KHKI");
  const json data = Data();
  const json broken = Chain(data, "Music, standard, wired");
  EXPECT_FALSE(broken.contains("images"));
  EXPECT_FALSE(broken["problems"].empty());
  EXPECT_TRUE(Chain(data, "Cinema, standard, bluetooth").contains("images"));
  EXPECT_FALSE(data["problems"].empty());
}

TEST_F(Report, FailsWhole) {
  folder_.Write("report.html", "old");
  ExpectRefused(4, "", report_, {.file_size_limit_bytes = 65536});
  EXPECT_EQ("old", folder_.Read("report.html"));
  EXPECT_EQ(2U, folder_.Names().size());
  ExpectRefused(2, "", {"report", "--tuning", folder_ / "none"});
  ExpectRefused(5, "", {"report", "--library", folder_ / "none.so"});
  ExpectRefused(4, "", {"report", "-o", folder_ / "none/report.html"});
}

}  // namespace
}  // namespace kelda::tools
