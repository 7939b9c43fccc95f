#include "tools/live/keyboard.h"

#include <poll.h>
#include <unistd.h>

#include <cstddef>

namespace kelda::tools {
namespace {

constexpr char kEscape = '\x1b';

// A terminal without jobs has no background.
bool InForeground() {
  const pid_t front = tcgetpgrp(STDIN_FILENO);
  return front < 0 || front == getpgrp();
}

// Whole lines with an echo are what a shell leaves.
bool TakesLines(const termios& state) { return (state.c_lflag & ICANON) != 0; }

}  // namespace

Keyboard::Keyboard()
    : present_(isatty(STDIN_FILENO) != 0 && tcgetattr(STDIN_FILENO, &before_) == 0) {}

Keyboard::~Keyboard() {
  if (present_ && InForeground()) {
    tcsetattr(STDIN_FILENO, TCSANOW, &before_);
  }
}

std::vector<KeyPress> Keyboard::Take() {
  std::vector<KeyPress> presses;
  termios state{};
  if (!present_ || !InForeground() || tcgetattr(STDIN_FILENO, &state) != 0) {
    return presses;
  }
  if (TakesLines(state)) {
    state.c_lflag &= ~static_cast<tcflag_t>(ICANON | ECHO);
    state.c_cc[VMIN] = 0;
    state.c_cc[VTIME] = 0;
    tcsetattr(STDIN_FILENO, TCSANOW, &state);
  }
  char bytes[64];
  const ssize_t count = read(STDIN_FILENO, bytes, sizeof(bytes));
  if (count > 0) {
    rest_.insert(rest_.end(), bytes, bytes + count);
  }
  std::size_t at = 0;
  while (at < rest_.size()) {
    if (rest_[at] != kEscape) {
      presses.push_back({Key::kOther, rest_[at++]});
      continue;
    }
    // ESC [ A to D, or ESC O A to D; anything else after an ESC is ignored with it.
    if (rest_.size() - at < 3) {
      if (count > 0) {
        break;  // more of it may come
      }
      at = rest_.size();
      continue;
    }
    const bool arrow = rest_[at + 1] == '[' || rest_[at + 1] == 'O';
    constexpr Key kArrows[] = {Key::kUp, Key::kDown, Key::kRight, Key::kLeft};
    if (arrow && rest_[at + 2] >= 'A' && rest_[at + 2] <= 'D') {
      presses.push_back({kArrows[rest_[at + 2] - 'A'], 0});
    }
    at += 3;
  }
  rest_.erase(rest_.begin(), rest_.begin() + static_cast<std::ptrdiff_t>(at));
  return presses;
}

}  // namespace kelda::tools
