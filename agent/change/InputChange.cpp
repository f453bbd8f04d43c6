#include <agent/change/InputChange.h>
#include <agent/config/Reader.h>
#include <agent/core/Words.h>

#include <utility>

namespace Agent {

void InputChange::prepare(const CurrentConfig& current, const Asked& asked) {
  const auto& [name, model] = content;
  const Config::Model* known = current.sources().find(name);
  const Config::Model* now = model ? &*model : nullptr;
  same = now && known && *known == *now;
  summary = prepared.prepare(current.before(), name, now, {asked.what, asked.who, asked.leave, same}).summary;
  if (same || prepared.refused || !before) return;
  prepared.refused = whyNotBefore(current, asked.leave, now);
  if (prepared.refused) prepared.writes = {};
}

std::optional<std::string> InputChange::whyNotBefore(const CurrentConfig& current, const Leave& leave,
                                                     const Config::Model* now) {
  const Config::Result read = Config::read({{textThatComesBack, *before}});
  if (!read.model) return "what would come back if nobody confirms cannot be read";
  const Layers was = current.sources().layersWith(commandLineName, &*read.model);
  Layers is = current.sources().layersWith(content.source, now);
  is.front().second = &*read.model;  // the command line's
  auto why = Core::whyNot(mergedInterfaces(is));
  ChangeWarnings warnings = changeWarnings(was, is, current.portNames());
  if (!why) why = whyRefused(warnings, {.openings = leave.openings});
  filteredBefore = std::make_shared<const FilteredPorts>(std::move(warnings.filtered));
  if (why) why->insert(0, "if nobody confirms the change that waits for it: ");
  return why;
}

void InputChange::isSame(CurrentConfig& current) {
  current.commit.noticesAre(content.source, std::move(content.model->notices));
  current.warnings = std::move(prepared.lasting);
}

void InputChange::isInForce(CurrentConfig& current, const std::string& who) {
  const ChangeEvent told = event(who, prepared.change.summary);
  ContentChange::isInForce(current, before ? filteredBefore : prepared.filtered, true);
  tellChange(current.tell, told);
}

}  // namespace Agent
