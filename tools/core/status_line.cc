#include "tools/core/status_line.h"

#include <android/log.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include <cstddef>
#include <cstdio>
#include <mutex>

#include "tools/core/printable.h"

namespace kelda::tools {
namespace {

// The text that stands in the status line now; empty if there is none. Never destroyed, as the
// effect may log until the process ends.
std::string& CurrentText() {
  static auto* const text = new std::string;
  return *text;
}

// The effect may log on another thread than that of the status line.
std::mutex& TheLock() {
  static auto* const lock = new std::mutex;
  return *lock;
}

void Write(const std::string& bytes) {
  std::fwrite(bytes.data(), 1, bytes.size(), stderr);
  std::fflush(stderr);
}

constexpr const char* kClearLine = "\r\033[K";

template <typename Printer>
void PrintAbove(Printer print) {
  const std::lock_guard lock(TheLock());
  if (CurrentText().empty()) {
    print();
    return;
  }
  Write(kClearLine);
  print();
  Write(CurrentText());
}

void Log(const __android_log_message* message) {
  const std::string text =
      PrintableLines(message->message != nullptr ? std::string_view(message->message) : "");
  __android_log_message shown = *message;
  shown.message = text.c_str();
  PrintAbove([&] { __android_log_stderr_logger(&shown); });
}

}  // namespace

void ShowLog(int priority) {
  __android_log_set_minimum_priority(priority);
  __android_log_set_logger(Log);
}

void ShowMessage(const std::string& message) {
  std::string lines = "kelda: ";
  for (const char c : message) {
    lines += c;
    if (c == '\n') {
      lines += "kelda: ";
    }
  }
  ShowLines(lines);
}

void ShowLines(const std::string& lines) {
  PrintAbove([&] { Write(PrintableLines(lines) + "\n"); });
}

StatusLine::StatusLine() : visible_(isatty(STDERR_FILENO) != 0) {}

std::size_t StatusLine::columns() const {
  constexpr std::size_t kUsual = 80;
  winsize size{};
  return ioctl(STDERR_FILENO, TIOCGWINSZ, &size) == 0 && size.ws_col > 1 ? size.ws_col - 1u
                                                                         : kUsual - 1;
}

StatusLine::~StatusLine() { Show(""); }

void StatusLine::Show(const std::string& text) {
  std::string shown = Printable(text);
  const auto continues = [](char c) { return (static_cast<unsigned char>(c) & 0xC0) == 0x80; };
  std::size_t end = 0;
  for (std::size_t fit = columns(); end < shown.size() && (fit > 0 || continues(shown[end]));
       ++end) {
    fit -= continues(shown[end]) ? 0 : 1;
  }
  shown.resize(end);
  const std::lock_guard lock(TheLock());
  if (!visible_ || shown == CurrentText()) {
    return;
  }
  CurrentText() = shown;
  Write(kClearLine + shown);
}

}  // namespace kelda::tools
