#pragma once

#include <sys/types.h>

#include <map>
#include <string>
#include <vector>

namespace TestSupport {

/// `velo` of this build on a terminal of its own, and what stands on its screen: a grid of characters that
/// obeys the control sequences that the program uses. Any other one is a failure of the test.
class PseudoTerminal {
 public:
  struct Size {
    unsigned short rows = 24, columns = 80;
  };
  PseudoTerminal(const std::vector<std::string>& arguments, Size size,
                 const std::map<std::string, std::string>& environment = {{"TERM", "xterm"}});
  ~PseudoTerminal();
  PseudoTerminal(const PseudoTerminal&) = delete;
  PseudoTerminal& operator=(const PseudoTerminal&) = delete;

  /// Takes what has arrived.
  void receive();
  void type(const std::string& keys);
  void sizeIs(Size size);
  void signal(int number);

  /// The rows of the screen without blanks at their ends.
  std::vector<std::string> rows() const;
  std::string text() const;
  /// Whether the screen is the one that a program takes for itself, and its cursor is hidden.
  bool full() const { return full_; }
  /// All octets that arrived.
  const std::string& raw() const { return raw_; }
  /// Whether the terminal echoes what is typed, as it does at first.
  bool echoes() const;
  /// Whether the program has ended; its status as of Ran.
  bool ended();
  int status() const { return status_; }
  /// By how much its main thread gives way to others: the nice value.
  int niceness() const;

 private:
  void obey();
  void control(const std::string& sequence);
  void put(char c);

  int fd_ = -1;
  pid_t child_ = -1;
  bool ended_ = false;
  int status_ = 0;
  std::string raw_, arrived_;
  std::vector<std::string> screen_;
  size_t row_ = 0, column_ = 0;
  bool full_ = false;
};

}  // namespace TestSupport
