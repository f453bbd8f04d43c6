// Shows of the agent itself: its ports, its tasks, what it logs and traces.
#include <Blip/Ring.h>
#include <Kiv/TaskScheduler.h>
#include <agent/core/Reserve.h>
#include <agent/show/LogMessages.h>
#include <agent/show/Shows.h>

#include <map>

namespace Agent {

using Json = nlohmann::ordered_json;

namespace {

Json liveJson(const PortState& state) {
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
    for (const PortState& state : world.portStates()) ports[state.name]["live"] = liveJson(state);
  }
  return {{"cleared", clearedJson(world.zero)}, {"ports", std::move(ports)}};
}

std::string lostText(const Json& lost) {
  std::string text;
  for (const auto& [what, count] : lost.items()) {
    if (count != 0) text += fmt::format("{}{} {}", text.empty() ? "" : ", ", what, valueText(count));
  }
  return text.empty() ? "nothing" : text;
}

std::string portsShownText(const Json& document, const TextStyle& style) {
  Json counted = Json::object();
  std::vector<std::vector<std::string>> live = {
      {"port", "device", "link", "frames in", "frames out", "lost"}};
  std::string wrong, without;
  for (const auto& [name, port] : document.at("ports").items()) {
    if (port.contains("received")) counted[name] = port;
    if (!port.contains("live")) {
      without += fmt::format("{} has no device: what leaves there is lost\n", name);
      continue;
    }
    const Json& state = port.at("live");
    const char* link = state.at("up").get<bool>() ? "up" : state.at("present").get<bool>() ? "down" : "gone";
    live.push_back({name, valueText(state.at("device")), link, valueText(state.at("received").at("frames")),
                    valueText(state.at("sent").at("frames")), lostText(state.at("lost"))});
    if (!state.at("wrong").is_null()) wrong += fmt::format("{}: {}\n", name, valueText(state.at("wrong")));
  }
  std::string text = clearedLine(document, style) + portsText(counted, style);
  if (live.size() > 1) {
    text += "\nsince the start, between port and device:\n";
    text += tableText(live, {false, false, false, true, true, false}, style.colour) + wrong + without;
  }
  return text;
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

std::string tasksText(const Json& document, const TextStyle& style) {
  std::vector<std::vector<std::string>> lines = {{"task", "priority", "queued", "done", "waiting"}};
  for (const Json& task : document.at("tasks")) {
    lines.push_back({valueText(task.at("name")), valueText(task.at("priority")),
                     task.at("queued").get<bool>() ? "yes" : "no", valueText(task.at("done")),
                     valueText(task.at("pending"))});
  }
  return tableText(lines, {false, true, false, true, true}, style.colour);
}

Json messagesOf(const World&) { return {{"messages", messagesJson()}}; }

std::string messagesShownText(const Json& document, const TextStyle&) {
  return messagesText(document.at("messages"));
}

Json traceOf(const World&) {
  Json lines = Json::array();
  Blip::ring().forEach([&lines](std::string_view line) {
    Refusable::check();
    lines.push_back(line);
  });
  return {{"lost", Blip::ring().lostCount()}, {"lines", std::move(lines)}};
}

std::string traceText(const Json& document, const TextStyle&) {
  std::string text;
  if (const auto lost = document.at("lost").get<uint64_t>())
    text = fmt::format("({} older lines are lost)\n", lost);
  for (const Json& line : document.at("lines")) text += line.get<std::string>() + "\n";
  return text.empty() ? "nothing was traced; velo trace FACILITY/LEVEL switches a facility on\n" : text;
}

constexpr Show agentRows[] = {
    {"ports", "", "what went through each port", whole<portsOf>, portsShownText},
    {"tasks", "", "the tasks of the event loop", whole<tasksOf>, tasksText},
    {"log-messages", "", "the catalogue of log messages", whole<messagesOf>, messagesShownText},
    {"trace", "", "the latest trace lines", whole<traceOf>, traceText},
};

}  // namespace

std::span<const Show> agentShows() { return agentRows; }

}  // namespace Agent
