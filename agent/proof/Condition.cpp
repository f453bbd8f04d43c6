#include <agent/config/Mistake.h>
#include <agent/config/Rules.h>
#include <agent/proof/Condition.h>
#include <fmt/format.h>

#include <algorithm>
#include <utility>

namespace Proof {

namespace {

using Acl::AclType;
using Problem = Config::Cursor::Problem;

Config::Rule ruleOf(AclType type) {
  if (type == AclType::ip) return Acl::IpRule();
  if (type == AclType::ipv6) return Acl::Ip6Rule();
  return Acl::MacRule();
}

bool read(Config::Cursor& at, Acl::MacRule* rule, Config::GroupNames* groups) {
  return readMacRule(at, rule, groups);
}
template <class Rule>
bool read(Config::Cursor& at, Rule* rule, Config::GroupNames* groups) {
  return readIpRule(at, rule, groups);
}

/// Words of a user, with what makes the fields of a rule of them before and behind.
struct Words {
  std::string before, given, behind;
  size_t at = 0;  ///< where they begin in all that the user wrote
};

/// The column of a mistake is that in all that the user wrote; 0: it is in what stands around the words.
std::optional<Config::Rule> readFields(AclType type, const Words& words, Problem* wrong) {
  const std::string before = "permit " + words.before, line = before + words.given + words.behind;
  Config::Cursor at;
  Config::Rule rule = ruleOf(type);
  Config::GroupNames groups;
  const bool good = at.lineIs(line) && std::visit([&](auto& one) { return read(at, &one, &groups); }, rule);
  if (!good) {
    *wrong = *at.problem();
    const size_t end = before.size() + words.given.size() + 1;
    const bool isOfUser = wrong->column > before.size() && (wrong->column < end || words.behind.empty());
    wrong->column = isOfUser ? wrong->column - before.size() + words.at : 0;
    return std::nullopt;
  }
  const Acl::RuleBase& base = Config::common(rule);
  if (groups.any() || base.log || !base.mirrorSession.empty()) {
    *wrong = {words.at + 1, groups.any() ? "an object-group" : "log or mirror", "what packets can have"};
    return std::nullopt;
  }
  return rule;
}

/// What stands in front of the addresses of a rule for the same protocol.
std::string protocolOf(const Config::Rule& fields) {
  return std::visit(
      [](const auto& rule) -> std::string {
        if constexpr (requires { rule.filter.protocol; }) {
          if (rule.filter.protocolNamed) return fmt::format("{} ", rule.filter.protocol);
          return std::is_same_v<std::decay_t<decltype(rule)>, Acl::IpRule> ? "ip " : "ipv6 ";
        }
        return "";
      },
      fields);
}

/// Words of a condition between two `not`, and where they begin.
struct Part {
  std::string words;
  size_t at = 0;
};

/// Reads what stands behind a `not`: the fields of a rule, or the beginning or the end of them. Of the
/// mistakes the one is told that comes last in the words: what they were meant for goes so far.
std::optional<Config::Rule> readWithout(AclType type, const std::string& protocol, const Part& part,
                                        Problem* wrong) {
  if (part.words.empty()) {
    *wrong = {part.at + 1, "nothing behind not", "what packets are not to have"};
    return std::nullopt;
  }
  const std::pair<std::string, std::string> around[] = {{protocol + "any any ", ""},
                                                        {"", " any any"},
                                                        {"", " " + protocol + "any any"},
                                                        {protocol, ""},
                                                        {"", ""}};
  wrong->column = 0;
  for (const auto& [before, behind] : around) {
    Problem problem;
    if (auto rule = readFields(type, {before, part.words, behind, part.at}, &problem)) return rule;
    if (problem.column > wrong->column) *wrong = std::move(problem);
  }
  return std::nullopt;
}

/// The words of a condition in parts, which begin behind each `not`.
std::vector<Part> partsOf(std::string_view text) {
  std::vector<Part> parts(1);
  for (size_t at = 0; at < text.size();) {
    if (Config::isBlank(text[at])) {
      ++at;
      continue;
    }
    const auto blank = std::find_if(text.begin() + static_cast<long>(at), text.end(), Config::isBlank);
    const auto end = static_cast<size_t>(blank - text.begin());
    Part& part = parts.back();
    if (text.substr(at, end - at) == "not") {
      parts.push_back({"", end});
    } else {
      if (part.words.empty()) part.at = at;
      // With the blanks between them: so columns are right.
      part.words = text.substr(part.at, end - part.at);
    }
    at = end;
  }
  return parts;
}

}  // namespace

std::optional<Condition> readCondition(AclType type, std::string_view text, Problem* wrong) {
  const auto parts = partsOf(text);
  auto fields = readFields(type, {"", parts.front().words, "", parts.front().at}, wrong);
  if (!fields) return std::nullopt;
  Condition condition{std::move(*fields)};
  const std::string protocol = protocolOf(condition.fields);
  for (size_t i = 1; i < parts.size(); ++i) {
    auto without = readWithout(type, protocol, parts[i], wrong);
    if (!without) return std::nullopt;
    condition.without.push_back(std::move(*without));
  }
  return condition;
}

std::optional<Condition> readCondition(AclType type, std::string_view text, std::string* wrong) {
  Problem problem;
  auto condition = readCondition(type, text, &problem);
  if (!condition) *wrong = Config::mistakeText(problem.found, problem.expected);
  return condition;
}

std::vector<AclType> kindsOfCondition(std::string_view text, const std::vector<AclType>& among,
                                      Problem* wrong) {
  std::vector<AclType> kinds;
  wrong->column = 0;
  for (const AclType type : among) {
    Problem problem;
    if (readCondition(type, text, &problem))
      kinds.push_back(type);
    else if (problem.column > wrong->column)
      *wrong = std::move(problem);
  }
  return kinds;
}

PacketSet setOf(const Condition& condition, const RuleSets& sets) {
  std::vector<PacketSet> without;
  for (const Config::Rule& each : condition.without) without.push_back(sets.of(each));
  return sets.of(condition.fields) - joined(std::move(without));
}

}  // namespace Proof
