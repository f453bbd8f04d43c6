#pragma once

#include <agent/replay/VerdictRecorder.h>

#include <fstream>
#include <string>

namespace Agent {

/// Writes one JSON object a line for each received frame.
class VerdictWriter {
 public:
  explicit VerdictWriter(std::string path);

  bool ok() const { return file_.good(); }
  /// What went wrong, with the path; empty while nothing did.
  std::string wrong() const;
  void write(const Port& port, uint64_t frame, const Verdict& verdict, const VerdictRecorder& recorder);
  /// False when not everything could be written.
  bool close();

 private:
  const std::string path_;
  std::ofstream file_;
};

}  // namespace Agent
