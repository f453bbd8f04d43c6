#include <agent/replay/Report.h>

#include <algorithm>
#include <cmath>
#include <ctime>

namespace Agent {

namespace {

struct Style {
  const char* bold = "";
  const char* dim = "";
  const char* red = "";
  const char* off = "";
};

/// To the microsecond; of what is not there, a dash.
std::string timeText(const std::optional<double>& seconds) {
  if (!seconds) return "-";
  constexpr int64_t million = 1000000;
  const auto micros = static_cast<int64_t>(std::llround(*seconds * million));
  const auto stamp = static_cast<time_t>(micros >= 0 ? micros / million : (micros + 1) / million - 1);
  std::tm parts{};
  gmtime_r(&stamp, &parts);
  char text[32];
  std::strftime(text, sizeof text, "%Y-%m-%d %H:%M:%S", &parts);
  return fmt::format("{}.{:06d}", text, micros - static_cast<int64_t>(stamp) * million);
}

/// Lines of at most `width` octets, broken at blanks where there are any; all but the first are indented.
std::vector<std::string> wrapped(std::string_view text, size_t width) {
  std::vector<std::string> lines;
  std::string indent;
  while (indent.size() + text.size() > width) {
    const size_t room = width - indent.size();
    size_t end = text.rfind(' ', room);
    if (end == std::string_view::npos || end == 0) end = room;
    lines.push_back(indent + std::string(text.substr(0, end)));
    text.remove_prefix(std::min(text.size(), end + (text[end] == ' ' ? 1 : 0)));
    indent = "   ";
  }
  lines.push_back(indent + std::string(text));
  return lines;
}

std::string bindingsText(const ListReport& list) {
  if (list.bindings.empty()) return "bound nowhere";
  std::string text;
  for (const auto& binding : list.bindings) {
    text += fmt::format("{}{} {}", text.empty() ? "" : ", ", binding.interface, binding.direction);
  }
  return text;
}

/// How wide the columns are, the same in all lists.
struct Columns {
  static constexpr size_t widestRule = 80;
  size_t rule = 38;
  size_t count = 9;
  bool mirrors = false;  ///< some rule names a mirror session

  explicit Columns(const Report& report) {
    uint64_t most = 0;
    for (const auto& list : report.lists) {
      for (const auto& each : list.rules) {
        rule = std::max(rule, std::min(each.text.size(), widestRule));
        most = std::max({most, each.matches.in, each.matches.out});
        mirrors = mirrors || each.mirrored;
      }
      if (list.implicitDrop) most = std::max({most, list.implicitDrop->in, list.implicitDrop->out});
    }
    count = std::max(count, std::to_string(most).size());
  }
};

std::string row(const Columns& columns, std::string_view number, std::string_view rule, std::string_view in,
                std::string_view out, std::string_view mirrored, std::string_view last) {
  const std::string copies = columns.mirrors ? fmt::format(" {:>{}}", mirrored, columns.count) : "";
  return fmt::format("{:>10} {:<{}} {:>{}} {:>{}}{}  {}", number, rule, columns.rule, in, columns.count, out,
                     columns.count, copies, last);
}

std::string countedRow(const Columns& columns, const std::string& number, std::string_view rule,
                       const MatchCount& matches, const std::optional<uint64_t>& mirrored = {}) {
  return row(columns, number, rule, std::to_string(matches.in), std::to_string(matches.out),
             mirrored ? std::to_string(*mirrored) : "", timeText(matches.last));
}

void addRemark(std::string& text, const std::string& remark, const Style& style) {
  for (size_t at = 0; !remark.empty() && at <= remark.size();) {
    const size_t end = std::min(remark.find('\n', at), remark.size());
    text += fmt::format("{}{:>10} remark {}{}\n", style.dim, "", remark.substr(at, end - at), style.off);
    at = end + 1;
  }
}

void addRule(std::string& text, const RuleReport& rule, const Columns& columns, const Style& style) {
  addRemark(text, rule.remark, style);
  const bool idle = rule.matches.in + rule.matches.out == 0;
  const std::vector<std::string> lines = wrapped(rule.text, columns.rule);
  text += idle ? style.dim : "";
  text += countedRow(columns, std::to_string(rule.sequence), lines.front(), rule.matches, rule.mirrored);
  for (size_t i = 1; i < lines.size(); ++i) text += fmt::format("\n{:>10} {}", "", lines[i]);
  text += idle ? style.off : "";
  text += "\n";
}

void addList(std::string& text, const ListReport& list, const Columns& columns, const Style& style) {
  text += fmt::format("{}{} access-list {}{}  ({})", style.bold, list.type, list.name, style.off,
                      bindingsText(list));
  if (!list.sources.empty()) text += fmt::format("{}  from {}{}", style.dim, list.sources.front(), style.off);
  for (size_t i = 1; i < list.sources.size(); ++i) {
    text += fmt::format("{}{}{}{}", style.dim, i == 1 ? ", overrides " : ", ", list.sources[i], style.off);
  }
  text += fmt::format("\n{}{}{}\n", style.dim,
                      row(columns, "", "", "in", "out", "mirrored", "last match (UTC)"), style.off);
  for (const auto& rule : list.rules) addRule(text, rule, columns, style);
  if (list.implicitDrop) {
    text += countedRow(columns, "", "(what matches no rule is dropped)", *list.implicitDrop) + "\n";
  } else {
    text +=
        fmt::format("{}{:>10} (what matches no rule is dropped, see below){}\n", style.dim, "", style.off);
  }
  text += "\n";
}

/// Lines of cells below each other, each column as wide as its widest cell. `numbers` tells which columns
/// stand to the right; the first line is the heading.
void addTable(std::string& text, const std::vector<std::vector<std::string>>& lines,
              const std::vector<bool>& numbers, const Style& style) {
  std::vector<size_t> widths(numbers.size(), 0);
  for (const auto& line : lines) {
    for (size_t i = 0; i < line.size(); ++i) widths[i] = std::max(widths[i], line[i].size());
  }
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
}

}  // namespace

std::string reportText(const Report& report, bool colour) {
  const Style style = colour ? Style{"\x1b[1m", "\x1b[2m", "\x1b[31m", "\x1b[0m"} : Style{};
  std::string text;
  const Columns columns(report);
  for (const auto& list : report.lists) addList(text, list, columns, style);
  for (const auto& list : report.undefined) {
    text += fmt::format("{}{} access-list {} is bound ({}) but not defined: everything passes it{}\n",
                        style.red, list.type, list.name, bindingsText(list), style.off);
  }
  if (!report.undefined.empty()) text += "\n";

  if (!report.drops.empty()) {
    std::vector<std::vector<std::string>> lines = {{"counted", "by", "frames", "reason"}};
    for (const auto& [category, facilities] : report.drops) {
      for (const auto& [facility, reasons] : facilities) {
        for (const auto& [reason, count] : reasons)
          lines.push_back({category, facility, std::to_string(count), reason});
      }
    }
    addTable(text, lines, {false, false, true, false}, style);
    text += "\n";
  }

  std::vector<std::vector<std::string>> lines = {
      {"port", "received", "dropped in", "sent", "dropped out", "copies"}};
  for (const auto& [name, port] : report.ports) {
    lines.push_back({name, std::to_string(port.received), std::to_string(port.droppedIn),
                     std::to_string(port.sent), std::to_string(port.droppedOut),
                     std::to_string(port.mirrored)});
  }
  addTable(text, lines, {false, true, true, true, true, true}, style);
  text += fmt::format("\n{}{} frames, {} bytes: {} passed, {} dropped{}\n", style.bold, report.frames,
                      report.bytes, report.passed, report.dropped, style.off);
  return text;
}

}  // namespace Agent
