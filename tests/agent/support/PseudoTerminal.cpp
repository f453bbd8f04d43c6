#include "PseudoTerminal.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <pty.h>
#include <sys/ioctl.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <termios.h>
#include <unistd.h>

#include <algorithm>
#include <csignal>
#include <cstdlib>
#include <stdexcept>

namespace TestSupport {

PseudoTerminal::PseudoTerminal(const std::vector<std::string>& arguments, Size size,
                               const std::map<std::string, std::string>& environment) {
  const std::string program = std::string(VELO_BIN_DIR) + "/velo";
  std::vector<char*> argv = {const_cast<char*>(program.c_str())};
  for (const std::string& argument : arguments) argv.push_back(const_cast<char*>(argument.c_str()));
  argv.push_back(nullptr);
  const winsize window{size.rows, size.columns, 0, 0};
  screen_.assign(size.rows, std::string(size.columns, ' '));
  child_ = forkpty(&fd_, nullptr, nullptr, &window);
  if (child_ < 0) throw std::runtime_error("there is no pseudo terminal");
  if (child_ == 0) {
    for (const char* name : {"TERM", "NO_COLOR", "VELO_TRACE"}) unsetenv(name);
    for (const auto& [name, value] : environment) setenv(name.c_str(), value.c_str(), 1);
    execv(program.c_str(), argv.data());
    _exit(127);
  }
  fcntl(fd_, F_SETFL, O_NONBLOCK);
}

PseudoTerminal::~PseudoTerminal() {
  if (!ended()) {
    kill(child_, SIGKILL);
    waitpid(child_, nullptr, 0);
  }
  close(fd_);
}

void PseudoTerminal::receive() {
  char piece[4096];
  for (ssize_t got; (got = read(fd_, piece, sizeof piece)) > 0;) {
    raw_.append(piece, static_cast<size_t>(got));
    arrived_.append(piece, static_cast<size_t>(got));
  }
  obey();
}

void PseudoTerminal::type(const std::string& keys) {
  EXPECT_EQ(write(fd_, keys.data(), keys.size()), static_cast<ssize_t>(keys.size()));
}

void PseudoTerminal::sizeIs(Size size) {
  const winsize window{size.rows, size.columns, 0, 0};
  EXPECT_EQ(ioctl(fd_, TIOCSWINSZ, &window), 0);
  screen_.assign(size.rows, std::string(size.columns, ' '));
}

void PseudoTerminal::signal(int number) { kill(child_, number); }

std::vector<std::string> PseudoTerminal::rows() const {
  std::vector<std::string> rows = screen_;
  for (std::string& row : rows) row.erase(row.find_last_not_of(' ') + 1);
  return rows;
}

std::string PseudoTerminal::text() const {
  std::string text;
  for (const std::string& row : rows()) text += row + "\n";
  return text;
}

bool PseudoTerminal::echoes() const {
  termios now{};
  EXPECT_EQ(tcgetattr(fd_, &now), 0);
  return (now.c_lflag & ECHO) != 0;
}

int PseudoTerminal::niceness() const { return getpriority(PRIO_PROCESS, static_cast<id_t>(child_)); }

bool PseudoTerminal::ended() {
  int status = 0;
  if (!ended_ && waitpid(child_, &status, WNOHANG) == child_) {
    ended_ = true;
    status_ = WIFEXITED(status) ? WEXITSTATUS(status) : -WTERMSIG(status);
  }
  return ended_;
}

void PseudoTerminal::obey() {
  size_t at = 0;
  while (at < arrived_.size()) {
    if (arrived_[at] != '\x1b') {
      put(arrived_[at++]);
      continue;
    }
    size_t end = at + 2;
    while (end < arrived_.size() && (arrived_[end] < '@' || arrived_[end] > '~')) ++end;
    if (end >= arrived_.size()) break;  // the rest of it is on its way
    control(arrived_.substr(at + 1, end - at));
    at = end + 1;
  }
  arrived_.erase(0, at);
}

void PseudoTerminal::control(const std::string& sequence) {
  const auto blank = [](std::string& row, size_t from) {
    std::fill(row.begin() + static_cast<long>(from), row.end(), ' ');
  };
  if (sequence == "[H") {
    row_ = column_ = 0;
  } else if (sequence == "[K") {
    if (row_ < screen_.size()) blank(screen_[row_], std::min(column_, screen_[row_].size()));
  } else if (sequence == "[J") {
    if (row_ < screen_.size()) blank(screen_[row_], std::min(column_, screen_[row_].size()));
    for (size_t row = row_ + 1; row < screen_.size(); ++row) blank(screen_[row], 0);
  } else if (sequence == "[?1049h" || sequence == "[?1049l") {
    full_ = sequence.back() == 'h';
    for (std::string& row : screen_) blank(row, 0);
    row_ = column_ = 0;
  } else if (sequence != "[?25l" && sequence != "[?25h" && sequence.back() != 'm') {
    ADD_FAILURE() << "a control sequence that terminals may not know: " << sequence;
  }
}

void PseudoTerminal::put(char c) {
  if (c == '\r') {
    column_ = 0;
  } else if (c == '\n') {
    if (row_ + 1 < screen_.size()) {
      ++row_;
    } else {
      EXPECT_FALSE(full_) << "a full screen does not scroll";
      std::rotate(screen_.begin(), screen_.begin() + 1, screen_.end());
      std::fill(screen_.back().begin(), screen_.back().end(), ' ');
    }
  } else if (row_ < screen_.size() && column_ < screen_[row_].size()) {
    screen_[row_][column_++] = c;
  } else {
    EXPECT_FALSE(full_) << "a row of a full screen fits into its line";
  }
}

}  // namespace TestSupport
