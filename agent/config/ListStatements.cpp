#include <agent/config/Rules.h>
#include <agent/config/Statements.h>
#include <fmt/format.h>

#include <limits>
#include <type_traits>

namespace Config {

namespace {

using Acl::AclType;

constexpr uint32_t highestNumber = std::numeric_limits<uint32_t>::max();
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
bool readInto(Cursor& at, uint32_t sequence, bool (*reader)(Cursor&, R*), Rule* out) {
  R rule;
  rule.sequence = sequence;
  if (!reader(at, &rule)) return false;
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

bool Statements::readRule(Cursor& at, uint32_t sequence, Rule* rule) const {
  switch (list_->type) {
    case AclType::ip:
      if (list_->standard) return readInto<Acl::IpRule>(at, sequence, readStandardRule, rule);
      return readInto<Acl::IpRule>(at, sequence, readIpRule, rule);
    case AclType::ipv6:
      return readInto<Acl::Ip6Rule>(at, sequence, readIpRule, rule);
    case AclType::mac:
      return readInto<Acl::MacRule>(at, sequence, readMacRule, rule);
  }
  return false;
}

bool Statements::rule(Cursor& at, AclType) {
  uint32_t sequence = 0;
  Rule rule;
  if (!readNumber(at, &sequence) || !readRule(at, sequence, &rule)) return false;
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
    return true;
  }
  Rule rule;
  if (!readRule(at, sequence, &rule)) return false;
  std::erase_if(list_->rules, [&](const auto& entry) {
    if (numbered && entry.first != sequence) return false;
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
  if (!readListName(at, &name) || !at.end()) return false;
  const auto [entry, added] =
      model_.lists.try_emplace({type, name}, List{type, name, nowhere_.standard, {}, {}});
  if (!added && entry->second.standard != nowhere_.standard) {
    return at.failAt(at.position() - 1,
                     fmt::format("ip access-list {} in front of it, or no ip access-list {} first",
                                 entry->second.standard ? "standard" : "extended", name),
                     entry->second.standard ? "of a standard list" : "of an extended list");
  }
  list_ = &entry->second;
  return true;
}

bool Statements::noAccessList(Cursor& at, AclType type) {
  bool standard = false;
  std::string name;
  readListForm(at, type, &standard);
  if (!readListName(at, &name) || !at.end()) return false;
  model_.lists.erase({type, name});
  return true;
}

}  // namespace Config
