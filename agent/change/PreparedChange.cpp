#include <agent/change/ChangeEvents.h>
#include <agent/change/PreparedChange.h>
#include <agent/config/Writer.h>

#include <memory>
#include <utility>

namespace Agent {

Difference PreparedChange::prepare(const Before& before, const std::string& source, const Config::Model* now,
                                   const Asked& asked) {
  static const Config::Model nothing;
  const Sources& sources = before.sources;
  const Config::Model* known = sources.find(source);
  ChangeWarnings odd = changeWarnings(sources.layers(), sources.layersWith(source, now), before.ports);
  Difference found = difference(known ? *known : nothing, now ? *now : nothing, odd.uncovered);
  fresh = newWarnings(odd.told, before.warnings);
  refused = whyRefused(odd, asked.leave);
  told = std::move(odd.told);
  lasting = std::move(odd.lasting);
  filtered = std::make_shared<const FilteredPorts>(std::move(odd.filtered));
  if (asked.dryRun || refused) return found;
  writes = sourceChange(sources, source, now);
  if (now) writes.text = std::make_shared<const std::string>(Config::textOf(*now));
  change = {.what = asked.what,
            .who = asked.who,
            .source = sourceTitle(source),
            .summary = found.summary,
            .text = writes.text,
            .difference = found.line()};
  return found;
}

}  // namespace Agent
