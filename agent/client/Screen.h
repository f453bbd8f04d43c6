#pragma once

#include <agent/core/Terminal.h>

#include <csignal>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace Agent {

/// The terminal of standard output as a full screen, with its keys on standard input. What was on it before
/// comes back when this goes, also when a signal ends the process. A process has one at a time.
class Screen {
 public:
  Screen();
  ~Screen();
  Screen(const Screen&) = delete;
  Screen& operator=(const Screen&) = delete;

  static ScreenSize size();
  /// Shows these rows from the upper left corner on, and nothing else; a row is to fit into a line. False
  /// when the terminal is gone.
  bool draw(const std::vector<std::string>& rows);
  /// Waits for keys, for a change of the terminal's size, or for some seconds to pass. Appends what was sent
  /// to `input`. False when the terminal is gone.
  bool wait(double seconds, std::string& input);

 private:
  bool keys_ = true;  // standard input can still be read
  sigset_t whileWaiting_{};
};

}  // namespace Agent
