// The workstation's liblog: the platform's entry point for log lines, and a logger that writes
// them to stderr as `logcat -v threadtime` shows them. Of a line that is repeated it writes the
// first, and then how often it was repeated.
#pragma GCC visibility push(default)
#include <android/log.h>
#pragma GCC visibility pop

#include <sys/uio.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <chrono>
#include <cstdarg>
#include <cstddef>
#include <cstdio>
#include <cstring>
#include <ctime>
#include <mutex>
#include <string>
#include <string_view>
#include <tuple>
#include <utility>

namespace {

// The platform cuts a message at this size, its NUL included.
constexpr std::size_t kMessageBytes = 1024;

std::atomic<__android_logger_function> g_logger{__android_log_stderr_logger};
std::atomic<int32_t> g_minimum_priority{ANDROID_LOG_INFO};

char PriorityLetter(int32_t priority) {
  constexpr std::string_view kLetters = "??VDIWEFS";
  return priority >= 0 && priority < static_cast<int32_t>(kLetters.size())
             ? kLetters[static_cast<std::size_t>(priority)]
             : '?';
}

// The line that was written last, and how often it was repeated since.
struct LastLine {
  pid_t process = 0, thread = 0;
  int32_t priority = 0;
  std::string tag, message;
  uint64_t repeats = 0;

  bool Is(const LastLine& other) const {
    return std::tie(process, thread, priority, tag, message) ==
           std::tie(other.process, other.thread, other.priority, other.tag, other.message);
  }
};

std::mutex g_last_line_lock;

// Never destroyed, because libraries may log until the process ends.
LastLine& TheLastLine() {
  static auto* const line = new LastLine;
  return *line;
}

// "MM-DD HH:MM:SS.mmm  PID  TID P TAG     : ". Returns its length.
std::size_t FormatPrefix(char* prefix, std::size_t bytes, const LastLine& line) {
  const auto now = std::chrono::system_clock::now().time_since_epoch();
  const auto milliseconds = std::chrono::duration_cast<std::chrono::milliseconds>(now).count();
  const auto seconds = static_cast<std::time_t>(milliseconds / 1000);
  std::tm local{};
  localtime_r(&seconds, &local);
  char date[32];
  const std::size_t date_length = std::strftime(date, sizeof(date), "%m-%d %H:%M:%S", &local);
  const int length =
      std::snprintf(prefix, bytes, "%.*s.%03d %5d %5d %c %-8s: ", static_cast<int>(date_length),
                    date, static_cast<int>(milliseconds % 1000), line.process, line.thread,
                    PriorityLetter(line.priority), line.tag.c_str());
  return std::min(static_cast<std::size_t>(std::max(length, 0)), bytes - 1);
}

void Write(const LastLine& line, std::string_view rest) {
  char prefix[256];
  const std::size_t prefix_length = FormatPrefix(prefix, sizeof(prefix), line);
  do {
    const std::size_t length = std::min(rest.find('\n'), rest.size());
    char newline = '\n';
    iovec pieces[] = {{prefix, prefix_length},
                      {const_cast<char*>(rest.data()), length},  // writev only reads it
                      {&newline, 1}};
    // One system call for each line, so that threads do not mix their lines. There is no way to
    // report a failure.
    [[maybe_unused]] const ssize_t written = writev(STDERR_FILENO, pieces, 3);
    rest.remove_prefix(std::min(length + 1, rest.size()));
  } while (!rest.empty());
}

// Writes how often the last line was repeated. A child after fork() leaves its parent's line alone.
void WriteRepeats() {
  LastLine& last = TheLastLine();
  if (last.repeats == 1 && last.process == getpid()) {
    Write(last, last.message);
  } else if (last.repeats > 1 && last.process == getpid()) {
    Write(last, "the line before, " + std::to_string(last.repeats) + " times more");
  }
  last.repeats = 0;
}

struct AtTheEnd {
  ~AtTheEnd() {
    const std::lock_guard<std::mutex> guard(g_last_line_lock);
    WriteRepeats();
  }
} g_at_the_end;

}  // namespace

void __android_log_stderr_logger(const struct __android_log_message* log_message) {
  const int saved_errno = errno;
  const auto owned = [](const char* text) { return std::string(text != nullptr ? text : ""); };
  LastLine line{getpid(),
                gettid(),
                log_message->priority,
                owned(log_message->tag),
                owned(log_message->message),
                0};
  {
    const std::lock_guard<std::mutex> guard(g_last_line_lock);
    if (TheLastLine().Is(line)) {
      ++TheLastLine().repeats;
    } else {
      WriteRepeats();
      Write(line, line.message);
      TheLastLine() = std::move(line);
    }
  }
  errno = saved_errno;
}

void __android_log_set_logger(__android_logger_function logger) {
  g_logger = logger != nullptr ? logger : __android_log_stderr_logger;
}

int32_t __android_log_set_minimum_priority(int32_t priority) {
  return g_minimum_priority.exchange(priority);
}

int __android_log_print(int prio, const char* tag, const char* fmt, ...) {
  if (prio < g_minimum_priority.load(std::memory_order_relaxed)) {
    return -EPERM;
  }
  char message[kMessageBytes];
  va_list arguments;
  va_start(arguments, fmt);
  const int length = std::vsnprintf(message, sizeof(message), fmt, arguments);
  va_end(arguments);
  if (length < 0) {
    return -EINVAL;
  }
  const __android_log_message record{sizeof(record), 0, prio, tag, nullptr, 0, message};
  g_logger.load()(&record);
  return 1;
}
