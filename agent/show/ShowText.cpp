#include <agent/show/LogMessages.h>
#include <agent/show/Shows.h>
#include <agent/show/Style.h>
#include <fmt/format.h>

#include <map>
#include <set>
#include <string>

namespace Agent::ShowText {

using Json = nlohmann::ordered_json;

namespace {

std::string textOf(const Json& value) { return value.is_string() ? value.get<std::string>() : lineOf(value); }

/// The line that says since when counts are, behind clear counters.
std::string clearedLine(const Json& document, const TextStyle& style) {
  const Json& cleared = document.at("cleared");
  if (cleared.is_null()) return "";
  return fmt::format("counted since the counters were cleared, {}\n\n",
                     timeText(cleared.get<double>(), style.now));
}

std::string joined(const Json& names) {
  std::string text;
  for (const Json& name : names) text += (text.empty() ? "" : " ") + name.get<std::string>();
  return text;
}

std::string sourceLine(const Json& source, const TextStyle& style) {
  const auto counted = [&source](const char* member, std::string_view one) {
    return countText(source.at(member).get<uint64_t>(), one);
  };
  std::string line =
      fmt::format("{:<20} {}, {}, {}", source.at("name").get<std::string>(), counted("lists", "list"),
                  counted("rules", "rule"), counted("bindings", "binding"));
  if (source.at("applied").is_number())
    line += fmt::format(", applied {}", timeText(source.at("applied").get<double>(), style.now));
  return line + "\n";
}

}  // namespace

std::string accessLists(const Json& document, const TextStyle& style) {
  std::string text = clearedLine(document, style) + listsText(document, style);
  if (text.empty()) text = "no list\n";
  return text;
}

std::string interfaces(const Json& document, const TextStyle& style) {
  const Style how(style.colour);
  std::vector<std::vector<std::string>> lines = {{"interface", "direction", "type", "list", "from"}};
  for (const auto& [name, one] : document.at("interfaces").items()) {
    std::string shown = name;
    if (one.contains("members")) shown += " (" + joined(one.at("members")) + ")";
    if (one.contains("portChannel")) shown += " (in " + one.at("portChannel").get<std::string>() + ")";
    if (one.at("bindings").empty()) lines.push_back({shown, "-", "", "no list", ""});
    for (const Json& binding : one.at("bindings")) {
      std::string list = binding.at("list").get<std::string>();
      if (!binding.at("defined").get<bool>()) list += " (not defined: everything passes)";
      lines.push_back({shown, binding.at("direction").get<std::string>(),
                       binding.at("type").get<std::string>(), list,
                       binding.at("source").is_null() ? "" : binding.at("source").get<std::string>()});
      shown.clear();
    }
  }
  std::string text = tableText(lines, {false, false, false, false, false}, style.colour);
  for (const auto& [name, destinations] : document.at("mirrorSessions").items())
    text += fmt::format("mirror session {} to {}\n", name, joined(destinations));
  return text;
}

std::string status(const Json& document, const TextStyle& style) {
  const Style how(style.colour);
  std::string text;
  if (style.now)
    text += fmt::format("started {}\n\n", timeText(document.at("started").get<double>(), style.now));
  if (const Json& configuration = document.at("configuration"); !configuration.is_null()) {
    for (const Json& source : configuration.at("sources")) text += sourceLine(source, style);
    for (const Json& bad : configuration.at("bad")) {
      text +=
          fmt::format("{}{}: not in force, {}{}\n", how.red, bad.at("name").get<std::string>(),
                      bad.at("kept").get<bool>() ? "its last good text is" : "and nothing of it is", how.off);
      for (const Json& mistake : bad.at("mistakes"))
        text += fmt::format("   {}\n", mistake.get<std::string>());
    }
    text += "\n";
  }
  if (document.at("status").is_null()) return text + "the plugin publishes no status\n";
  std::vector<std::vector<std::string>> lines = {{"type", "list", "rules", "packets", "bound"}};
  for (const auto& [type, lists] : document.at("status").at("status").items()) {
    std::map<std::string, std::set<std::string>> bound;
    for (const auto& [direction, bindings] : lists.at("intf").items()) {
      for (const auto& [interface, list] : bindings.at("intf").items())
        bound[list.get<std::string>()].insert(fmt::format("{} {}", interface, direction));
    }
    for (const auto& [name, list] : lists.at("acl").items()) {
      uint64_t packets = 0;
      for (const char* rules : {"ruleStatus", "implicitRuleStatus"}) {
        for (const auto& [id, rule] : list.at(rules).items()) packets += rule.at("packets").get<uint64_t>();
      }
      const auto& places = bound[name];
      lines.push_back({type, name, std::to_string(list.at("ruleStatus").size()), std::to_string(packets),
                       places.empty() ? "nowhere" : fmt::format("{}", fmt::join(places, ", "))});
    }
  }
  return text + tableText(lines, {false, false, true, true, false}, style.colour);
}

std::string counters(const Json& document, const TextStyle& style) {
  std::vector<std::vector<std::string>> lines = {
      {"direction", "type", "list", "rule id", "packets", "bytes", "last match"}};
  for (const Json& one : document.at("counters")) {
    lines.push_back({textOf(one.at("direction")), textOf(one.at("type")), textOf(one.at("list")),
                     textOf(one.at("id")), textOf(one.at("packets")), textOf(one.at("bytes")),
                     timeText(one.at("lastMatch").get<double>(), style.now)});
  }
  return clearedLine(document, style) +
         tableText(lines, {false, false, false, false, true, true, false}, style.colour);
}

std::string drops(const Json& document, const TextStyle& style) {
  const std::string text = dropsText(document.at("drops"), style);
  return clearedLine(document, style) + (text.empty() ? "nothing was dropped\n" : text);
}

std::string capabilities(const Json& document, const TextStyle&) {
  if (document.at("capabilities").is_null()) return "the plugin publishes no status\n";
  std::string text;
  for (const auto& [name, on] : document.at("capabilities").items())
    text += fmt::format("{:<32} {}\n", name, on.get<bool>() ? "yes" : "no");
  return text;
}

std::string ports(const Json& document, const TextStyle& style) {
  Json counted = Json::object();
  std::vector<std::vector<std::string>> live = {
      {"port", "device", "link", "frames in", "frames out", "lost"}};
  std::string wrong, without;
  for (const auto& [name, port] : document.at("ports").items()) {
    if (port.contains("received")) counted[name] = port;
    if (!port.contains("live")) {
      without += fmt::format("{} has no device: what leaves there is lost\n", name);
      continue;
    }
    const Json& state = port.at("live");
    std::string lost;
    for (const auto& [what, count] : state.at("lost").items()) {
      if (count != 0) lost += fmt::format("{}{} {}", lost.empty() ? "" : ", ", what, textOf(count));
    }
    const char* link = state.at("up").get<bool>() ? "up" : state.at("present").get<bool>() ? "down" : "gone";
    live.push_back({name, textOf(state.at("device")), link, textOf(state.at("received").at("frames")),
                    textOf(state.at("sent").at("frames")), lost.empty() ? "nothing" : lost});
    if (!state.at("wrong").is_null()) wrong += fmt::format("{}: {}\n", name, textOf(state.at("wrong")));
  }
  std::string text = clearedLine(document, style) + portsText(counted, style);
  if (live.size() > 1) {
    text += "\nsince the start, between port and device:\n";
    text += tableText(live, {false, false, false, true, true, false}, style.colour) + wrong + without;
  }
  return text;
}

std::string tasks(const Json& document, const TextStyle& style) {
  std::vector<std::vector<std::string>> lines = {{"task", "priority", "queued", "done", "waiting"}};
  for (const Json& task : document.at("tasks")) {
    lines.push_back({textOf(task.at("name")), textOf(task.at("priority")),
                     task.at("queued").get<bool>() ? "yes" : "no", textOf(task.at("done")),
                     textOf(task.at("pending"))});
  }
  return tableText(lines, {false, true, false, true, true}, style.colour);
}

std::string logMessages(const Json& document, const TextStyle&) {
  return messagesText(document.at("messages"));
}

std::string trace(const Json& document, const TextStyle&) {
  std::string text;
  if (const auto lost = document.at("lost").get<uint64_t>())
    text = fmt::format("({} older lines are lost)\n", lost);
  for (const Json& line : document.at("lines")) text += line.get<std::string>() + "\n";
  return text.empty() ? "nothing was traced; velo trace FACILITY/LEVEL switches a facility on\n" : text;
}

}  // namespace Agent::ShowText
