// What a command shows on stderr: messages, the effect's log lines, and below them, on a terminal,
// one line that changes.
#ifndef KELDA_TOOLS_CORE_STATUS_LINE_H_
#define KELDA_TOOLS_CORE_STATUS_LINE_H_

#include <cstddef>
#include <string>

namespace kelda::tools {

// Shows the effect's log lines of `priority` (android_LogPriority) and higher on stderr, above the
// status line, with control characters as text.
void ShowLog(int priority);

// Prints the message, each of its lines after "kelda: ".
void ShowMessage(const std::string& message);

// Prints whole lines, with control characters as text. The last of `lines` has no line end.
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
  // How many characters fit now: one less than the width of the terminal, so that the line never
  // wraps.
  std::size_t columns() const;
  // Shows `text`, cut to columns() characters.
  void Show(const std::string& text);

 private:
  bool visible_;
};

}  // namespace kelda::tools

#endif  // KELDA_TOOLS_CORE_STATUS_LINE_H_
