#pragma once

#include <array>
#include <deque>
#include <string>
#include <vector>

namespace Agent {

/// How many labels a metric has at most.
inline constexpr size_t mostLabels = 4;

/// A value of a metric, with the values of its labels in the order in which the table names them.
struct Sample {
  std::array<std::string, mostLabels> labels;
  double value = 0;
};

/// The values of all metrics, by the rows of the table. Plain values, for any thread.
using Samples = std::vector<std::deque<Sample>>;

}  // namespace Agent
