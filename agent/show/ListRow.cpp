#include <agent/core/Style.h>
#include <agent/show/ListRow.h>
#include <fmt/format.h>

#include <algorithm>
#include <cmath>
#include <iterator>

namespace Agent {

using Json = nlohmann::ordered_json;

namespace {

constexpr size_t widestRule = 80;
constexpr size_t narrowestRule = 24;  // below that the counts go to a line of their own
constexpr size_t usualCount = 9;

std::string lastText(const Json& counted, const TextStyle& style) {
  const Json& last = counted.at("lastMatch");
  return last.is_null() ? "-" : timeText(last.get<double>(), style.now);
}

std::string rateOf(const Json& counted, const char* what) {
  if (!counted.contains("rate")) return "";
  return counted.at("rate").is_null() ? "-" : rateText(counted.at("rate").at(what).get<double>());
}

/// A kind of column. Some are there only when a rule of the document has what they show.
struct Kind {
  std::string_view heading;
  std::string_view needs;  ///< the member of a rule; empty: always there
  std::string (*cell)(const Json& counted, const TextStyle& style);
};
constexpr Kind columnKinds[] = {
    {"in", "", [](const Json& one, const TextStyle&) { return std::to_string(packetsOf(one, "in")); }},
    {"out", "", [](const Json& one, const TextStyle&) { return std::to_string(packetsOf(one, "out")); }},
    {"bytes", "",
     [](const Json& one, const TextStyle&) {
       const Json& bytes = one.at("bytes");
       return std::to_string(bytes.at("in").get<uint64_t>() + bytes.at("out").get<uint64_t>());
     }},
    {"mirrored", "mirrored",
     [](const Json& one, const TextStyle&) {
       return one.contains("mirrored") ? std::to_string(one.at("mirrored").get<uint64_t>()) : std::string();
     }},
    {"pkt/s", "rate", [](const Json& one, const TextStyle&) { return rateOf(one, "packets"); }},
    {"byte/s", "rate", [](const Json& one, const TextStyle&) { return rateOf(one, "bytes"); }},
};

}  // namespace

std::vector<std::string> wrapped(std::string_view text, size_t width) {
  std::vector<std::string> lines;
  std::string indent;
  while (indent.size() + text.size() > width) {
    const size_t room = width - indent.size();
    size_t end = text.rfind(' ', room);
    if (end == std::string_view::npos || end <= text.find_first_not_of(' ')) end = room;
    lines.push_back(indent + std::string(text.substr(0, end)));
    text.remove_prefix(std::min(text.size(), end + (end < text.size() && text[end] == ' ' ? 1 : 0)));
    indent = "   ";
  }
  lines.push_back(indent + std::string(text));
  return lines;
}

uint64_t packetsOf(const Json& counted, const char* direction) {
  return counted.at("matches").at(direction).get<uint64_t>();
}

std::string rateText(double aSecond) {
  constexpr std::string_view units = "kMGTPE";
  if (aSecond < 999.5) return fmt::format("{:.0f}", std::min(std::ceil(aSecond), 999.0));
  size_t unit = 0;
  for (aSecond /= 1000; aSecond >= 999.5 && unit + 1 < units.size(); ++unit) aSecond /= 1000;
  const int digits = aSecond < 9.995 ? 2 : aSecond < 99.95 ? 1 : 0;
  return fmt::format("{:.{}f}{}", aSecond, digits, units[unit]);
}

ListRows::ListRows(const Json& lists, const TextStyle& style) : style_(style) {
  const auto some = [&lists](std::string_view member) {
    return std::any_of(lists.begin(), lists.end(), [member](const Json& list) {
      const Json& rules = list.at("rules");
      return std::any_of(rules.begin(), rules.end(),
                         [member](const Json& rule) { return rule.contains(member); });
    });
  };
  const size_t least = style.width ? 0 : usualCount;
  for (const Kind& kind : columnKinds) {
    if (kind.needs.empty() || some(kind.needs))
      columns_.push_back({kind.heading, kind.cell, std::max(least, kind.heading.size())});
  }
  columns_.push_back({style.now ? "last match" : "last match (UTC)", lastText, 0});
  size_t widest = 0, longest = 1;
  for (const Json& list : lists) {
    for (const Json& rule : list.at("rules")) {
      widest = std::max(widest, rule.at("text").get_ref<const std::string&>().size());
      longest = std::max(longest, std::to_string(rule.at("sequence").get<uint32_t>()).size());
      takeWidths(rule);
    }
    if (!list.at("implicitDrop").is_null()) takeWidths(list.at("implicitDrop"));
  }
  ruleWidth_ = std::clamp(widest, ruleWidth_, widestRule);
  if (!style.width) return;
  columns_.back().width = std::max(columns_.back().width, columns_.back().heading.size());
  numberWidth_ = longest + 3;
  const size_t taken = numberWidth_ + 1 + columnsWidth();
  stacked_ = *style.width < taken + narrowestRule;
  if (stacked_)
    ruleWidth_ = std::max(*style.width, numberWidth_ + narrowestRule) - numberWidth_ - 1;
  else
    ruleWidth_ = std::min(ruleWidth_, *style.width - taken);
}

void ListRows::takeWidths(const Json& counted) {
  for (Column& column : columns_) {
    if (&column == &columns_.back() && !style_.width) break;
    column.width = std::max(column.width, column.cell(counted, style_).size());
  }
}

/// A blank before each column, and one more before the last.
size_t ListRows::columnsWidth() const {
  size_t width = 1;
  for (const Column& column : columns_) width += 1 + column.width;
  return width;
}

std::string ListRows::heading() const {
  const Style style(style_.colour);
  if (stacked_) return "";
  std::string line = fmt::format("{:>{}} {:<{}}", "", numberWidth_, "", ruleWidth_);
  for (const Column& column : columns_) {
    line += &column == &columns_.back() ? fmt::format("  {}", column.heading)
                                        : fmt::format(" {:>{}}", column.heading, column.width);
  }
  return fmt::format("{}{}{}\n", style.dim, line, style.off);
}

std::string ListRows::row(std::string_view number, std::string_view rule, const Json& counted) const {
  if (stacked_) return stacked(number, rule, counted);
  const std::vector<std::string> lines = wrapped(rule, ruleWidth_);
  std::string text = fmt::format("{:>{}} {:<{}}", number, numberWidth_, lines.front(), ruleWidth_);
  for (const Column& column : columns_) {
    const std::string cell = column.cell(counted, style_);
    text += &column == &columns_.back() ? "  " + cell : fmt::format(" {:>{}}", cell, column.width);
  }
  for (size_t i = 1; i < lines.size(); ++i) text += "\n" + indent() + lines[i];
  return text;
}

std::string ListRows::stacked(std::string_view number, std::string_view rule, const Json& counted) const {
  std::string text, counts;
  for (const std::string& line : wrapped(rule, ruleWidth_))
    text +=
        fmt::format("{}{:>{}} {}", text.empty() ? "" : "\n", text.empty() ? number : "", numberWidth_, line);
  for (const Column& column : columns_) {
    const std::string cell = column.cell(counted, style_);
    if (cell.empty()) continue;
    counts += counts.empty() ? "" : ", ";
    counts += &column == &columns_.back() ? cell == "-" ? "never" : cell
                                          : fmt::format("{} {}", column.heading, cell);
  }
  for (const std::string& line : wrapped(counts, ruleWidth_ - 3))
    text += fmt::format("\n{}   {}", indent(), line);
  return text;
}

}  // namespace Agent
