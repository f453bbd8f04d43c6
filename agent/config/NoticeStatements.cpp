#include <agent/config/Sentences.h>
#include <agent/config/Statements.h>

#include <algorithm>
#include <optional>
#include <vector>

// What statements leave in the notices of the model.
namespace Config {

void Notices::forgetUnusedTexts() {
  const std::vector<std::string> all = std::move(texts);
  texts.clear();
  std::vector<std::optional<uint32_t>> now(all.size());
  const auto settle = [&](auto& spots) {
    for (auto& [key, spot] : spots) {
      auto& index = now[spot.text];
      if (!index) {
        const auto known = std::find(texts.begin(), texts.end(), all[spot.text]);
        index = static_cast<uint32_t>(known - texts.begin());
        if (known == texts.end()) texts.push_back(all[spot.text]);
      }
      spot.text = *index;
    }
  };
  settle(bindings);
  settle(lists);
  settle(portChannels);
  settle(mirrorSessions);
  settle(shutdowns);
  settle(rules);
}

namespace {

constexpr size_t mostWarnings = 100;

}  // namespace

Spot Statements::spotOf(const Cursor& at, size_t position) const {
  return {static_cast<uint32_t>(firstText_ + place_.text), place_.line,
          static_cast<int>(at.columnOf(position))};
}

void Statements::noticeOddities(const Cursor& at) {
  if (at.wordAt(0) == "no") return;
  auto& notices = model_.notices;
  for (const auto& [position, code, text] : at.oddities()) {
    if (notices.warnings.size() >= mostWarnings) {
      ++notices.moreWarnings;
    } else {
      notices.warnings.push_back({code, notices.placeOf(spotOf(at, position)), text});
    }
  }
}

/// Whether the rule that has a number is from the texts that are being read. To replace one of the model
/// before them is what the number is given for. Asked once for each rule that is read.
bool Statements::isGivenHere(const ListKey& key, uint32_t sequence) {
  const auto known = startRules_.find(key);
  if (known == startRules_.end() || !std::binary_search(known->second.begin(), known->second.end(), sequence))
    return true;
  return !startRulesGivenAgain_.emplace(key, sequence).second;
}

/// To be called before the rule is put in its list.
void Statements::noticeRule(Cursor& at, size_t position, const Rule& rule, const GroupNames& groups) {
  const ListKey key{list_->type, list_->name};
  const uint32_t sequence = common(rule).sequence;
  const bool givenHere = isGivenHere(key, sequence);
  const auto before = list_->rules.find(sequence);
  if (givenHere && before != list_->rules.end() && !isSameRule(before->second, rule)) {
    at.warn(position, "rule-twice", ruleGivenTwice(before->second));
  }
  auto& places = model_.notices.rules;
  if (model_.notices.ofAllRules || groups.any() || !common(rule).mirrorSession.empty()) {
    places[{key, sequence}] = spotOf(at, position);
  } else if (!places.empty()) {
    places.erase({key, sequence});
  }
}

void Statements::forgetList(const ListKey& key) {
  model_.lists.erase(key);
  model_.notices.lists.erase(key);
  startRules_.erase(key);
  placedRemarks_.forgetList(key);
  groupUses_.forgetList(key);
}

}  // namespace Config
