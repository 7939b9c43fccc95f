// What happened to a stream of the host, so that it can be made again.
#ifndef KELDA_TOOLS_REPLAY_TURN_LOG_H_
#define KELDA_TOOLS_REPLAY_TURN_LOG_H_

#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <map>
#include <string>
#include <vector>

#include "changeover/session.h"
#include "tools/core/json.h"
#include "tools/core/output_file.h"
#include "tools/framework/setting.h"
#include "tools/replay/trim.h"

namespace kelda::tools {

// A text file of JSON, an object a line. Frames count from the first that the stream took:
//
//   {"log":"kelda live","version":1,"tuning":"/usr/share/kelda/tuning","kept":0}
//   {"frame":0,"set":"mode=music"}
//   {"frame":123904,"turn":"heard","sound":"music, wired","roll_in":104448,"crossfade":123904,...}
//   {"frame":124927,"trim":0.7943282127380371}
//   {"frame":300000,"tuning":"/home/me/tuning","kept":1}
//   {"frame":480256,"note":"plays to Headphones"}
//
// A turn stands where it ended. A trim is the gain behind the effect that a step from this frame on
// leads to. The tunings that are heard are kept, each once, in the folder LOG.tunings as 0, 1 and
// so on; so a replay is the same when the directories have long been others. Every line is written
// whole and at once, so that the log is of use however the program ends. One thread.
class TurnLog {
 public:
  // Keeps the tuning that the run begins with. Throws Failure (output). A log of this name is
  // replaced, and what it kept.
  TurnLog(const std::filesystem::path& path, const std::filesystem::path& tuning);
  ~TurnLog();
  TurnLog(const TurnLog&) = delete;
  TurnLog& operator=(const TurnLog&) = delete;

  // Keeps a tuning as it is now. Throws Failure: (input) if it cannot be read, (output).
  void Keep(const std::filesystem::path& directory);
  // The copy of the one that was kept last; nobody changes it.
  std::filesystem::path kept() const;

  // Each throws Failure (output); nothing is written after that.
  void Add(uint64_t frame, const Setting& setting);
  void Add(const changeover::Turn& turn);
  void Add(const TrimStep& step);
  // The folder of a log's copies.
  static std::filesystem::path KeptBeside(const std::filesystem::path& log);

  // From now on the tuning is the one that was kept last.
  void AddTuning(uint64_t frame, const std::filesystem::path& directory);
  void AddNote(uint64_t frame, const std::string& text);

 private:
  using Files = std::map<std::string, std::string>;  // contents by names

  void KeepFiles(const Files& files);
  void Write(const Json& line);

  const std::filesystem::path path_;
  std::size_t kept_ = 0;
  std::vector<std::size_t> copies_;  // hashes of their files
  int descriptor_ = -1;
};

struct LoggedRun {
  std::vector<std::filesystem::path> tunings;  // the copies, by Sound::tuning
  std::vector<changeover::Turn> turns;         // for Session::Replay
  std::vector<TrimStep> trims;                 // in the order of their frames
};

// Reads what TurnLog wrote. A last line without its end, which a program that was killed leaves, is
// ignored. Throws FileFailure with the numbers of the lines that are wrong, or Failure (input).
LoggedRun ReadTurnLog(const std::filesystem::path& path);

}  // namespace kelda::tools

#endif  // KELDA_TOOLS_REPLAY_TURN_LOG_H_
