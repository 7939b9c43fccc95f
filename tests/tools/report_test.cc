// `kelda report`: what the page says is what the files hold and the effect does.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <nlohmann/json.hpp>
#include <numeric>

#include "tests/tools/expectations.h"
#include "tests/tools/program.h"
#include "upmix-lib/equalizer/equalizer_file.h"

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
    tuning.curves[0].bands = {{BandType::kPeaking, 1000, 9, 10},
                              {BandType::kLowShelf, 100, 5, 0.7f},
                              {BandType::kPeaking, 12000, -3, 10}};
    tuning.curves[1].bands = {{BandType::kNotch, 3000, 0, 4},
                              {BandType::kPeaking, 40, 9, 10},
                              {BandType::kHighShelf, 8000, -6, 0.7f}};
    folder_.Write("tuning/personalized.ba", upmix_lib::BuildEqualizerFile(tuning));
  }

  json Data(int exit_code = 0) {
    const ProgramResult result = RunKelda(report_);
    EXPECT_EQ(exit_code, result.exit_code) << result.err;
    error_ = result.err;
    const std::string page = folder_.Read("report.html");
    const std::string mark = "id=\"data\">";
    EXPECT_TRUE(Holds(page, mark));
    const std::size_t begin = page.find(mark) + mark.size();
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
  std::string error_;
  const std::vector<std::string> report_{"report",
                                         "--tuning",
                                         folder_ / "tuning",
                                         "-o",
                                         folder_ / "report.html",
                                         "--json",
                                         folder_ / "report.json"};
};

double Mean(const std::vector<double>& values, std::size_t first, std::size_t count) {
  const auto begin = values.begin() + static_cast<std::ptrdiff_t>(first);
  return std::accumulate(begin, begin + static_cast<std::ptrdiff_t>(count), 0.0) /
         static_cast<double>(count);
}

// What is said of the level is what its curve shows.
void ExpectLevels(const json& changes) {
  for (const json& change : changes) {
    SCOPED_TRACE(change["to"]);
    const auto levels_db = change["settling"]["level_db"].get<std::vector<double>>();
    EXPECT_NEAR(Mean(levels_db, 6, 4), change["before_db"], 1);  // -0.4 to 0 s
    EXPECT_NEAR(Mean(levels_db, 12, 4), change["just_after_db"], 1);
    EXPECT_NEAR(Mean(levels_db, 60, 4), change["later_db"], 1);
  }
  EXPECT_NEAR(-23, changes[3]["later_db"], 0.2);  // the noise as it is: twice -26 dBFS
}

void ExpectFades(const json& changes) {
  for (const json& change : changes) {
    const bool fades = change["to"] != "off";
    // 144 frames of silence, and 0 is the first and the last gain of the fades.
    EXPECT_NEAR(fades ? 3.0 : 0.0, change["silence_ms"], 0.1) << change["to"];
    EXPECT_EQ(0, change["steps"]);
    const auto levels = change["fade"]["level_db"].get<std::vector<double>>();
    const auto lowest = std::min_element(levels.begin(), levels.end());
    EXPECT_EQ(fades, *lowest < -60) << *lowest;
    if (fades) {
      EXPECT_NEAR(0, 5.0 * static_cast<double>(lowest - levels.begin()) - 135, 25);
    }
  }
}

// The level control brings every loudness to one, the change from off begins with its rise, and of
// wide sound the low frequencies are the most alike at the ears.
void ExpectSound(const json& sound) {
  for (const json& mode : sound["modes"]) {
    SCOPED_TRACE(mode["mode"]);
    EXPECT_LT(mode["lines"]["pairs"]["worst_db"], -50);
    EXPECT_EQ(0, *std::max_element(mode["lines"]["chord"]["tones_db"].begin(),
                                   mode["lines"]["chord"]["tones_db"].end()));
    const auto over_db = mode["loudness"]["centre"].get<std::vector<double>>();
    EXPECT_NEAR(20, over_db.front() - over_db.back(), 1);
    const auto heard = mode["coherence"]["heard"].get<std::vector<double>>();
    EXPECT_GT(Mean(heard, 0, 3), Mean(heard, heard.size() - 6, 6));
    EXPECT_GT(mode["room"]["left"]["direct_over_reverberant_db"], 5);
    EXPECT_LT(mode["room"]["centre"]["decay_db"].back(), -30);
    EXPECT_NEAR(mode["colour"]["centre"]["gain_db"][15], 5, 5);
  }
  EXPECT_EQ(2u, sound["modes"].size());
  EXPECT_EQ(4u, sound["handovers"].size());
  EXPECT_GT(sound["handovers"][0]["short_db"], sound["handovers"][1]["short_db"]);
}

TEST_F(Report, MeasuresWhatTheFilesSay) {
  const json data = Data();
  EXPECT_EQ(data, json::parse(folder_.Read("report.json")));
  ExpectSound(data["sound"]);
  EXPECT_EQ("", error_);
  EXPECT_TRUE(data["problems"].empty() && data["verdict"]["files"].empty());
  for (const json& heard : data["verdict"]["heard"]) {
    EXPECT_TRUE(heard["fine"]) << heard;
  }
  ExpectFades(data["changes"]);
  ExpectLevels(data["changes"]);
  const json equalizer = data["equalizers"][0];
  EXPECT_LT(equalizer["deviation_db"], 0.02);
  const auto frequencies_hz = data["frequencies"].get<std::vector<double>>();
  const auto nearest = [&](double hz) {
    const auto closer = [&](double a, double b) { return std::abs(a - hz) < std::abs(b - hz); };
    const auto at = std::min_element(frequencies_hz.begin(), frequencies_hz.end(), closer);
    return static_cast<std::size_t>(at - frequencies_hz.begin());
  };
  // The bells of Q 10, less the preamp, whole: neither averaged away nor between two points.
  for (const std::size_t side : {0, 1}) {
    const json curve = equalizer["curves"][side];
    const auto measured_db = curve["measured_db"].get<std::vector<double>>();
    // At 40 Hz, the right ear's, the lines of the measuring sound are a fifth of its width apart.
    EXPECT_NEAR(5, *std::max_element(measured_db.begin(), measured_db.end()),
                side == 0 ? 0.25 : 0.5);
  }
  EXPECT_NEAR(-4, equalizer["curves"][1]["measured_db"][nearest(1000)], 0.3);
  EXPECT_LT(equalizer["curves"][1]["measured_db"][nearest(3000)], -15);

  const json pass = Chain(data, "Off, standard");
  EXPECT_EQ(0, pass["latency_frames"]);
  EXPECT_EQ(1920, pass["heard_latency_frames"]);  // two blocks of 20 ms wait in the rings
  EXPECT_EQ(0, pass["images"]["centre"]["level_db"]);
  for (const json& gain_db : pass["images"]["left"]["left_db"]) {
    EXPECT_EQ(0, gain_db);
  }
  EXPECT_TRUE(pass["images"]["left"]["right_db"][50].is_null()) << "silence on the right";

  for (const char* title : {"Music, standard, bluetooth", "Cinema, standard, bluetooth"}) {
    const json chain = Chain(data, title);
    EXPECT_EQ(144, chain["latency_frames"]) << title;
    EXPECT_NEAR(1920 + 144, chain["heard_latency_frames"], 1) << title;
    EXPECT_NEAR(144, chain["images"]["centre"]["arrival_frames"], 1) << title;
    // The level control's ceiling, and its boost of quiet sound.
    EXPECT_LT(chain["images"]["diffuse"]["true_peak_db"], -0.9) << title;
    EXPECT_GT(chain["images"]["diffuse"]["level_db"], 2) << title;
    // At high frequencies the head is in the way of what comes from the left.
    const json left = chain["images"]["left"];
    EXPECT_GT(left["left_db"][nearest(8000)], left["right_db"][nearest(8000)].get<double>() + 6);
  }
}

TEST_F(Report, SaysWhatIsDamagedAndCouldNotBeMeasured) {
  std::filesystem::remove(folder_ / "tuning/upmix.music.hps.bin");
  folder_.Write("tuning/personalized.hki", "KHKI");
  const json data = Data(3);
  EXPECT_TRUE(Holds(error_, "/tuning/personalized.hki: shorter than its header"));
  EXPECT_TRUE(Holds(error_, "kelda: the tuning is not whole; " + folder_ / "report.html"));
  EXPECT_EQ("MISSING", data["verdict"]["files"][0]["state"]);
  EXPECT_EQ("DAMAGED", data["verdict"]["files"][1]["state"]);
  EXPECT_FALSE(data["verdict"]["heard"][0]["fine"]);
  const json broken = Chain(data, "Music, standard, wired");
  EXPECT_FALSE(broken.contains("images"));
  EXPECT_FALSE(broken["problems"].empty());
  EXPECT_TRUE(Chain(data, "Cinema, standard, bluetooth").contains("images"));
  EXPECT_FALSE(data["problems"].empty());
  for (const json& mode : data["sound"]["modes"]) {  // on wired headphones
    EXPECT_FALSE(mode["problems"].empty() || mode.contains("lines"));
  }
  EXPECT_TRUE(data["sound"]["handovers"].empty());
}

TEST_F(Report, FailsWhole) {
  folder_.Write("report.html", "old");
  ExpectRefused(4, "", report_, {.file_size_limit_bytes = 65536});
  EXPECT_EQ("old", folder_.Read("report.html"));
  EXPECT_EQ(2u, folder_.Names().size());
  ExpectRefused(2, "", {"report", "--tuning", folder_ / "none"});
  ExpectRefused(5, "", {"report", "--library", folder_ / "none.so"});
  ExpectRefused(4, "", {"report", "-o", folder_ / "none/report.html"});
  ExpectRefused(2, "name one file", {"report", "-o", folder_ / "one", "--json", folder_ / "./one"});
}

}  // namespace
}  // namespace kelda::tools
