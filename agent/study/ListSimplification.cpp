#include <agent/change/Effective.h>
#include <agent/config/Writer.h>
#include <agent/core/Words.h>
#include <agent/proof/RulesText.h>
#include <agent/proof/Simplify.h>
#include <agent/study/ListChoice.h>
#include <agent/study/ListSimplification.h>
#include <fmt/format.h>

#include <set>
#include <sstream>
#include <utility>

namespace Agent {

using Json = nlohmann::ordered_json;

namespace {

/// The object-groups that a list names, and those that are in these.
class GroupsOf {
 public:
  GroupsOf(const Config::Model& model, const Config::List& list) : model_(model) {
    for (const auto& [sequence, rule] : list.rules) add(Config::common(rule).text.str(), "object-group");
  }
  std::map<std::string, Config::ObjectGroup> take() { return std::move(groups_); }

 private:
  void add(const std::string& text, const char* keyword) {
    std::istringstream words(text);
    for (std::string word; words >> word;) {
      if (word != keyword || !(words >> word)) continue;
      const auto group = model_.objectGroups.find(word);
      if (group == model_.objectGroups.end() || !groups_.insert(*group).second) continue;
      for (const std::string& member : group->second.members) add(member, "group-object");
    }
  }

  const Config::Model& model_;
  std::map<std::string, Config::ObjectGroup> groups_;
};

struct LeftOut {
  const char* why;
  std::string sentence;
};

LeftOut leftOutWords(const Proof::RuleFinding& finding, bool permits) {
  const auto leftOut = [&finding](const std::string& why) {
    return fmt::format("rule {} is left out: {}", finding.sequence, why);
  };
  switch (finding.oddity) {
    case Proof::Oddity::impossible:
      return {"impossible", leftOut("no packet is as it asks")};
    case Proof::Oddity::covered:
      return {"covered", leftOut(fmt::format("{} {} all of it", Proof::rulesText(finding.by),
                                             finding.by.size() == 1 ? "takes" : "take"))};
    case Proof::Oddity::redundant:
      break;
  }
  return {"redundant",
          leftOut(fmt::format("without it its packets are {}, too, and are not counted by it any more",
                              permits ? "permitted" : "dropped"))};
}

Json leftOutJson(const Proof::SimplerList& simpler, const Config::List& before) {
  Json all = Json::array();
  for (const Proof::RuleFinding& each : simpler.leftOut) {
    const Acl::RuleBase& rule = Config::common(before.rules.at(each.sequence));
    LeftOut words = leftOutWords(each, rule.action == Acl::Action::permit);
    Json one = ruleWords(each.sequence, rule.text.str());
    one.update({{"why", words.why}, {"by", each.by}, {"sentence", std::move(words.sentence)}});
    all.push_back(std::move(one));
  }
  return all;
}

Json joinedJson(const Proof::SimplerList& simpler) {
  Json all = Json::array();
  for (const Proof::JoinedRules& each : simpler.joined) {
    const uint32_t number = each.rules.front();
    const std::string text = Config::common(simpler.list.rules.at(number)).text.str();
    all.push_back({{"rules", each.rules},
                   {"as", ruleWords(number, text)},
                   {"sentence", fmt::format("{} are one, and are counted together: {}",
                                            Proof::rulesText(each.rules), ruleTitle(number, text))}});
  }
  return all;
}

std::string textOf(const Config::Model& owner, const Config::ListKey& key, const Config::List& list,
                   bool whole) {
  Config::Model model;
  if (whole)
    model = owner;
  else
    model.objectGroups = GroupsOf(owner, list).take();
  model.lists[key] = list;
  return Config::textOf(model);
}

}  // namespace

std::optional<Json> listSimplification(const SimplificationQuestion& question, const Layers& layers,
                                       std::string* wrong) {
  const Effective effective(layers);
  const auto key = chosenList(effective, question.list, question.type, wrong);
  if (!key) return std::nullopt;
  const Config::Model& owner = *effective.lists.at(*key).model;
  const Config::List& list = owner.lists.at(*key);
  try {
    const Proof::RuleSets sets(key->first, question.limits);
    const auto simpler = Proof::simplify(list, sets);
    return Json{{"list", listWords(key->first, key->second)},
                {"rules", list.rules.size()},
                {"rulesLeft", simpler.list.rules.size()},
                {"leftOut", leftOutJson(simpler, list)},
                {"joined", joinedJson(simpler)},
                {"text", textOf(owner, *key, simpler.list, question.whole)}};
  } catch (const Proof::LimitReached& limit) {
    *wrong = fmt::format("{}: {}", listTitle(key->first, key->second), limit.what());
    return std::nullopt;
  }
}

std::string listSimplificationText(const Json& document) {
  std::string text;
  for (const char* part : {"leftOut", "joined"}) {
    for (const Json& each : document.at(part)) text += each.at("sentence").get<std::string>() + "\n";
  }
  const auto before = document.at("rules").get<size_t>(), left = document.at("rulesLeft").get<size_t>();
  return text +
         fmt::format("{}: {}\n", listTitle(document.at("list")),
                     before == left
                         ? fmt::format("none of {} can be left out or joined", countText(before, "rule"))
                         : fmt::format("{} of {} are left", left, countText(before, "rule")));
}

}  // namespace Agent
