#include <agent/core/Words.h>
#include <agent/show/Style.h>
#include <agent/show/Text.h>
#include <fmt/format.h>

#include <algorithm>

namespace Agent {

using Json = nlohmann::ordered_json;

namespace {

/// Breaks a text into lines of at most `width` octets, at blanks if there are any. All lines but the first
/// are indented.
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

std::string bindingsText(const Json& list) {
  std::string text;
  for (const Json& binding : list.at("bindings")) {
    text += fmt::format("{}{} {}", text.empty() ? "" : ", ", binding.at("interface").get<std::string>(),
                        binding.at("direction").get<std::string>());
  }
  return text.empty() ? "bound nowhere" : text;
}

uint64_t matchesOf(const Json& counted, const char* direction) {
  return counted.at("matches").at(direction).get<uint64_t>();
}

/// Writes lists one below the other, with columns of the same width in all of them.
class ListsText {
 public:
  ListsText(const Json& lists, const TextStyle& how) : style_(how.colour), now_(how.now) {
    uint64_t most = 0;
    const auto take = [&most](const Json& counted) {
      most = std::max({most, matchesOf(counted, "in"), matchesOf(counted, "out")});
    };
    for (const Json& list : lists) {
      for (const Json& rule : list.at("rules")) {
        ruleWidth_ =
            std::max(ruleWidth_, std::min(rule.at("text").get_ref<const std::string&>().size(), widestRule));
        mirrors_ = mirrors_ || rule.contains("mirrored");
        take(rule);
      }
      if (!list.at("implicitDrop").is_null()) take(list.at("implicitDrop"));
    }
    countWidth_ = std::max(countWidth_, std::to_string(most).size());
  }

  void add(const Json& list) {
    text_ += fmt::format("{}{}{}  ({})", style_.bold, listTitle(list), style_.off, bindingsText(list));
    if (list.at("source").is_string())
      text_ += fmt::format("{}  from {}{}", style_.dim, list.at("source").get<std::string>(), style_.off);
    const char* before = ", overrides ";
    for (const Json& source : list.at("overridden")) {
      text_ += fmt::format("{}{}{}{}", style_.dim, before, source.get<std::string>(), style_.off);
      before = ", ";
    }
    if (!list.value("published", true))
      text_ += fmt::format("{}  not published yet{}", style_.red, style_.off);
    if (list.value("cleared", Json()).is_number())
      text_ += fmt::format("{}  cleared {}{}", style_.dim, timeText(list.at("cleared").get<double>(), now_),
                           style_.off);
    text_ += fmt::format("\n{}{}{}\n", style_.dim,
                         row("", "", "in", "out", "mirrored", now_ ? "last match" : "last match (UTC)"),
                         style_.off);
    for (const Json& rule : list.at("rules")) addRule(rule);
    for (const Json& remark : list.value("remarks", Json::array())) addRemark(remark.get<std::string>());
    if (const Json& drop = list.at("implicitDrop"); !drop.is_null()) {
      text_ += countedRow("", "(what matches no rule is dropped)", drop) + "\n";
    } else {
      text_ += fmt::format("{}{:>10} (what matches no rule is dropped, see below){}\n", style_.dim, "",
                           style_.off);
    }
    text_ += "\n";
  }

  void addUndefined(const Json& list) {
    text_ += fmt::format("{}{} is bound ({}) but {}{}\n", style_.red, listTitle(list), bindingsText(list),
                         notDefined, style_.off);
  }

  void addOpen(const Json& opening) {
    text_ += fmt::format("{}open: {}{}\n", style_.red, opening.at("text").get<std::string>(), style_.off);
  }

  std::string takeText() { return std::move(text_); }

 private:
  static constexpr size_t widestRule = 80;

  std::string row(std::string_view number, std::string_view rule, std::string_view in, std::string_view out,
                  std::string_view mirrored, std::string_view last) const {
    const std::string copies = mirrors_ ? fmt::format(" {:>{}}", mirrored, countWidth_) : "";
    return fmt::format("{:>10} {:<{}} {:>{}} {:>{}}{}  {}", number, rule, ruleWidth_, in, countWidth_, out,
                       countWidth_, copies, last);
  }

  std::string countedRow(const std::string& number, std::string_view rule, const Json& counted) const {
    const Json& last = counted.at("lastMatch");
    return row(number, rule, std::to_string(matchesOf(counted, "in")),
               std::to_string(matchesOf(counted, "out")),
               counted.contains("mirrored") ? std::to_string(counted.at("mirrored").get<uint64_t>()) : "",
               last.is_null() ? "-" : timeText(last.get<double>(), now_));
  }

  void addRemark(const std::string& remark) {
    for (size_t at = 0; !remark.empty() && at <= remark.size();) {
      const size_t end = std::min(remark.find('\n', at), remark.size());
      text_ += fmt::format("{}{:>10} remark {}{}\n", style_.dim, "", remark.substr(at, end - at), style_.off);
      at = end + 1;
    }
  }

  void addRule(const Json& rule) {
    addRemark(rule.value("remark", ""));
    const bool idle = matchesOf(rule, "in") + matchesOf(rule, "out") == 0;
    const std::vector<std::string> lines = wrapped(rule.at("text").get_ref<const std::string&>(), ruleWidth_);
    text_ += idle ? style_.dim : "";
    text_ += countedRow(std::to_string(rule.at("sequence").get<uint32_t>()), lines.front(), rule);
    for (size_t i = 1; i < lines.size(); ++i) text_ += fmt::format("\n{:>10} {}", "", lines[i]);
    text_ += idle ? style_.off : "";
    text_ += "\n";
  }

  const Style style_;
  const std::optional<double> now_;
  size_t ruleWidth_ = 38;
  size_t countWidth_ = 9;
  bool mirrors_ = false;  // some rule names a mirror session
  std::string text_;
};

}  // namespace

std::string listsText(const Json& document, const TextStyle& style) {
  ListsText text(document.at("lists"), style);
  for (const Json& list : document.at("lists")) text.add(list);
  for (const Json& list : document.at("undefined")) text.addUndefined(list);
  for (const Json& opening : document.value("open", Json::array())) {
    // Lists that are not defined are told above, with all places.
    if (opening.at("code") != "list-undefined") text.addOpen(opening);
  }
  return text.takeText();
}

}  // namespace Agent
