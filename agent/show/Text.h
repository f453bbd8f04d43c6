#pragma once

#include <nlohmann/json.hpp>

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

/// Documents for people. Every function takes a document, or the member of it that is named, and returns
/// whole lines.
namespace Agent {

/// How a text is to look.
struct TextStyle {
  bool colour = false;
  /// Seconds since the epoch: times are shown as how long ago they were. Nothing: they are shown in UTC.
  std::optional<double> now{};
};

/// Members `lists` and `undefined`: the lists in the shape in which they are typed, with their counts.
std::string listsText(const nlohmann::ordered_json& document, const TextStyle& style);
/// Member `drops`; no line when nothing was counted.
std::string dropsText(const nlohmann::ordered_json& drops, const TextStyle& style);
/// Member `ports`.
std::string portsText(const nlohmann::ordered_json& ports, const TextStyle& style);

/// Lines of cells below each other, each column as wide as its widest cell. `numbers` tells which columns
/// stand to the right; the first line is the heading.
std::string tableText(const std::vector<std::vector<std::string>>& lines, const std::vector<bool>& numbers,
                      bool colour);

/// "1 rule", "2 rules".
std::string countText(uint64_t count, std::string_view one);

/// A time in seconds since the epoch, to the microsecond in UTC, or "12 s ago".
std::string timeText(double seconds, const std::optional<double>& now);

}  // namespace Agent
