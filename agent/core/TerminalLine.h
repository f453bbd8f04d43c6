#pragma once

#include <string_view>

namespace Agent {

/// A line on standard error that says how far long work has come, and goes when it is over. Shown only on a
/// terminal.
class TerminalLine {
 public:
  TerminalLine();
  bool isOnTerminal() const { return onTerminal_; }
  /// In the place of what it said before.
  void show(std::string_view text);
  void clear();

 private:
  const bool onTerminal_;
  bool shown_ = false;
};

}  // namespace Agent
