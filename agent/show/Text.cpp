#include <agent/core/Document.h>
#include <agent/core/Style.h>
#include <agent/show/Text.h>
#include <fmt/format.h>

#include <algorithm>
#include <cmath>
#include <ctime>

namespace Agent {

using Json = nlohmann::ordered_json;

namespace {

std::string utcText(double seconds) {
  constexpr int64_t million = 1000000;
  const auto micros = static_cast<int64_t>(std::llround(seconds * million));
  const auto stamp = static_cast<time_t>(micros >= 0 ? micros / million : (micros + 1) / million - 1);
  std::tm parts{};
  gmtime_r(&stamp, &parts);
  char text[32];
  std::strftime(text, sizeof text, "%Y-%m-%d %H:%M:%S", &parts);
  return fmt::format("{}.{:06d}", text, micros - static_cast<int64_t>(stamp) * million);
}

/// A time span with at most two numbers: "3 d 4 h ago".
std::string agoText(double seconds) {
  const auto whole = static_cast<int64_t>(std::max(0.0, seconds));
  if (whole < 60) return fmt::format("{} s ago", whole);
  if (whole < 3600) return fmt::format("{} min {} s ago", whole / 60, whole % 60);
  if (whole < 86400) return fmt::format("{} h {} min ago", whole / 3600, whole % 3600 / 60);
  return fmt::format("{} d {} h ago", whole / 86400, whole % 86400 / 3600);
}

}  // namespace

std::string timeText(double seconds, const std::optional<double>& now) {
  return now ? agoText(*now - seconds) : utcText(seconds);
}

std::string tableText(const std::vector<std::vector<std::string>>& lines, const std::vector<bool>& numbers,
                      bool colour) {
  const Style style(colour);
  std::vector<size_t> widths(numbers.size(), 0);
  for (const auto& line : lines) {
    for (size_t i = 0; i < line.size(); ++i) widths[i] = std::max(widths[i], line[i].size());
  }
  std::string text;
  for (const auto& line : lines) {
    const bool heading = &line == &lines.front();
    std::string shown;
    for (size_t i = 0; i < line.size(); ++i) {
      if (i > 0) shown += "  ";
      shown +=
          numbers[i] ? fmt::format("{:>{}}", line[i], widths[i]) : fmt::format("{:<{}}", line[i], widths[i]);
    }
    shown.erase(shown.find_last_not_of(' ') + 1);
    text += fmt::format("{}{}{}\n", heading ? style.bold : "", shown, heading ? style.off : "");
  }
  return text;
}

std::string clearedLine(const Json& document, const TextStyle& style) {
  const Json& cleared = document.at("cleared");
  if (cleared.is_null()) return "";
  return fmt::format("counted since the counters were cleared, {}\n\n",
                     timeText(cleared.get<double>(), style.now));
}

std::string valueText(const Json& value) {
  return value.is_string() ? value.get<std::string>() : lineOf(value);
}

std::string dropsText(const Json& drops, const TextStyle& style) {
  if (drops.empty()) return "";
  std::vector<std::vector<std::string>> lines = {{"counted", "by", "frames", "reason"}};
  for (const auto& [category, facilities] : drops.items()) {
    for (const auto& [facility, reasons] : facilities.items()) {
      for (const auto& [reason, count] : reasons.items())
        lines.push_back({category, facility, std::to_string(count.get<uint64_t>()), reason});
    }
  }
  return tableText(lines, {false, false, true, false}, style.colour);
}

std::string portsText(const Json& ports, const TextStyle& style) {
  std::vector<std::vector<std::string>> lines = {
      {"port", "received", "dropped in", "sent", "dropped out", "copies"}};
  for (const auto& [name, port] : ports.items()) {
    const auto count = [](const Json& value) { return std::to_string(value.get<uint64_t>()); };
    const Json& dropped = port.at("dropped");
    lines.push_back({name, count(port.at("received")), count(dropped.at("in")), count(port.at("sent")),
                     count(dropped.at("out")), count(port.at("mirrored"))});
  }
  return tableText(lines, {false, true, true, true, true, true}, style.colour);
}

}  // namespace Agent
