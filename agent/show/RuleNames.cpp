#include <Acl/RuleKinds.h>
#include <Plog/Plog.h>
#include <agent/core/Words.h>
#include <agent/show/RuleNames.h>

#include <vector>

namespace Agent {

namespace {

constexpr size_t idSize = 18;  // of "0x" and 16 digits

bool isId(std::string_view word) { return word.size() == idSize && word.starts_with("0x"); }

/// The words of a line, without the commas and colons behind them.
std::vector<std::string_view> namesOf(std::string_view line) {
  std::vector<std::string_view> words;
  while (!line.empty()) {
    const size_t end = std::min(line.find(' '), line.size());
    std::string_view word = line.substr(0, end);
    line.remove_prefix(std::min(end + 1, line.size()));
    while (word.ends_with(',') || word.ends_with(':')) word.remove_suffix(1);
    if (!word.empty()) words.push_back(word);
  }
  return words;
}

}  // namespace

std::optional<uint32_t> RuleNames::number(Acl::AclType type, const Kelp::String& list,
                                          const Kiv::UniqueId& id) const {
  const auto configured = core_.inForce().lists();
  const auto lists = configured ? configured->config(type) : nullptr;
  const auto merged = lists ? lists->acl(list) : nullptr;
  if (const auto* rules = merged ? merged->judging() : nullptr) {
    const auto found = Acl::withRuleKind(type, [&](auto kind) -> std::optional<uint32_t> {
      const auto* rule = kind.rules(*rules).find(id);
      return rule ? std::optional(rule->sequence()) : std::nullopt;
    });
    if (found) return found;
  }
  const auto status = core_.inForce().status();
  const auto published = status ? status->status(type) : nullptr;
  const auto shown = published ? published->acl(list) : nullptr;
  const auto* implicit = shown ? shown->implicitRuleId(Acl::ImplicitRuleType::drop) : nullptr;
  return implicit && !id.empty() && *implicit == id ? std::optional<uint32_t>(0) : std::nullopt;
}

std::string RuleNames::titleOf(std::string_view list, const Kiv::UniqueId& id) const {
  for (const auto type : Acl::aclTypes) {
    const auto found = number(type, Kelp::String(list), id);
    if (!found) continue;
    const std::string rule = *found ? fmt::format("rule {}", *found) : "the implicit drop";
    return fmt::format(" ({} of {})", rule, listTitle(type, list));
  }
  return "";
}

std::string RuleNames::beside(std::string_view line) const {
  std::string text;
  if (line.find("0x") == line.npos) return text;
  const auto words = namesOf(line);
  for (const auto id : words) {
    if (!isId(id)) continue;
    for (const auto list : words) {
      if (isId(list)) continue;
      const std::string title = titleOf(list, Kiv::UniqueId(id));
      if (title.empty()) continue;
      text += title;
      break;
    }
  }
  return text;
}

nlohmann::ordered_json numberJson(const std::optional<uint32_t>& number) {
  if (!number) return nullptr;
  return *number ? nlohmann::ordered_json(*number) : nlohmann::ordered_json("implicit");
}

NamedTraces::NamedTraces(const Core& core) {
  const Plog::Stream plain = Plog::streamIs({});
  if (!plain) return;
  restore_ = [plain] { Plog::streamIs(plain); };
  Plog::streamIs([plain, names = RuleNames(core)](const Plog::Record& record) {
    Plog::Record named = record;
    const std::string text = std::string(record.text) + names.beside(record.text);
    named.text = text;
    plain(named);
  });
}

NamedTraces::~NamedTraces() {
  if (restore_) restore_();
}

}  // namespace Agent
