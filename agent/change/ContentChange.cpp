#include <Acl/Workshop.h>
#include <agent/change/ContentChange.h>
#include <agent/core/Words.h>

#include <utility>

namespace Agent {

void ContentChange::carryOut(CurrentConfig& current, std::function<void(const End& end)> ended) {
  const auto refusal =
      current.commit.begin({content.source, std::exchange(content.model, std::nullopt)},
                           std::exchange(prepared.writes, {}), [ended](const Commit::End& end) {
                             ended({end.longestTurn, end.refused, end.refused.has_value()});
                           });
  if (refusal) ended({0, refusal->why, refusal->memory});
}

void ContentChange::drop(CurrentConfig& current) {
  current.commit.discard(std::exchange(content.model, std::nullopt));
  Acl::Workshop::singleton().dispose(std::exchange(prepared.writes, {}));
}

void ContentChange::isInForce(CurrentConfig& current, const SharedFilteredPorts& remembered, bool differs) {
  current.warnings = std::move(prepared.lasting);
  current.filtered = prepared.filtered;
  if (remembered) current.history.filteredIs(remembered);
  if (differs) current.history.add(std::move(prepared.change));
}

ChangeEvent ContentChange::event(const std::string& who, std::string summary) {
  return {who, content.source, summaryText(summary), {}, std::exchange(prepared.fresh, {})};
}

}  // namespace Agent
