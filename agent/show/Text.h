#pragma once

#include <nlohmann/json.hpp>

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

// Documents as text for people. Each function takes a document, or a member of one, and returns whole lines.

namespace Agent {

/// How a text should look.
struct TextStyle {
  bool colour = false;
  /// The present time in seconds since the epoch: times are shown as how long ago they were. Nothing: times
  /// are shown in UTC.
  std::optional<double> now{};
  /// How many characters a line may have; nothing: as many as it needs. Only lists and the status obey.
  std::optional<size_t> width{};
};

/// Takes a document with the members `lists` and `undefined`: lists as they are typed, with their counts.
std::string listsText(const nlohmann::ordered_json& document, const TextStyle& style);
/// Takes the member `drops`; no line when nothing was counted.
std::string dropsText(const nlohmann::ordered_json& drops, const TextStyle& style);
/// Takes the member `ports`.
std::string portsText(const nlohmann::ordered_json& ports, const TextStyle& style);

/// Takes a document with the member `cleared`: a line that says since when counts are, and an empty line;
/// nothing when the counters were never cleared.
std::string clearedLine(const nlohmann::ordered_json& document, const TextStyle& style);
/// A text as it is; any other value as it is written in JSON.
std::string valueText(const nlohmann::ordered_json& value);

/// A table: lines of cells, each column as wide as its widest cell. The first line is the heading. `numbers`
/// says which columns are aligned to the right.
std::string tableText(const std::vector<std::vector<std::string>>& lines, const std::vector<bool>& numbers,
                      bool colour);

/// A time in seconds since the epoch, to the microsecond in UTC, or "12 s ago".
std::string timeText(double seconds, const std::optional<double>& now);

}  // namespace Agent
