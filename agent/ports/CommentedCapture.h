#pragma once

#include <agent/ports/Captures.h>

#include <cstdint>
#include <fstream>
#include <map>
#include <span>
#include <string>
#include <string_view>

namespace Agent {

/// A received frame, as a commented capture has it.
struct CommentedFrame {
  std::string_view port;  ///< where it came in
  Stamp stamp;
  std::span<const uint8_t> octets;  ///< from the Ethernet header on
  uint32_t wireLength = 0;          ///< more than there are octets when it was cut short
  std::string_view comment;
};

/// Writes a pcapng file (draft-ietf-opsawg-pcapng) of Ethernet frames with nanosecond stamps, in which every
/// frame has a comment and the interface that it came in at. Interfaces are written when their first frame
/// is. The file is in the byte order of the host.
class CommentedCapture {
 public:
  /// Of a comment what is longer is left out. The format has 16 bits for the length.
  static constexpr size_t mostComment = 65000;

  explicit CommentedCapture(std::string path);

  /// What went wrong, with the path; empty if nothing did.
  const std::string& wrong() const { return wrong_; }
  void write(const CommentedFrame& frame);
  /// Writes out what is buffered, so that the file is whole up to here. After the last call wrong() is final.
  void flush();

 private:
  uint32_t interfaceOf(std::string_view port);

  const std::string path_;
  std::ofstream file_;
  std::string wrong_;
  std::map<std::string, uint32_t, std::less<>> interfaces_;
};

}  // namespace Agent
