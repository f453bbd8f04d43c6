#include <Blip/Ring.h>
#include <Kiv/TaskScheduler.h>
#include <agent/core/Reserve.h>
#include <agent/show/LogMessages.h>
#include <agent/show/Shows.h>

#include <algorithm>
#include <set>

namespace Agent {

using Json = nlohmann::ordered_json;

namespace {

/// Makes a row's function out of one that gives the whole document at once, and asks for each element of what
/// may be long whether memory has run out: with little of it left even taking the document apart may fail.
template <Json (*make)(const World& world)>
std::unique_ptr<Document> whole(const World& world, const std::string&) {
  return wholeDocument(make(world));
}

Json clearedJson(const World& world) {
  return world.zero.cleared() ? Json(*world.zero.cleared()) : Json(nullptr);
}

Json interfacesOf(const World& world) {
  Json all = Json::object();
  const auto known = [&all](const std::string& name) -> Json& {
    Refusable::check();
    Json& one = all[name];
    if (one.is_null()) one = {{"bindings", Json::array()}};
    return one;
  };
  for (const auto& [id, port] : world.forwarder.ports()) known(id.name().str());
  for (const auto& [id, members] : world.core.portChannels().all()) {
    Json& channel = known(id.name().str());
    channel["members"] = Json::array();
    for (const auto& member : members) {
      channel["members"].push_back(member.name().view());
      known(member.name().str())["portChannel"] = id.name().view();
    }
  }
  const ListReader reader(world.core);
  const auto add = [&](const ListReport& list, bool defined) {
    for (const auto& binding : list.bindings) {
      Json one = {{"direction", Acl::stringValue(binding.direction)},
                  {"type", Acl::stringValue(list.type)},
                  {"list", list.name},
                  {"defined", defined},
                  {"source", binding.sources.empty() ? Json(nullptr) : Json(binding.sources.front())}};
      one["overridden"] = Json::array();
      for (size_t i = 1; i < binding.sources.size(); ++i) one["overridden"].push_back(binding.sources[i]);
      known(binding.interface)["bindings"].push_back(std::move(one));
    }
  };
  for (const auto& key : reader.defined()) add(reader.head(key), true);
  for (const auto& key : reader.undefined()) add(reader.head(key), false);
  Json sessions = Json::object();
  for (const auto& [name, destinations] : Velo::MirroringStepHelper::singleton()->sessions()) {
    sessions[name.str()] = Json::array();
    Refusable::check();
    for (const auto& destination : destinations) sessions[name.str()].push_back(destination.name().view());
  }
  return {{"interfaces", std::move(all)}, {"mirrorSessions", std::move(sessions)}};
}

Json dropsOf(const World& world) {
  Drops drops;
  for (auto at = world.core.namedCounters()->counter().begin(); at; at.next()) {
    const uint64_t count = world.zero.above(at.key(), at.value());
    if (count > 0) drops[at.key().category.str()][at.key().facility.str()][at.key().reason.str()] = count;
  }
  return {{"cleared", clearedJson(world)}, {"drops", dropsJson(drops)}};
}

Json capabilitiesOf(const World& world) {
  const auto status = world.core.inForce().status();
  return {{"capabilities", status ? capabilitiesJson(*status) : Json(nullptr)}};
}

Json stateJson(const PortState& state) {
  return {{"device", state.device},
          {"present", state.present},
          {"up", state.up},
          {"mtu", state.mtu},
          {"wrong", state.wrong.empty() ? Json(nullptr) : Json(state.wrong)},
          {"received", {{"frames", state.rxFrames}, {"bytes", state.rxBytes}}},
          {"sent", {{"frames", state.txFrames}, {"bytes", state.txBytes}}},
          {"lost",
           {{"kernelDrops", state.kernelDrops},
            {"rxTooLarge", state.rxTooLarge},
            {"tooLarge", state.tooLarge},
            {"sendFailed", state.sendFailed},
            {"nowhere", state.nowhere}}}};
}

Json portsOf(const World& world) {
  Json ports = Json::object();
  for (const auto& [id, port] : world.forwarder.ports()) {
    Refusable::check();
    const Port counted = world.zero.above(*port);
    Json one = portJson(counted);
    one["nowhere"] = counted.nowhere;
    ports[id.name().str()] = std::move(one);
  }
  if (world.portStates) {
    for (const PortState& state : world.portStates()) ports[state.name]["live"] = stateJson(state);
  }
  return {{"cleared", clearedJson(world)}, {"ports", std::move(ports)}};
}

Json tasksOf(const World&) {
  std::map<std::string, Json> byName;
  Kiv::TaskSchedulerRoot::findOrCreateScheduler()->forEachTask([&](const Kiv::TimerTask& task) {
    byName[task.name().str()] = {{"name", task.name().view()},
                                 {"priority", task.priority()},
                                 {"queued", task.taskWorkQueued()},
                                 {"done", task.taskWorkCount()},
                                 {"pending", task.taskWorkPending()}};
  });
  Json tasks = Json::array();
  for (auto& [name, task] : byName) tasks.push_back(std::move(task));
  return {{"tasks", std::move(tasks)}};
}

Json messagesOf(const World&) { return {{"messages", messagesJson()}}; }

Json traceOf(const World&) {
  Json lines = Json::array();
  Blip::ring().forEach([&lines](std::string_view line) {
    Refusable::check();
    lines.push_back(line);
  });
  return {{"lost", Blip::ring().lostCount()}, {"lines", std::move(lines)}};
}

constexpr Show table[] = {
    {"access-lists", "[NAME]", "the lists in force as they were typed, with what each rule matched",
     listsDocument, ShowText::accessLists},
    {"interfaces", "", "which lists are bound where, port-channels, mirror sessions", whole<interfacesOf>,
     ShowText::interfaces},
    {"status", "", "the published status, and the sources of configuration", statusDocument,
     ShowText::status},
    {"counters", "[NAME]", "the match counters of the packet path", countersDocument, ShowText::counters},
    {"drops", "", "what was dropped, and why", whole<dropsOf>, ShowText::drops},
    {"capabilities", "", "what the dataplane can do", whole<capabilitiesOf>, ShowText::capabilities},
    {"ports", "", "what went through each port", whole<portsOf>, ShowText::ports},
    {"tasks", "", "the tasks of the event loop", whole<tasksOf>, ShowText::tasks},
    {"log-messages", "", "the catalogue of log messages", whole<messagesOf>, ShowText::logMessages},
    {"trace", "", "the latest trace lines", whole<traceOf>, ShowText::trace},
};

}  // namespace

std::span<const Show> shows() { return table; }

const Show* showOf(std::string_view name) {
  const auto* at =
      std::find_if(std::begin(table), std::end(table), [&](const Show& show) { return show.name == name; });
  return at == std::end(table) ? nullptr : at;
}

}  // namespace Agent
