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

std::string timeText(const std::optional<double>& seconds) {
  if (!seconds) return "-";
  const double whole = std::floor(*seconds);
  const auto stamp = static_cast<time_t>(whole);
  std::tm parts{};
  gmtime_r(&stamp, &parts);
  char text[32];
  std::strftime(text, sizeof text, "%Y-%m-%d %H:%M:%S", &parts);
  return fmt::format("{}.{:06d}", text, std::min(999999, static_cast<int>((*seconds - whole) * 1e6)));
}

std::string bindingsText(const ListReport& list) {
  if (list.bindings.empty()) return "bound nowhere";
  std::string text;
  for (const auto& binding : list.bindings) {
    text += fmt::format("{}{} {}", text.empty() ? "" : ", ", binding.interface, binding.direction);
  }
  return text;
}

size_t widthOf(const Report& report) {
  size_t width = 24;
  for (const auto& list : report.lists) {
    for (const auto& rule : list.rules) width = std::max(width, rule.text.size());
  }
  return std::min<size_t>(width, 100);
}

void addList(std::string& text, const ListReport& list, size_t width, const Style& style) {
  text += fmt::format("{}{} access-list {}{}  ({})", style.bold, list.type, list.name, style.off, bindingsText(list));
  if (!list.sources.empty()) text += fmt::format("{}  from {}{}", style.dim, list.sources.front(), style.off);
  for (size_t i = 1; i < list.sources.size(); ++i) {
    text += fmt::format("{}{}{}{}", style.dim, i == 1 ? ", overrides " : ", ", list.sources[i], style.off);
  }
  text += fmt::format("\n{}{:>10} {:<{}} {:>10} {:>10}  {}{}\n", style.dim, "", "", width, "in", "out",
                      "last match (UTC)", style.off);
  for (const auto& rule : list.rules) {
    const bool idle = rule.matches.in + rule.matches.out == 0;
    if (!rule.remark.empty()) {
      size_t at = 0;
      while (at <= rule.remark.size()) {
        const size_t end = std::min(rule.remark.find('\n', at), rule.remark.size());
        text += fmt::format("{}{:>10} remark {}{}\n", style.dim, "", rule.remark.substr(at, end - at), style.off);
        at = end + 1;
      }
    }
    text += fmt::format("{}{:>10} {:<{}} {:>10} {:>10}  {}{}\n", idle ? style.dim : "", rule.sequence, rule.text, width,
                        rule.matches.in, rule.matches.out, timeText(rule.matches.last), idle ? style.off : "");
  }
  if (list.implicitDrop) {
    text += fmt::format("{:>10} {:<{}} {:>10} {:>10}  {}\n", "", "(what matches no rule is dropped)", width,
                        list.implicitDrop->in, list.implicitDrop->out, timeText(list.implicitDrop->last));
  } else {
    text += fmt::format("{}{:>10} (what matches no rule is dropped, see below){}\n", style.dim, "", style.off);
  }
  text += "\n";
}

}  // namespace

std::string reportText(const Report& report, bool colour) {
  const Style style = colour ? Style{"\x1b[1m", "\x1b[2m", "\x1b[31m", "\x1b[0m"} : Style{};
  std::string text;
  const size_t width = widthOf(report);
  for (const auto& list : report.lists) addList(text, list, width, style);
  for (const auto& list : report.undefined) {
    text += fmt::format("{}{} access-list {} is bound ({}) but not defined: everything passes it{}\n", style.red,
                        list.type, list.name, bindingsText(list), style.off);
  }
  if (!report.undefined.empty()) text += "\n";

  if (!report.drops.empty()) {
    text += fmt::format("{}{:<10} {:<18} {:>10}  {}{}\n", style.bold, "counted", "by", "frames", "reason", style.off);
    for (const auto& [category, facilities] : report.drops) {
      for (const auto& [facility, reasons] : facilities) {
        for (const auto& [reason, count] : reasons) {
          text += fmt::format("{:<10} {:<18} {:>10}  {}\n", category, facility, count, reason);
        }
      }
    }
    text += "\n";
  }

  text += fmt::format("{}{:<16} {:>10} {:>10} {:>10} {:>10} {:>10}{}\n", style.bold, "port", "received", "dropped in",
                      "sent", "dropped out", "copies", style.off);
  for (const auto& [name, port] : report.ports) {
    text += fmt::format("{:<16} {:>10} {:>10} {:>10} {:>11} {:>10}\n", name, port.received, port.droppedIn, port.sent,
                        port.droppedOut, port.mirrored);
  }
  text += fmt::format("\n{}{} frames, {} bytes: {} passed, {} dropped{}\n", style.bold, report.frames, report.bytes,
                      report.passed, report.dropped, style.off);
  return text;
}

}  // namespace Agent
