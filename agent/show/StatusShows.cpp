// Shows of what the packet path publishes and counts.
#include <agent/core/Style.h>
#include <agent/core/Words.h>
#include <agent/show/ListRow.h>
#include <agent/show/Shows.h>
#include <agent/warnings/WarningText.h>

#include <map>
#include <set>
#include <utility>

namespace Agent {

using Json = nlohmann::ordered_json;

namespace {

constexpr const char* noStatus = "the plugin publishes no status\n";

std::string sourceLine(const Json& source, const TextStyle& style) {
  std::string line = fmt::format("{:<20} {}", source.at("name").get<std::string>(), sizeText(source));
  if (source.at("applied").is_number())
    line += fmt::format(", applied {}", timeText(source.at("applied").get<double>(), style.now));
  return line + "\n";
}

/// A line in as many as the screen needs.
std::string fitted(const std::string& line, const TextStyle& style) {
  return fmt::format("{}", fmt::join(wrapped(line, style.width.value_or(line.size())), "\n"));
}

/// The sources of configuration, and the texts that are not in force.
std::string configurationText(const Json& configuration, const TextStyle& style) {
  const Style how(style.colour);
  std::string text;
  const auto addRed = [&](const std::string& line) {
    text += fmt::format("{}{}{}\n", how.red, fitted(line, style), how.off);
  };
  for (const Json& source : configuration.at("sources")) text += sourceLine(source, style);
  if (const Json fleet = configuration.value("fleet", Json()); fleet.is_object()) {
    const std::string line = fmt::format("fleet, as {}: {}", fleet.at("agent").get<std::string>(),
                                         fleet.at("connected") == true ? "connected to " : "no connection");
    const bool connected = fleet.at("connected") == true;
    if (connected) text += fitted(line + fleet.at("endpoint").get<std::string>(), style) + "\n";
    const std::string wrong = fleet.at("wrong").is_null() ? "" : fleet.at("wrong").get<std::string>();
    if (!connected) addRed(wrong.empty() ? line : line + ", " + wrong);
    if (connected && !wrong.empty()) addRed("   " + wrong);
  }
  for (const Json& bad : configuration.at("bad")) {
    addRed(fmt::format("{}: not in force, {}", bad.at("name").get<std::string>(),
                       bad.at("kept").get<bool>() ? "its last good text is" : "and nothing of it is"));
    for (const Json& mistake : bad.at("mistakes"))
      text += fitted("   " + mistake.get<std::string>(), style) + "\n";
  }
  for (const Json& warning : configuration.value("warnings", Json::array())) {
    std::string line = warningsText(Json::array({warning}));
    line.pop_back();  // the line end
    text += fitted(line, style) + "\n";
  }
  if (const Json& within = configuration.at("confirmWithin"); !within.is_null())
    addRed(fmt::format("the last change is taken back in {:.0f} s unless it is confirmed",
                       within.get<double>()));
  if (const Json& why = configuration.at("notReturned"); !why.is_null())
    addRed("it could not be taken back, and that is tried again: " + why.get<std::string>());
  for (const std::string& sentence : restartSentences(configuration.at("restart"))) addRed(sentence);
  return text + "\n";
}

/// The places where a list is bound, in lines of a column.
std::vector<std::string> placesText(const std::set<std::string>& places, const TextStyle& style) {
  constexpr size_t ofColumn = 36;
  std::vector<std::string> lines;
  for (const std::string& place : places) {
    const bool fits = !lines.empty() && (!style.width || lines.back().size() + place.size() + 3 <= ofColumn);
    if (!lines.empty()) lines.back() += fits ? ", " : ",";
    if (fits) {
      lines.back() += place;
    } else {
      lines.push_back(place);
    }
  }
  return lines.empty() ? std::vector<std::string>{"nowhere"} : lines;
}

/// How many rules a list has, and how many packets they and its drop have counted: of a summary, or of rules
/// one by one.
std::pair<uint64_t, uint64_t> sumsOf(const Json& list) {
  if (list.contains("rules")) return {list.at("rules").get<uint64_t>(), list.at("packets").get<uint64_t>()};
  uint64_t packets = 0;
  for (const char* rules : {"ruleStatus", "implicitRuleStatus"}) {
    for (const auto& [id, rule] : list.at(rules).items()) packets += rule.at("packets").get<uint64_t>();
  }
  return {list.at("ruleStatus").size(), packets};
}

/// A line for each published list, with the places where it is bound.
std::string publishedText(const Json& status, const TextStyle& style) {
  std::vector<std::vector<std::string>> lines = {{"type", "list", "rules", "packets", "bound"}};
  for (const auto& [type, lists] : status.at("status").items()) {
    std::map<std::string, std::set<std::string>> bound;
    for (const auto& [direction, bindings] : lists.at("intf").items()) {
      for (const auto& [interface, list] : bindings.at("intf").items())
        bound[list.get<std::string>()].insert(boundAt(interface, direction));
    }
    for (const auto& [name, list] : lists.at("acl").items()) {
      const auto places = placesText(bound[name], style);
      const auto [rules, packets] = sumsOf(list);
      lines.push_back({type, name, std::to_string(rules), std::to_string(packets), places.front()});
      for (size_t i = 1; i < places.size(); ++i) lines.push_back({"", "", "", "", places[i]});
    }
  }
  return tableText(lines, {false, false, true, true, false}, style.colour);
}

std::string statusText(const Json& document, const TextStyle& style) {
  std::string text;
  if (style.now)
    text += fmt::format("started {}\n\n", timeText(document.at("started").get<double>(), style.now));
  if (const Json& configuration = document.at("configuration"); !configuration.is_null())
    text += configurationText(configuration, style);
  const Json& status = document.at("status");
  return text + (status.is_null() ? noStatus : publishedText(status, style));
}

std::string countersText(const Json& document, const TextStyle& style) {
  std::vector<std::vector<std::string>> lines = {
      {"direction", "type", "list", "rule", "rule id", "packets", "bytes", "last match"}};
  for (const Json& one : document.at("counters")) {
    lines.push_back({valueText(one.at("direction")), valueText(one.at("type")), valueText(one.at("list")),
                     one.at("rule").is_null() ? "-" : valueText(one.at("rule")), valueText(one.at("id")),
                     valueText(one.at("packets")), valueText(one.at("bytes")),
                     timeText(one.at("lastMatch").get<double>(), style.now)});
  }
  return clearedLine(document, style) +
         tableText(lines, {false, false, false, true, false, true, true, false}, style.colour);
}

Json dropsShown(const World& world) {
  return {{"cleared", clearedJson(world.zero)}, {"drops", dropsJson(dropsOf(world.core, &world.zero))}};
}

std::string dropsShownText(const Json& document, const TextStyle& style) {
  const std::string text = dropsText(document.at("drops"), style);
  return clearedLine(document, style) + (text.empty() ? "nothing was dropped\n" : text);
}

Json capabilitiesOf(const World& world) {
  const auto status = world.core.inForce().status();
  return {{"capabilities", status ? capabilitiesJson(*status) : Json(nullptr)}};
}

std::string capabilitiesText(const Json& document, const TextStyle&) {
  if (document.at("capabilities").is_null()) return noStatus;
  std::string text;
  for (const auto& [name, on] : document.at("capabilities").items())
    text += fmt::format("{:<32} {}\n", name, on.get<bool>() ? "yes" : "no");
  return text;
}

constexpr Show statusRows[] = {
    {"status", "", "the published status, and the sources of configuration", statusDocument, statusText,
     false, false, true, true},
    {"counters", "[NAME]", "the match counters of the packet path", countersDocument, countersText},
    {"drops", "", "what was dropped, and why", whole<dropsShown>, dropsShownText},
    {"capabilities", "", "what the dataplane can do", whole<capabilitiesOf>, capabilitiesText},
};

}  // namespace

std::span<const Show> statusShows() { return statusRows; }

}  // namespace Agent
