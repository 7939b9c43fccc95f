// The tuning as the cockpit has it: knobs, undo, what Save writes, and files that are dropped.
#include <gtest/gtest.h>

#include <filesystem>
#include <functional>
#include <string>
#include <vector>

#include "tests/laboratory/temporary_folder.h"
#include "tools/cockpit/drops.h"
#include "tools/cockpit/project_save.h"
#include "tools/cockpit/toml_edit.h"
#include "tools/cockpit/tuning_model.h"
#include "tools/core/failure.h"

namespace kelda::tools {
namespace {

using Which = TuningModel::Which;

// The message of the Failure that `call` throws; "none" without.
std::string FailureOf(const std::function<void()>& call) {
  try {
    call();
  } catch (const Failure& failure) {
    return failure.what();
  }
  return "none";
}

bool Contains(const std::string& text, const std::string& part) {
  return text.find(part) != std::string::npos;
}

constexpr const char* kProject = R"(# Our tuning.
applications = 'applications.txt'

[hrtf.standard]
sofa = "/usr/share/libmysofa/MIT_KEMAR_normal_pinna.sofa"   # a manikin
source = "MIT"
taps = 128

[wired]
hrtf = "standard"
equalizer = "headphones.txt"
[bluetooth]
hrtf = "standard"
equalizer = "headphones.txt"

[cinema]
standard     = "cinema.toml"  # for both
personalized = "cinema.toml"

[level]
# As it is:
#music = "level.toml"        # see the template
cinema = "level-cinema.toml"
)";
constexpr const char* kCinema =
    "# A room that is heard.\r\nroom_level_db = -9   # was -12\r\n\r\n"
    "  room_early_level_db=-16\r\nwidth = +0.40\r\n";

class TuningTest : public testing::Test {
 protected:
  TuningTest() {
    const std::filesystem::path source = std::filesystem::path(KELDA_SOURCE) / "tuning";
    for (const char* const name : {"applications.txt", "headphones.txt", "level-cinema.toml"}) {
      std::filesystem::copy_file(source / name, folder_ / name);
    }
    folder_.Write("cinema.toml", kCinema);
    folder_.Write("project.toml", kProject);
    const auto origin = OpenProject(folder_ / "project.toml", [](const std::string&) {});
    const Side side = MakeSide(origin, {ParseSetting("device=wired"), ParseSetting("mode=cinema")});
    model_ = std::make_unique<TuningModel>(side, side);
  }

  float Value(const std::string& set, const std::string& key, Which which = Which::kA) const {
    const Slot slot = SlotOf(model_->side(which), set);
    std::size_t i = 0;
    while (key != slot.set->meanings[i].key) {
      ++i;
    }
    return slot.Value(model_->side(which).files, i);
  }
  void Save() { model_->Saved(SaveSide(model_->side(model_->editing()))); }

  TemporaryFolder folder_;
  std::unique_ptr<TuningModel> model_;
};

TEST_F(TuningTest, AGestureIsOneStepOfUndo) {
  for (const double value : {-8.0, -7.0, -6.5}) {
    model_->SetKnob("cinema", "room_level_db", value, "drag");
  }
  model_->SetKnob("cinema", "width", 0.25, "another");
  EXPECT_EQ(model_->undo_steps(), 2u);
  // One file for both kinds of ears: one knob.
  Side personalized = model_->side(Which::kA);
  personalized.SetHrtf(HrtfType::Personalized);
  model_->SetSide(Which::kA, personalized);
  EXPECT_EQ(Value("cinema", "room_level_db"), -6.5f);
  EXPECT_EQ(Value("cinema", "room_level_db", Which::kB), -9.0f);
  EXPECT_EQ(model_->Changed(Which::kA),
            (std::vector<std::string>{"cinema.width", "cinema.room_level_db"}));
  EXPECT_EQ(model_->Unsaved(Which::kA), 2u);

  model_->Undo();
  model_->Undo();
  model_->Undo();
  EXPECT_EQ(Value("cinema", "room_level_db"), -9.0f);
  EXPECT_EQ(model_->Unsaved(Which::kA), 0u);
  model_->Redo();
  EXPECT_EQ(Value("cinema", "room_level_db"), -6.5f);
  model_->DefaultKnob("cinema", "room_level_db");
  EXPECT_EQ(Value("cinema", "room_level_db"), -18.0f);
  EXPECT_EQ(model_->redo_steps(), 0u);
  model_->ResetKnob("cinema", "room_level_db");
  EXPECT_EQ(Value("cinema", "room_level_db"), -9.0f);

  const std::size_t steps = model_->undo_steps();
  EXPECT_TRUE(Contains(FailureOf([&] { model_->SetKnob("cinema", "width", 1.5, ""); }),
                       "width is out of range (1.5, 0 to 1)"));
  EXPECT_TRUE(Contains(FailureOf([&] { model_->SetKnob("cinema", "loudness", 1, ""); }), "no key"));
  EXPECT_TRUE(Contains(FailureOf([&] { model_->SetKnob("film", "width", 1, ""); }), "no set"));
  EXPECT_EQ(model_->undo_steps(), steps);
}

TEST_F(TuningTest, SaveWritesAsAPersonWould) {
  model_->SetKnob("cinema", "room_level_db", -8.5, "");
  model_->SetKnob("cinema", "room_early_level_db", -14, "");
  model_->SetKnob("cinema", "width", 0.5, "");
  model_->SetKnob("cinema", "back_share", 0.45, "");
  model_->SetKnob("cinema", "dialogue_ducking_db", 9, "");
  model_->SetKnob("level-music", "target_lufs", -18, "");
  model_->SetKnob("level-music", "window_s", 20, "");
  model_->SetKnob("room", "early_level_db", -16.5, "");
  Save();
  EXPECT_EQ(folder_.Read("cinema.toml"),
            "# A room that is heard.\r\nroom_level_db = -8.5   # was -12\r\n\r\n"
            "  room_early_level_db=-14\r\n  dialogue_ducking_db=9\r\n"
            "back_share = 0.45\r\nwidth = +0.50\r\n");
  std::string project = kProject;
  const auto replace = [&](const std::string& old, const std::string& now) {
    project.replace(project.find(old), old.size(), now);
  };
  replace("# a manikin\n", "# a manikin\nroom = \"room-standard.toml\"\n");
  replace("#music = \"level.toml\"   ", "music = \"level-music.toml\"   ");
  EXPECT_EQ(folder_.Read("project.toml"), project);
  EXPECT_TRUE(folder_.Read("level-music.toml").ends_with("`.\ntarget_lufs = -18\nwindow_s = 20\n"))
      << folder_.Read("level-music.toml");
  EXPECT_EQ(model_->Unsaved(Which::kA), 0u);
  // What was built from it is what was heard.
  const auto again = OpenProject(folder_ / "project.toml", [](const std::string&) {});
  for (const auto& [name, bytes] : model_->side(Which::kA).files) {
    EXPECT_EQ(*bytes, *again->files.at(name)) << name;
  }

  // What somebody else changed meanwhile is not lost, and nothing is half done.
  model_->SetKnob("cinema", "width", 0.75, "");
  model_->SetKnob("level-cinema", "target_lufs", -20, "");
  const std::string theirs = folder_.Read("level-cinema.toml") + "# theirs\n";
  folder_.Write("level-cinema.toml", theirs);
  const std::string before = folder_.Read("cinema.toml");
  EXPECT_TRUE(Contains(FailureOf([&] { Save(); }), "level-cinema.toml: was changed"));
  EXPECT_EQ(folder_.Read("cinema.toml"), before);
  EXPECT_EQ(folder_.Read("level-cinema.toml"), theirs);
  EXPECT_EQ(model_->Unsaved(Which::kA), 2u);
}

TEST(TomlEditTest, KeepsWhatItCannotEdit) {
  constexpr std::string_view kOrder[] = {"standard", "personalized"};
  const std::string inline_table = "music = { standard = 'a.toml' } # both\n";
  TomlEdit edit("p.toml", inline_table);
  edit.SetText("music", "standard", "b.toml", kOrder);
  EXPECT_EQ(edit.text(), "music = { standard = 'b.toml' } # both\n");
  EXPECT_TRUE(Contains(FailureOf([&] { edit.SetText("music", "personalized", "c.toml", kOrder); }),
                       "(music.personalized = \"c.toml\"); please give each table a header"));
  EXPECT_EQ(edit.text(), "music = { standard = 'b.toml' } # both\n");
  edit.SetText("level", "music", "l\xC3\xA9vel \"1\".toml", kOrder);  // at the end
  EXPECT_TRUE(edit.text().ends_with("both\n\n[level]\nmusic = \"l\xC3\xA9vel \\\"1\\\".toml\"\n"));
}

TEST_F(TuningTest, DropsSayWhatIsWrong) {
  TemporaryFolder scratch;
  const auto drop = [&](const std::vector<DroppedContent>& files) {
    ReadDrop(files, model_->side(Which::kA), scratch.path()).apply(model_.get());
  };
  const auto wrong = [&](const std::string& name, const std::string& text) {
    return FailureOf([&] { drop({{name, text}}); });
  };
  EXPECT_TRUE(Contains(wrong("a.toml", "back_share = 0.5\n"),
                       "a.toml: its keys are those of Music upmix and of Cinema upmix"));
  EXPECT_TRUE(Contains(wrong("a.toml", "volume = 11\n"), "those of no preset"));
  EXPECT_EQ(wrong("a.toml", "# x\nwidth = 7\n"), "a.toml:2: width is out of range (7, 0 to 1)");
  EXPECT_TRUE(Contains(wrong("a.toml", "width =\n"), "a.toml:1: "));
  EXPECT_TRUE(Contains(wrong("eq.txt", "Filter 1: ON PK Fc 5 Hz Gain 1 dB Q 1\n"), "eq.txt:1: "));
  EXPECT_TRUE(Contains(wrong("ears.sofa", "no HDF5"), "ears.sofa"));
  EXPECT_TRUE(Contains(wrong("../a.toml", "width = 0\n"), "not a name"));
  EXPECT_TRUE(Contains(wrong("/tmp/a.toml", "width = 0\n"), "not a name"));
  EXPECT_TRUE(Contains(FailureOf([&] { drop({{"a", ""}, {"b", ""}}); }), "none of them"));
  // A project may not reach for other files, but for those that the running one names.
  std::string project = kProject;
  EXPECT_EQ(wrong("t/p.toml", project), "none");
  EXPECT_EQ(model_->side(Which::kA).origin->name, "p.toml");
  model_->Undo();
  project.replace(project.find("applications.txt"), 16, "/etc/hostname");
  EXPECT_TRUE(Contains(wrong("p.toml", project),
                       "p.toml:2: applications names a file that it may not name here"));
  EXPECT_EQ(scratch.Names().size(), 0u);

  EXPECT_EQ(wrong("a.toml", "width = 0.1\n"), "none");
  EXPECT_EQ(Value("cinema", "width"), 0.1f);
  EXPECT_EQ(Value("cinema", "room_level_db"), -18.0f);  // its default
  EXPECT_EQ(wrong("new.txt", "Preamp: -3 dB\n"), "none");
  Save();
  EXPECT_EQ(folder_.Read("new.txt"), "Preamp: -3 dB\n");
  EXPECT_TRUE(Contains(folder_.Read("project.toml"),
                       "[wired]\nhrtf = \"standard\"\nequalizer = \"new.txt\"\n"));
  EXPECT_TRUE(Contains(folder_.Read("cinema.toml"), "width = +0.10\r\n"));
}

}  // namespace
}  // namespace kelda::tools
