#ifndef KELDA_TOOLS_LIVE_KEYBOARD_H_
#define KELDA_TOOLS_LIVE_KEYBOARD_H_

#include <termios.h>

#include <vector>

namespace kelda::tools {

enum class Key { kOther, kLeft, kRight, kUp, kDown };

struct KeyPress {
  Key key = Key::kOther;
  char character = 0;  // of kOther
};

// The keys of the terminal at standard input, each as it is pressed and without an echo. The
// destructor puts the terminal back. Where standard input is no terminal there are no keys.
class Keyboard {
 public:
  Keyboard();
  ~Keyboard();
  Keyboard(const Keyboard&) = delete;
  Keyboard& operator=(const Keyboard&) = delete;

  bool present() const { return present_; }

  // What was pressed since the last call. Does not wait, and reads nothing while the program is in
  // the terminal's background. After it was stopped and goes on, it takes the terminal anew.
  std::vector<KeyPress> Take();

 private:
  termios before_{};
  bool present_;            // after before_, which is read together with it
  std::vector<char> rest_;  // of an arrow that has come in part
};

}  // namespace kelda::tools

#endif  // KELDA_TOOLS_LIVE_KEYBOARD_H_
