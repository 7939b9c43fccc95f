// The effect behind the host that changes settings without a click, where everything happens at its
// frame: the worker does its part between two blocks, and takes no time.
#ifndef KELDA_TOOLS_FRAMEWORK_HOST_SESSION_H_
#define KELDA_TOOLS_FRAMEWORK_HOST_SESSION_H_

#include <cstddef>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "changeover/session.h"
#include "changeover/worker.h"
#include "tools/framework/effect_library.h"
#include "tools/framework/setting.h"

namespace kelda::tools {

// What `setting` sets of a host's session; nothing for those that are calls of their own: reset,
// enable, disable and property.
std::optional<changeover::Setting> HostSetting(const Setting& setting);

// As EffectSession. One thread.
class HostSession {
 public:
  // `library` outlives it. Throws Failure (refused).
  explicit HostSession(const EffectLibrary& library, changeover::SessionOptions options = {});

  void Enable();
  void Disable();
  bool enabled() const { return enabled_; }
  void Reset();

  // From now on makes the changes of another session, at their periods, and takes no setting of
  // sound. Before Enable.
  void Replay(std::vector<changeover::Turn> turns) { session_->Replay(std::move(turns)); }

  // Takes every kind of setting. Throws Failure (refused) if there is no memory for it.
  void Apply(const Setting& setting);

  // `frames` interleaved stereo frames in place; unchanged while disabled. Blocks of any size give
  // the same audio, bit for bit, where settings come at the same frames.
  void Process(float* interleaved, std::size_t frames);

  // What plays.
  std::string Dump() const { return session_->Report(); }

  changeover::Session& session() { return *session_; }
  changeover::Worker& worker() { return *worker_; }

 private:
  std::unique_ptr<changeover::Worker> worker_;
  std::unique_ptr<changeover::Session> session_;
  bool enabled_ = false;
  bool set_ = false;        // the worker has not seen the last setting
  std::size_t filled_ = 0;  // frames of the next period
};

}  // namespace kelda::tools

#endif  // KELDA_TOOLS_FRAMEWORK_HOST_SESSION_H_
