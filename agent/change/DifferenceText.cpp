#include <agent/change/Difference.h>
#include <agent/core/Style.h>
#include <agent/core/Words.h>
#include <fmt/format.h>

#include <algorithm>
#include <utility>

namespace Agent {

using Json = nlohmann::ordered_json;

namespace {

/// A difference of more lines than a screen has begins with a summary.
constexpr std::ptrdiff_t mostWithoutSummary = 50;

struct Mark {
  const char* member;
  char sign;
  const char* Style::*colour;  ///< null: none
};
constexpr Mark marks[] = {{"removed", '-', &Style::red},
                          {"added", '+', &Style::green},
                          {"changed", '~', &Style::yellow},
                          {"respelled", '~', nullptr},
                          {"renumbered", '~', nullptr}};

/// Adds a line for each entry; text(entry) gives its words.
template <class Text>
void addLines(std::string& out, const Json& changes, const Style& style, const Text& text) {
  for (const Mark& mark : marks) {
    for (const Json& entry : changes.value(mark.member, Json::array())) {
      const char* colour = mark.colour ? style.*mark.colour : "";
      out += fmt::format("{}{} {}{}\n", colour, mark.sign, text(entry), *colour ? style.off : "");
    }
  }
}

std::string wordOf(const Json& entry, const char* member) { return entry.at(member).get<std::string>(); }

std::string interfacesText(const Json& names) {
  std::string text;
  for (const Json& name : names) text += " " + name.get<std::string>();
  return text;
}

std::string notesText(const Json& notes) {
  const std::string description = wordOf(notes, "description");
  std::string text = description.empty() ? "" : "description " + description;
  if (notes.at("shutdown").get<bool>()) text += text.empty() ? "shutdown" : ", shutdown";
  return text.empty() ? "no description" : text;
}

std::string interfaceText(const Json& interface) {
  const std::string title = "interface " + wordOf(interface, "name");
  if (!interface.contains("to")) return fmt::format("{}: {}", title, notesText(interface));
  return fmt::format("{}: {}  (was: {})", title, notesText(interface.at("to")),
                     notesText(interface.at("from")));
}

std::string groupText(const Json& group) {
  const std::string title = fmt::format("object-group {} {}", wordOf(group, "kind"), wordOf(group, "name"));
  const Json& which = group.at("members");
  if (which.is_number()) return fmt::format("{} ({})", title, countText(which.get<uint64_t>(), "member"));
  std::string text;
  for (const auto& [list, sign] : {std::pair("removed", '-'), std::pair("added", '+')}) {
    for (const Json& member : which.at(list))
      text += fmt::format("{} {} {}", text.empty() ? "" : ",", sign, member.get<std::string>());
  }
  return text.empty() ? title + ": its members in another order" : title + ":" + text;
}

std::string listText(const Json& list) {
  const std::string title = listTitle(list);
  if (!list.at("rules").is_number()) return title;
  return fmt::format("{} ({})", title, countText(list.at("rules").get<uint64_t>(), "rule"));
}

/// A remark of several lines in one.
std::string inOneLine(std::string remark) {
  std::replace(remark.begin(), remark.end(), '\n', '|');
  return remark;
}

/// "  (remark: first|second)", for a rule that comes, goes or has another remark than before.
std::string remarkText(const Json& rule) {
  if (!rule.contains("remark")) return {};
  const Json& remark = rule.at("remark");
  if (remark.is_string()) return fmt::format("  (remark: {})", inOneLine(remark.get<std::string>()));
  const std::string from = inOneLine(wordOf(remark, "from")), to = inOneLine(wordOf(remark, "to"));
  if (to.empty()) return fmt::format("  (without its remark: {})", from);
  return from.empty() ? fmt::format("  (remark: {})", to) : fmt::format("  (remark: {}, was: {})", to, from);
}

std::string remarksBehindText(const Json& list) {
  if (!list.contains("remarksBehind")) return {};
  std::string text;
  for (const auto& [member, sign] : {std::pair("from", '-'), std::pair("to", '+')}) {
    for (const Json& remark : list.at("remarksBehind").at(member))
      text += fmt::format("{}   remark {}  (behind the last rule)\n", sign, remark.get<std::string>());
  }
  return text;
}

std::string ruleWordsText(const Json& rule) {
  if (rule.contains("text")) return "  " + ruleTitle(rule);
  const std::string now = ruleTitle(rule.at("sequence").get<uint32_t>(), wordOf(rule, "to"));
  if (rule.contains("groups")) return fmt::format("  {}  (its object-groups differ)", now);
  const std::string from = wordOf(rule, "from");
  const bool onlyRemark = !rule.contains("was") && from == wordOf(rule, "to");
  if (onlyRemark) return "  " + now;
  if (!rule.contains("was")) return fmt::format("  {}  (was: {})", now, from);
  const auto was = rule.at("was").get<uint32_t>();
  return fmt::format("  {}  (was: {})", now,
                     from == wordOf(rule, "to") ? std::to_string(was) : ruleTitle(was, from));
}

std::string ruleText(const Json& rule) { return ruleWordsText(rule) + remarkText(rule); }

std::string bindingText(const Json& binding) {
  if (binding.contains("list")) return bindingTitle(binding, wordOf(binding, "list"));
  return fmt::format("{}  (was: {})", bindingTitle(binding, wordOf(binding, "to")), wordOf(binding, "from"));
}

/// A port-channel with its members, or a mirror session with its destinations.
std::string namesText(const char* what, const Json& one) {
  const std::string title = fmt::format("{} {}", what, wordOf(one, "name"));
  if (one.contains("interfaces")) return fmt::format("{}:{}", title, interfacesText(one.at("interfaces")));
  return fmt::format("{}:{}  (was:{})", title, interfacesText(one.at("to")), interfacesText(one.at("from")));
}

/// What another source defines, and is in force from now on.
std::string uncoveredText(const Json& entry) {
  const std::string kind = wordOf(entry, "kind");
  const std::string title = kind == "list"      ? listTitle(entry)
                            : kind == "binding" ? bindingTitle(entry, wordOf(entry, "list"))
                                                : fmt::format("{} {}", kind, wordOf(entry, "name"));
  return fmt::format("{} of {} comes into force", title, wordOf(entry, "source"));
}

}  // namespace

bool isNoDifference(const Json& difference) {
  return difference.at("summary").get_ref<const std::string&>().empty();
}

std::string differenceText(const Json& difference, bool colour) {
  if (isNoDifference(difference)) return "nothing changes\n";
  const Style style(colour);
  std::string text;
  const Json& lists = difference.at("lists");
  addLines(text, lists, style, listText);
  for (const Json& list : lists.at("changed")) {
    text += fmt::format("  in {}:\n", listTitle(list));
    addLines(text, list.at("rules"), style, ruleText);
    text += remarksBehindText(list);
  }
  addLines(text, difference.at("bindings"), style, bindingText);
  for (const auto& [member, what] :
       {std::pair("portChannels", "port-channel"), std::pair("mirrorSessions", "mirror session")}) {
    addLines(text, difference.at(member), style,
             [what = what](const Json& one) { return namesText(what, one); });
  }
  addLines(text, difference.at("interfaces"), style, interfaceText);
  addLines(text, difference.at("objectGroups"), style, groupText);
  // A difference that an earlier agent has kept in the history does not have it.
  addLines(text, difference.value("comesIntoForce", Json::object()), style, uncoveredText);
  if (std::count(text.begin(), text.end(), '\n') > mostWithoutSummary)
    return fmt::format("{}:\n{}", wordOf(difference, "summary"), text);
  return text;
}

}  // namespace Agent
