// What the rules of a fleet's lists have counted, on all agents together.
#include <Acl/Types.h>
#include <agent/change/Sources.h>
#include <agent/config/Model.h>
#include <agent/core/Terminal.h>
#include <agent/core/Words.h>
#include <agent/fleet/FleetCommand.h>
#include <agent/fleet/FleetKeys.h>
#include <agent/fleet/FleetSight.h>
#include <agent/show/Text.h>
#include <fmt/format.h>
#include <unistd.h>

#include <CLI/CLI.hpp>
#include <utility>

namespace Agent {

namespace {

using Json = nlohmann::ordered_json;

/// Packets and octets, and how many agents have counted any.
struct FleetSum {
  uint64_t packets = 0, bytes = 0, agents = 0;

  void add(uint64_t morePackets, uint64_t moreBytes) {
    packets += morePackets;
    bytes += moreBytes;
    agents += morePackets > 0;
  }
};

/// One list as the agents have it: whose rules have the same numbers and texts have the same.
struct FleetList {
  std::map<uint32_t, std::string> rules;  // the texts by number
  std::map<uint32_t, FleetSum> sums;
  FleetSum implicit;
  std::vector<std::string> agents;
  std::vector<std::string> incomplete;  // the agents of which not all counts are told
};

/// What agents have counted, by key of the store.
using FleetCounts = std::map<std::string, std::string>;

uint64_t countIn(const Json& row, size_t at) {
  return row.is_array() && row.size() > at && row[at].is_number_unsigned() ? row[at].get<uint64_t>() : 0;
}

bool isCounted(const Json& json) {
  const Json& source = json.is_object() && json.contains("source") ? json.at("source") : Json();
  return json.is_object() && (source.is_null() || source == sourceTitle(fleetName));
}

bool isWhole(const Json& json) { return !json.contains("leftOut") || json.at("leftOut") == 0; }

void addCounters(const Json& json, FleetList& list) {
  if (json.contains("implicit"))
    list.implicit.add(countIn(json.at("implicit"), 0), countIn(json.at("implicit"), 1));
  if (!json.contains("rules") || !json.at("rules").is_array()) return;
  for (const Json& row : json.at("rules")) {
    const auto number = static_cast<uint32_t>(countIn(row, 0));
    if (list.rules.contains(number)) list.sums[number].add(countIn(row, 1), countIn(row, 2));
  }
}

class FleetShowAction final : public FleetAction {
 public:
  explicit FleetShowAction(CLI::App& fleet)
      : FleetAction(
            fleet, "show", "Show what the rules of the fleet's lists have counted, on all agents together.",
            "Counts are of the agents that have in force what they are to have, each since its counters began. "
            "Others are named.") {
    app()
        .add_option("what", what_, "access-lists: what the fleet has for its agents")
        ->required()
        ->check(CLI::IsMember({"access-lists"}))
        ->type_name("access-lists");
    app().add_option("--agent", agent_, "of this agent alone")->type_name("AGENT");
    app().add_flag("--unused", unused_, "only rules that no packet has met anywhere");
  }

 private:
  using Key = std::pair<Config::ListKey, std::string>;

  Exit run(Etcd& etcd, const std::string&) const override {
    std::vector<std::vector<EtcdEntry>> counters;
    auto sight = fleetSight(etcd, {{.key = countersPrefix(), .isPrefix = true}}, &counters);
    if (!sight) return failed(sight.wrong);
    if (!agent_.empty() && !sight.value->agents.contains(agent_)) {
      return failed(sight.value->whyNoAgent(agent_));
    }
    std::vector<std::string> names;
    for (const auto& [name, member] : sight.value->agents) {
      if (agent_.empty() || name == agent_) names.push_back(name);
    }
    if (auto wrong = readTexts(etcd, *sight.value, sight.value->placesOf(names)); !wrong.empty())
      return failed(wrong);
    const Json document = documentOf(*sight.value, counters.at(0));
    return print(document, textOf(document));
  }

  Json documentOf(const FleetSight& sight, const std::vector<EtcdEntry>& counters) const {
    FleetCounts counted;
    for (const EtcdEntry& entry : counters) counted[entry.key] = entry.value;
    std::map<Key, FleetList> lists;
    Json unread = Json::array();
    for (const auto& [agent, member] : sight.agents) {
      if (!agent_.empty() && agent != agent_) continue;
      const FleetContent content = sight.contentOf(agent);
      // What it has counted is of what it has in force.
      const std::string_view status = memberStatus(member, content.version);
      const MadeModel made = readFleet(content, {});
      if (!made.model || status != "in force") {
        unread.push_back({{"agent", agent}, {"why", made.model ? status : "its texts have mistakes"}});
        continue;
      }
      for (const auto& [key, list] : made.model->lists) add(agent, key, list, counted, lists);
    }
    Json shown = Json::array(), incomplete = Json::array();
    for (const auto& [key, list] : lists) {
      Json one = listWords(key.first.first, key.first.second);
      one["agents"] = list.incomplete;
      if (!list.incomplete.empty()) incomplete.push_back(std::move(one));
      if (!unused_ || list.incomplete.empty()) shown.push_back(listJson(key.first, list));
    }
    return {{"revision", sight.revision},
            {"lists", std::move(shown)},
            {"incomplete", std::move(incomplete)},
            {"unread", std::move(unread)}};
  }

  static void add(const std::string& agent, const Config::ListKey& key, const Config::List& list,
                  const FleetCounts& counted, std::map<Key, FleetList>& lists) {
    const auto value = counted.find(counterKey(agent, Acl::stringValue(key.first), key.second));
    const Json counts = value == counted.end() ? Json() : Json::parse(value->second, nullptr, false);
    // Another list of its name is in force there, of the agent's own command line or directory.
    if (value != counted.end() && !isCounted(counts)) return;
    std::string alike;
    for (const auto& [number, rule] : list.rules)
      alike += fmt::format("{} {}\n", number, Config::common(rule).text.str());
    FleetList& sum = lists[{key, alike}];
    if (sum.agents.empty()) {
      for (const auto& [number, rule] : list.rules) sum.rules[number] = Config::common(rule).text.str();
    }
    sum.agents.push_back(agent);
    if (value != counted.end()) addCounters(counts, sum);
    // Without a value nothing was counted, unless there are too many lists to tell of all of them.
    if (value == counted.end() ? counted.contains(leftOutKey(agent)) : !isWhole(counts))
      sum.incomplete.push_back(agent);
  }

  Json listJson(const Config::ListKey& key, const FleetList& list) const {
    Json rules = Json::array();
    for (const auto& [number, text] : list.rules) {
      const auto known = list.sums.find(number);
      const FleetSum sum = known == list.sums.end() ? FleetSum() : known->second;
      if (unused_ && sum.packets > 0) continue;
      Json rule = ruleWords(number, text);
      rule.update({{"packets", sum.packets}, {"bytes", sum.bytes}, {"agents", sum.agents}});
      rules.push_back(std::move(rule));
    }
    Json json = listWords(key.first, key.second);
    json.update({{"agents", list.agents},
                 {"rules", std::move(rules)},
                 {"implicitDrop",
                  {{"packets", list.implicit.packets},
                   {"bytes", list.implicit.bytes},
                   {"agents", list.implicit.agents}}}});
    return json;
  }

  static std::string textOf(const Json& document) {
    std::string text;
    for (const Json& list : document.at("lists")) {
      text += fmt::format("{} on {}\n", listTitle(list),
                          fmt::join(list.at("agents").get<std::vector<std::string>>(), " "));
      std::vector<std::vector<std::string>> lines = {{"packets", "octets", "agents", "rule"}};
      const auto row = [&lines](const Json& sum, const std::string& title) {
        lines.push_back(
            {valueText(sum.at("packets")), valueText(sum.at("bytes")), valueText(sum.at("agents")), title});
      };
      for (const Json& rule : list.at("rules")) row(rule, ruleTitle(rule));
      row(list.at("implicitDrop"), "what no rule matches");
      text += tableText(lines, {true, true, true, false}, wantsColour(STDOUT_FILENO)) + "\n";
    }
    for (const Json& list : document.at("incomplete"))
      text += fmt::format("{}: not all that was counted is told by {}\n", listTitle(list),
                          fmt::join(list.at("agents").get<std::vector<std::string>>(), " "));
    for (const Json& one : document.at("unread"))
      text += fmt::format("{} is left out: {}\n", valueText(one.at("agent")), valueText(one.at("why")));
    return text.empty() ? "the fleet has no lists\n" : text;
  }

  std::string what_, agent_;
  bool unused_ = false;
};

}  // namespace

std::unique_ptr<FleetAction> fleetShowAction(CLI::App& fleet) {
  return std::make_unique<FleetShowAction>(fleet);
}

}  // namespace Agent
