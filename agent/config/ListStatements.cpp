#include <agent/config/Rules.h>
#include <agent/config/Statements.h>
#include <fmt/format.h>

#include <type_traits>

namespace Config {

namespace {

using Acl::AclType;

constexpr uint32_t numberStep = 10;

/// Reads `standard` or `extended` between `ip access-list` and the name.
void readListForm(Cursor& at, AclType type, bool* standard) {
  *standard = type == AclType::ip && at.takeIf("standard");
  if (type == AclType::ip && !*standard) at.takeIf("extended");
}

std::string joined(const std::vector<std::string>& lines) {
  std::string text;
  for (const auto& line : lines) {
    if (&line != &lines.front()) text += '\n';
    text += line;
  }
  return text;
}

template <class R>
bool readInto(Cursor& at, uint32_t sequence, bool (*reader)(Cursor&, R*, GroupNames*), Rule* out,
              GroupNames* groups) {
  R rule;
  rule.sequence = sequence;
  if (!reader(at, &rule, groups)) return false;
  *out = std::move(rule);
  return true;
}

void sequenceIs(Rule* rule, uint32_t sequence) {
  std::visit([&](auto& r) { r.sequence = sequence; }, *rule);
}

}  // namespace

bool readListName(Cursor& at, std::string* name) {
  if (at.peek() == "standard" || at.peek() == "extended")
    return at.fail("the name of a list, which this word is not");
  return at.name("the name of a list", name);
}

bool Statements::readNumber(Cursor& at, uint32_t* sequence) const {
  if (isDigits(at.peek())) return at.number(aNumber, 1, highestNumber, sequence);
  const uint32_t highest = list_->rules.empty() ? 0 : list_->rules.rbegin()->first;
  if (highest > highestNumber - numberStep) {
    return at.fail(fmt::format("a rule number: none is left at {} above {}", numberStep, highest));
  }
  *sequence = highest + numberStep;
  return true;
}

bool Statements::readRule(Cursor& at, uint32_t sequence, bool bareHosts, Rule* rule,
                          GroupNames* groups) const {
  switch (list_->type) {
    case AclType::ip: {
      bool (*const extended)(Cursor&, Acl::IpRule*, GroupNames*) = readIpRule;
      const auto reader = !list_->standard ? extended
                          : bareHosts      ? readNumberedStandardRule
                                           : readStandardRule;
      return readInto<Acl::IpRule>(at, sequence, reader, rule, groups);
    }
    case AclType::ipv6:
      return readInto<Acl::Ip6Rule>(at, sequence, readIpRule, rule, groups);
    case AclType::mac:
      return readInto<Acl::MacRule>(at, sequence, readMacRule, rule, groups);
  }
  return false;
}

bool Statements::rule(Cursor& at, AclType) { return addRule(at, false); }

bool Statements::addRule(Cursor& at, bool bareHosts) {
  uint32_t sequence = 0;
  Rule rule;
  GroupNames groups;
  const size_t position = at.position();
  if (!readNumber(at, &sequence) || !readRule(at, sequence, bareHosts, &rule, &groups)) return false;
  noticeRule(at, position, rule, groups);
  groupUses_.ruleIs({list_->type, list_->name}, sequence, groups, place_);
  std::visit([&](auto& r) { r.remark = joined(list_->pendingRemarks); }, rule);
  list_->pendingRemarks.clear();
  list_->rules.insert_or_assign(list_->rules.end(), sequence, std::move(rule));
  return true;
}

bool Statements::noRule(Cursor& at, AclType) {
  uint32_t sequence = 0;
  const bool numbered = isDigits(at.peek());
  if (numbered && !at.number(aNumber, 1, highestNumber, &sequence)) return false;
  if (at.atEnd()) {
    list_->rules.erase(sequence);
    placedRemarks_.forgetRule({list_->type, list_->name}, sequence);
    return true;
  }
  Rule rule;
  GroupNames groups;
  if (!readRule(at, sequence, false, &rule, &groups)) return false;
  const ListKey list{list_->type, list_->name};
  std::erase_if(list_->rules, [&](const auto& entry) {
    if (numbered && entry.first != sequence) return false;
    if (groupUses_.of(list, entry.first) != groups) return false;
    sequenceIs(&rule, entry.first);
    return isSameRule(entry.second, rule);
  });
  return true;
}

bool Statements::remark(Cursor& at, AclType) {
  if (at.atEnd()) return at.fail("the text of the remark");
  list_->pendingRemarks.emplace_back(at.rest());
  return true;
}

bool Statements::noRemark(Cursor& at, AclType) {
  std::erase_if(list_->pendingRemarks, [&](const auto& line) { return at.atEnd() || line == at.rest(); });
  return true;
}

bool Statements::accessList(Cursor& at, AclType type) {
  mode_ = Mode::list;
  list_ = &nowhere_;
  nowhere_ = {};
  nowhere_.type = type;
  std::string name;
  readListForm(at, type, &nowhere_.standard);
  return readListName(at, &name) && at.end() && openList(at, at.position() - 1, name);
}

/// Opens the list of nowhere_'s kind and form; `place` is the name's.
bool Statements::openList(Cursor& at, size_t place, const std::string& name) {
  const auto [entry, added] =
      model_.lists.try_emplace({nowhere_.type, name}, List{nowhere_.type, name, nowhere_.standard, {}, {}});
  if (!added && entry->second.standard != nowhere_.standard) {
    return at.failAt(place,
                     fmt::format("ip access-list {} in front of it, or no ip access-list {} first",
                                 entry->second.standard ? "standard" : "extended", name),
                     entry->second.standard ? "of a standard list" : "of an extended list");
  }
  if (added) model_.notices.lists[entry->first] = spotOf(at, place);
  list_ = &entry->second;
  return true;
}

bool Statements::noAccessList(Cursor& at, AclType type) {
  bool standard = false;
  std::string name;
  readListForm(at, type, &standard);
  if (!readListName(at, &name) || !at.end()) return false;
  forgetList({type, name});
  return true;
}

}  // namespace Config
