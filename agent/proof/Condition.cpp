#include <agent/config/Cursor.h>
#include <agent/config/Mistake.h>
#include <agent/config/Rules.h>
#include <agent/proof/Condition.h>
#include <fmt/format.h>

#include <utility>

namespace Proof {

namespace {

using Acl::AclType;

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

/// Reads fields as those of a rule.
std::optional<Config::Rule> readFields(AclType type, const std::string& fields, std::string* wrong) {
  const std::string line = "permit " + fields;
  Config::Cursor at;
  Config::Rule rule = ruleOf(type);
  Config::GroupNames groups;
  const bool good = at.lineIs(line) && std::visit([&](auto& one) { return read(at, &one, &groups); }, rule);
  if (!good) {
    *wrong = Config::mistakeText(at.problem()->found, at.problem()->expected);
    return std::nullopt;
  }
  const Acl::RuleBase& base = Config::common(rule);
  if (groups.any() || base.log || !base.mirrorSession.empty()) {
    *wrong = Config::mistakeText(groups.any() ? "an object-group" : "log or mirror", "what packets can have");
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

/// Reads what stands behind a `not`.
std::optional<Config::Rule> readWithout(AclType type, const std::string& protocol, const std::string& words,
                                        std::string* wrong) {
  if (words.empty()) {
    *wrong = Config::mistakeText("nothing behind not", "what packets are not to have");
    return std::nullopt;
  }
  const bool vlan = words.starts_with("vlan ");
  auto rule =
      readFields(type, vlan ? words + " " + protocol + "any any" : protocol + "any any " + words, wrong);
  if (rule || vlan || type == AclType::mac) return rule;
  std::string otherwise;
  return readFields(type, words + " any any", &otherwise);
}

/// The words of a condition in parts, which begin behind each `not`.
std::vector<std::string> partsOf(std::string_view text) {
  std::vector<std::string> parts(1);
  for (size_t at = 0; at < text.size();) {
    const size_t end = std::min(text.find(' ', at), text.size());
    const std::string_view word = text.substr(at, end - at);
    if (word == "not") {
      parts.emplace_back();
    } else if (!word.empty()) {
      parts.back() += parts.back().empty() ? "" : " ";
      parts.back() += word;
    }
    at = end + 1;
  }
  return parts;
}

}  // namespace

std::optional<Condition> readCondition(AclType type, std::string_view text, std::string* wrong) {
  const auto parts = partsOf(text);
  auto fields = readFields(type, parts.front(), wrong);
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

PacketSet setOf(const Condition& condition, const RuleSets& sets) {
  std::vector<PacketSet> without;
  for (const Config::Rule& each : condition.without) without.push_back(sets.of(each));
  return sets.of(condition.fields) - joined(std::move(without));
}

}  // namespace Proof
