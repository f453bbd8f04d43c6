#include <agent/show/Verdicts.h>
#include <fmt/format.h>

namespace Agent {

namespace {

/// "a, b and c".
std::string all(const std::vector<std::string>& parts) {
  std::string text;
  for (size_t i = 0; i < parts.size(); ++i)
    text += (i == 0 ? "" : i + 1 == parts.size() ? " and " : ", ") + parts[i];
  return text;
}

/// What a list did, as the end of "dropped ..." or "passes ...".
std::string decision(const Hit& hit) {
  const std::string list = fmt::format("{} on {}", hit.list, hit.intf);
  if (!hit.defined) return fmt::format("because {} is not defined", list);
  if (hit.sequence == 0) return fmt::format("because no rule of {} matches", list);
  return fmt::format("by rule {} of {}", hit.sequence, list);
}

/// The decisions of the lists that let it pass.
std::string passing(const Fate& fate) {
  std::vector<std::string> parts;
  for (const Hit& hit : fate.hits) {
    if (hit.action == Acl::Action::permit) parts.push_back(decision(hit));
  }
  return parts.empty() ? "passes, no list is asked" : "passes " + all(parts);
}

std::string droppedOut(const Egress& egress, const Fate& fate) {
  if (egress.by) return decision(fate.hits.at(*egress.by));
  return fmt::format("on {} ({})", egress.port, egress.reason);
}

}  // namespace

std::string sentenceOf(const Fate& fate) {
  if (!fate.passed && fate.egress.empty()) {
    if (!fate.hits.empty() && fate.hits.back().action == Acl::Action::deny)
      return "dropped on its way in " + decision(fate.hits.back());
    return fmt::format("dropped on its way in on {}: {}", fate.port, fate.reason);
  }
  std::vector<std::string> leaves, drops;
  for (const Egress& one : fate.egress) {
    if (one.passed)
      leaves.push_back(one.port.name().str());
    else
      drops.push_back(droppedOut(one, fate));
  }
  const std::string dropped = drops.empty() ? "" : "dropped on its way out " + all(drops);
  if (!fate.passed) return dropped;
  return fmt::format("{}, and leaves by {}{}{}", passing(fate), leaves.empty() ? "no port" : all(leaves),
                     dropped.empty() ? "" : "; ", dropped);
}

}  // namespace Agent
