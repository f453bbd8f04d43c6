#include <agent/change/Start.h>

namespace Agent {

std::optional<std::string> start(Core& core, const Sources& sources, const Start& how) {
  if (auto conflict = putInForce(core, sources, how.memory)) return conflict;
  // The plugin starts with the whole configuration: it deletes published status that is not in there.
  if (auto wrong = core.loadPlugin(how.plugin, how.further)) return wrong;
  if (how.loaded) {
    if (auto wrong = how.loaded()) return wrong;
  }
  how.settle();
  return core.inForce().unpublished();
}

}  // namespace Agent
