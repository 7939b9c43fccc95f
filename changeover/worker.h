// Prepares the standbys of all sessions of a process.
#ifndef KELDA_CHANGEOVER_WORKER_H_
#define KELDA_CHANGEOVER_WORKER_H_

#include <hardware/audio_effect.h>

#include <condition_variable>
#include <memory>
#include <mutex>
#include <thread>
#include <vector>

#include "changeover/crossfade.h"
#include "changeover/pool.h"
#include "changeover/session.h"

namespace kelda::changeover {

// It sleeps until a setting comes, and looks every few milliseconds while a change is under way or
// a standby is kept warm. It works in slices, so that no session waits for another's roll-in.
//
// Locks: the worker's guards the list of sessions and the pool, and is held for a slice; a
// session's is held for moments, and taken after the worker's. The audio thread takes none.
class Worker {
 public:
  enum class Threads { Own, None };  // None: whoever calls Step

  // `library` outlives it. Null if there is no memory or no thread.
  static std::unique_ptr<Worker> Make(const audio_effect_library_t& library,
                                      Threads threads) noexcept;
  // After the sessions.
  ~Worker();
  Worker(const Worker&) = delete;
  Worker& operator=(const Worker&) = delete;

  // Does all that can be done without the audio threads, and a little for instances that wait. With
  // Threads::None.
  void Step() noexcept;

 private:
  friend class Session;

  explicit Worker(const audio_effect_library_t& library) : pool_(library) {}

  bool Add(Session* session);
  void Remove(Session* session);
  void Wake();
  void Run();
  Session::Next Advance();
  bool Park(int periods) noexcept;

  const Crossfade crossfade_;
  std::mutex mutex_;
  Pool pool_;
  std::vector<Session*> sessions_;

  std::mutex wake_mutex_;
  std::condition_variable wake_condition_;
  bool woken_ = false, ending_ = false;
  std::thread thread_;
};

}  // namespace kelda::changeover

#endif  // KELDA_CHANGEOVER_WORKER_H_
