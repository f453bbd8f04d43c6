#pragma once

#include <nlohmann/json.hpp>

#include <string>

namespace Agent {

/// Makes the lines of `velo tail` of the frames that an agent tells of. Its columns are as wide as the widest
/// cell so far.
class TailText {
 public:
  explicit TailText(bool colour) : colour_(colour) {}

  /// The line of a frame, behind one that says how many before it were passed over, if there were any.
  std::string lines(const nlohmann::ordered_json& frame);
  /// A line that says so; empty when there were none.
  static std::string passedOver(uint64_t frames);

 private:
  const bool colour_;
  size_t port_ = 4, by_ = 20;  // the widths of columns
};

}  // namespace Agent
