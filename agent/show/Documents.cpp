#include <agent/show/Documents.h>

namespace Agent {

using Json = nlohmann::ordered_json;

Json dropsJson(const Drops& drops) { return drops.empty() ? Json::object() : Json(drops); }

Json portJson(const Port& port) {
  return {{"received", port.received},
          {"sent", port.sent},
          {"dropped", {{"in", port.droppedIn}, {"out", port.droppedOut}}},
          {"mirrored", port.mirrored}};
}

}  // namespace Agent
