// What a command tells the user on stderr: messages, the effect's log lines, and
// at the bottom of a terminal one line that changes.
#ifndef KELDA_TOOLS_CORE_STATUS_LINE_H_
#define KELDA_TOOLS_CORE_STATUS_LINE_H_

#include <cstddef>
#include <string>

namespace kelda::tools {

// Sends the effect's log lines of `priority` (android_LogPriority) and above to
// stderr, without tearing the status line; control characters in them are shown as text.
void ShowLog(int priority);

// Prints "kelda: " and the message as a line of its own, or each line of the message so.
void ShowMessage(const std::string& message);

// Prints whole lines, control characters in them as text; `lines` has no line end after the
// last.
void ShowLines(const std::string& lines);

// The changing line. On anything but a terminal it does nothing. At most one
// exists at a time; the destructor clears the line.
class StatusLine {
 public:
  StatusLine();
  ~StatusLine();
  StatusLine(const StatusLine&) = delete;
  StatusLine& operator=(const StatusLine&) = delete;

  bool visible() const { return visible_; }
  // How many characters fit into it now: one less than the terminal is wide, so that none
  // wraps.
  std::size_t columns() const;
  // What does not fit is cut off.
  void Show(const std::string& text);

 private:
  bool visible_;
};

}  // namespace kelda::tools

#endif  // KELDA_TOOLS_CORE_STATUS_LINE_H_
