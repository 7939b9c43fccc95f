// The cockpit: what the page does to the engine that is heard.
//
//   page ──► CockpitServer ──► actions ──► TuningModel ──► [thread] ──► files, LiveEngine::Set
//    ▲                                         │
//    └── state, meters ◄───────────────────────┴── [thread] SignalMeter, SideRuns ◄── LiveTap
#ifndef KELDA_TOOLS_COCKPIT_COCKPIT_H_
#define KELDA_TOOLS_COCKPIT_COCKPIT_H_

#include <array>
#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <filesystem>
#include <functional>
#include <mutex>
#include <optional>
#include <string>
#include <thread>
#include <vector>

#include "tools/cockpit/blind_test.h"
#include "tools/cockpit/cockpit_server.h"
#include "tools/cockpit/meters.h"
#include "tools/cockpit/side_runs.h"
#include "tools/cockpit/tuning_model.h"
#include "tools/core/json.h"
#include "tools/live/live_companion.h"

namespace kelda::tools {

struct CockpitOptions {
  int port = 0;                   // 0: a free one
  std::filesystem::path scratch;  // a private folder, which outlives the cockpit
};

// Side A is heard at first: its files are in the folder "tuning" of the scratch folder already.
// From the engine's thread it takes a tap, and nothing else. All sounds change by the engine's
// crossfades.
class Cockpit : public LiveRemote {
 public:
  // As LiveCompanion::Begin. Throws Failure.
  Cockpit(CockpitOptions options, TuningModel model, LiveEngine* engine, FilePlayer* player,
          std::vector<std::filesystem::path> files);
  ~Cockpit() override;

  std::string address() const { return server_.address(); }

  bool Press(char key) override;
  std::string Status(const LiveState& state, const Peaks& peaks) const override;
  void ShowOutput(const std::string& name) override;

  static constexpr const char* kTuningFolder = "tuning-";

 private:
  using Which = TuningModel::Which;
  using Clock = std::chrono::steady_clock;

  struct Heard {
    TuningFiles files;
    std::vector<Setting> settings;
    Which side = Which::kA;
  };

  // What the page asks for. Throws.
  static std::string Catalogue();
  std::string Act(const std::string& text);
  std::string TakeDrop(const std::vector<DroppedContent>& files);
  void Do(const Json& action);
  void DoBlind(const std::string& what, const Json& action);
  void SetOfSide(const Json& action);
  void DoPlayer(const std::string& what, const Json& action);
  void Save();

  // With the mutex held.
  Which HeardSide() const;
  double TrimOf(Which which) const;
  void Tell(const char* level, const std::string& text);
  void TellFailure(const std::function<void()>& act);  // of a thread that goes on
  void Changed();
  void PublishState();
  Json State() const;
  Json SideState(Which which) const;
  std::string Why() const;

  // A thread: makes heard what is wanted, one change after the other, the latest one.
  void RunChanges();
  void MakeHeard();
  void WriteTuning(const TuningFiles& files);
  std::filesystem::path TuningFolder(uint64_t number) const;

  // A thread: meters, both sides' chains, their match.
  void RunMeters();
  void Measure(const std::vector<float>& frames);
  void UseChains();
  void FollowMatch();
  void PublishMeters(bool audio);

  const CockpitOptions options_;
  LiveEngine* const engine_;
  FilePlayer* const player_;
  const std::vector<std::filesystem::path> files_;
  LiveTap& tap_;
  const bool open_library_;

  mutable std::mutex mutex_;
  std::condition_variable wake_;
  TuningModel model_;
  std::optional<BlindTest> blind_;
  char listening_ = 'X';  // of A, B, X, in a blind test
  bool match_on_ = true;
  bool match_before_ = true;  // the blind test
  Match match_;
  double trim_db_ = 0;  // that was sent last
  uint64_t version_ = 1;
  Json message_;
  uint64_t messages_ = 0;
  std::string output_, plays_, trouble_;
  Heard heard_;
  bool wanted_ = false;    // something is not heard yet, and not on its way
  bool changing_ = false;  // on its way
  Clock::time_point asked_, sent_asked_, sent_;
  std::optional<double> heard_after_ms_;
  uint64_t tunings_ = 0;  // written since the first
  bool applications_changed_ = false;
  bool ending_ = false;
  std::atomic<uint64_t> cpu_ns_{0};

  std::mutex drop_mutex_;

  // The meters' thread's.
  SignalMeter in_, out_;
  SideRuns runs_{open_library_};
  uint64_t chains_version_ = 0;
  Clock::time_point chains_changed_, chains_used_;
  bool chains_due_ = true;
  std::string chains_play_;
  Clock::time_point trimmed_;
  double load_ = 0;
  uint64_t load_cpu_ns_ = 0;
  Clock::time_point load_at_;

  std::thread changes_thread_, meters_thread_;
  CockpitServer server_;  // ends first: its threads call the rest
};

}  // namespace kelda::tools

#endif  // KELDA_TOOLS_COCKPIT_COCKPIT_H_
