#pragma once

#include <agent/show/Verdicts.h>

#include <fstream>
#include <string>

namespace Agent {

/// Writes a line with a JSON object for each received frame.
class VerdictWriter {
 public:
  explicit VerdictWriter(std::string path);

  /// What went wrong, with the path; empty if nothing did.
  const std::string& wrong() const { return wrong_; }
  /// `frame`: its number in the capture.
  void write(uint64_t frame, const Fate& fate);
  /// Writes out what is buffered. After this, wrong() is final.
  void flush();

 private:
  const std::string path_;
  std::ofstream file_;
  std::string wrong_;
};

}  // namespace Agent
