#include <agent/core/Terminal.h>
#include <agent/core/TerminalLine.h>
#include <fmt/format.h>
#include <unistd.h>

#include <cstdio>

namespace Agent {

TerminalLine::TerminalLine() : onTerminal_(isScreen(STDERR_FILENO)) {}

void TerminalLine::show(std::string_view text) {
  if (!onTerminal_) return;
  fmt::print(stderr, "\r{}\x1b[K", text);
  std::fflush(stderr);
  shown_ = true;
}

void TerminalLine::clear() {
  if (shown_) fmt::print(stderr, "\r\x1b[K");
  shown_ = false;
}

}  // namespace Agent
