#include <agent/show/Documents.h>

namespace Agent {

using Json = nlohmann::ordered_json;

Drops dropsOf(const Core& core, const ZeroLine* zero) {
  Drops drops;
  for (auto at = core.namedCounters()->counter().begin(); at; at.next()) {
    const Velo::CounterName& name = at.key();
    const uint64_t count = zero ? zero->above(name, at.value()) : at.value();
    if (count > 0) drops[name.category.str()][name.facility.str()][name.reason.str()] = count;
  }
  return drops;
}

Json clearedJson(const ZeroLine& zero) { return zero.cleared() ? Json(*zero.cleared()) : Json(nullptr); }

Json dropsJson(const Drops& drops) { return drops.empty() ? Json::object() : Json(drops); }

Json portJson(const Port& port) {
  return {{"received", port.received},
          {"sent", port.sent},
          {"dropped", {{"in", port.droppedIn}, {"out", port.droppedOut}}},
          {"mirrored", port.mirrored}};
}

}  // namespace Agent
