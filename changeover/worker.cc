#include "changeover/worker.h"

#include <pthread.h>
#include <sys/resource.h>

#include <algorithm>
#include <chrono>
#include <exception>
#include <utility>

namespace kelda::changeover {
namespace {

constexpr auto kSoon = std::chrono::milliseconds(2);
constexpr auto kLater = std::chrono::milliseconds(10);

// For callers of Step, who play as fast as they can: what a period lasts.
constexpr int kStepPeriods = 2;

}  // namespace

std::unique_ptr<Worker> Worker::Make(const audio_effect_library_t& library,
                                     Threads threads) noexcept try {
  std::unique_ptr<Worker> worker(new Worker(library));
  if (threads == Threads::Own) {
    worker->thread_ = std::thread(&Worker::Run, worker.get());
  }
  return worker;
} catch (const std::exception&) {
  return nullptr;
}

Worker::~Worker() {
  if (thread_.joinable()) {
    {
      const std::lock_guard lock(wake_mutex_);
      ending_ = true;
    }
    wake_condition_.notify_one();
    thread_.join();
  }
}

bool Worker::Add(Session* session) {
  const std::lock_guard lock(mutex_);
  pool_.AddSeats(session->options_.keep_warm ? 2 : 1);  // which Remove takes back, whatever fails
  sessions_.reserve(sessions_.size() + 1);
  session->live_ = pool_.Take();
  if (session->live_ == nullptr || !session->live_->Set({})) {
    return false;
  }
  session->live_report_ = session->live_->report();
  sessions_.push_back(session);
  return true;
}

void Worker::Remove(Session* session) {
  const std::lock_guard lock(mutex_);
  sessions_.erase(std::remove(sessions_.begin(), sessions_.end(), session), sessions_.end());
  for (Instance* const instance : {session->live_, session->standby_}) {
    if (instance != nullptr) {
      pool_.Return(instance);
    }
  }
  pool_.RemoveSeats(session->options_.keep_warm ? 2 : 1);
}

void Worker::Wake() {
  {
    const std::lock_guard lock(wake_mutex_);
    woken_ = true;
  }
  wake_condition_.notify_one();
}

void Worker::Run() {
  // The thread that makes the worker may be a call of a background application, or of audio.
  pthread_setname_np(pthread_self(), "kelda worker");
  constexpr id_t kThisThread = 0;
  setpriority(PRIO_PROCESS, kThisThread, 0);
  for (auto next = Session::Next::Now;;) {
    {
      std::unique_lock lock(wake_mutex_);
      const auto woken = [this] { return woken_ || ending_; };
      if (next == Session::Next::Rest) {
        wake_condition_.wait(lock, woken);
      } else if (next != Session::Next::Now) {
        wake_condition_.wait_for(lock, next == Session::Next::Soon ? kSoon : kLater, woken);
      }
      if (ending_) {
        return;
      }
      woken_ = false;
    }
    const std::lock_guard lock(mutex_);
    next = Advance();
    if (next != Session::Next::Now && Park(Session::kSlicePeriods)) {
      next = Session::Next::Now;
    }
  }
}

void Worker::Step() noexcept {
  const std::lock_guard lock(mutex_);
  while (Advance() == Session::Next::Now) {
  }
  Park(kStepPeriods);
}

// A slice for each session.
Session::Next Worker::Advance() {
  auto next = Session::Next::Rest;
  bool wanted = false;
  for (Session* const session : sessions_) {
    next = std::max(next, session->Advance());
    wanted |= session->wants_instance_;
  }
  if (wanted && !pool_.HasFree()) {
    const bool given = std::any_of(sessions_.begin(), sessions_.end(),
                                   [](Session* session) { return session->GiveWay(); });
    if (!given) {
      pool_.AllowSpares(static_cast<std::size_t>(
          std::count_if(sessions_.begin(), sessions_.end(),
                        [](Session* session) { return session->StandsInAFade(); })));
    }
  }
  return next;
}

// Parks instances that wait, when no session needs the worker. Returns whether there is more to do.
bool Worker::Park(int periods) noexcept try {
  const bool replays = std::any_of(sessions_.begin(), sessions_.end(), [](const Session* session) {
    return session->replays_;  // with whispers of its own
  });
  return !replays && pool_.Park(periods);
} catch (const std::exception&) {  // memory ran out; it is tried again
  return false;
}

}  // namespace kelda::changeover
