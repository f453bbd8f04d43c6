#include <agent/change/Difference.h>
#include <agent/core/Words.h>
#include <fmt/format.h>

namespace Agent {

using Json = nlohmann::ordered_json;

namespace {

struct Mark {
  const char* member;
  char sign;
  const char* colour;
};
constexpr Mark marks[] = {{"removed", '-', "\x1b[31m"},
                          {"added", '+', "\x1b[32m"},
                          {"changed", '~', "\x1b[33m"},
                          {"respelled", '~', ""}};

/// Adds a line for each entry; text(entry) gives its words.
template <class Text>
void addLines(std::string& out, const Json& changes, bool colour, const Text& text) {
  for (const Mark& mark : marks) {
    for (const Json& entry : changes.value(mark.member, Json::array())) {
      const std::string line = fmt::format("{} {}", mark.sign, text(entry));
      out += colour && *mark.colour ? fmt::format("{}{}\x1b[0m\n", mark.colour, line) : line + "\n";
    }
  }
}

std::string wordOf(const Json& entry, const char* member) { return entry.at(member).get<std::string>(); }

std::string interfacesText(const Json& names) {
  std::string text;
  for (const Json& name : names) text += " " + name.get<std::string>();
  return text;
}

}  // namespace

bool isNoDifference(const Json& difference) {
  for (const Json& part : difference) {
    for (const Json& entries : part) {
      if (!entries.empty()) return false;
    }
  }
  return true;
}

std::string differenceText(const Json& difference, bool colour) {
  if (isNoDifference(difference)) return "nothing changes\n";
  std::string text;
  const Json& lists = difference.at("lists");
  addLines(text, lists, colour, [](const Json& list) {
    const std::string title = listTitle(list);
    if (!list.at("rules").is_number()) return title;
    return fmt::format("{} ({})", title, countText(list.at("rules").get<uint64_t>(), "rule"));
  });
  for (const Json& list : lists.at("changed")) {
    text += fmt::format("  in {}:\n", listTitle(list));
    addLines(text, list.at("rules"), colour, [](const Json& rule) {
      if (rule.contains("text")) return "  " + ruleTitle(rule);
      const std::string now = ruleTitle(rule.at("sequence").get<uint32_t>(), wordOf(rule, "to"));
      if (rule.contains("groups")) return fmt::format("  {}  (its object-groups differ)", now);
      return fmt::format("  {}  (was: {})", now, wordOf(rule, "from"));
    });
  }
  addLines(text, difference.at("bindings"), colour, [](const Json& binding) {
    const bool changed = !binding.contains("list");
    const std::string title =
        bindingTitle(wordOf(binding, "interface"), wordOf(binding, "type"),
                     wordOf(binding, changed ? "to" : "list"), wordOf(binding, "direction"));
    return changed ? fmt::format("{}  (was: {})", title, wordOf(binding, "from")) : title;
  });
  for (const auto& [member, what] :
       {std::pair("portChannels", "port-channel"), std::pair("mirrorSessions", "mirror session")}) {
    addLines(text, difference.at(member), colour, [what = what](const Json& one) {
      return one.contains("interfaces")
                 ? fmt::format("{} {}:{}", what, wordOf(one, "name"), interfacesText(one.at("interfaces")))
                 : fmt::format("{} {}:{}  (was:{})", what, wordOf(one, "name"), interfacesText(one.at("to")),
                               interfacesText(one.at("from")));
    });
  }
  return text;
}

}  // namespace Agent
