// Shows of the agent itself: its processes, its tasks, its plugins, and what it can log.
#include <Kiv/TaskScheduler.h>
#include <Velo/VeloPlugin.h>
#include <agent/show/LogMessages.h>
#include <agent/show/Shows.h>

#include <map>

namespace Agent {

using Json = nlohmann::ordered_json;

namespace {

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

Json pluginsOf(const World&) {
  Json plugins = Json::array();
  for (const auto& plugin : Velo::DefaultPluginLoader().plugins()) {
    plugins.push_back(
        {{"name", plugin.name}, {"file", plugin.path}, {"interfaceVersion", plugin.interfaceVersion}});
  }
  return {{"plugins", std::move(plugins)}};
}

std::string pluginsText(const Json& document, const TextStyle& style) {
  std::vector<std::vector<std::string>> lines = {{"plugin", "interface version", "file"}};
  for (const Json& plugin : document.at("plugins"))
    lines.push_back({valueText(plugin.at("name")), valueText(plugin.at("interfaceVersion")),
                     valueText(plugin.at("file"))});
  return tableText(lines, {false, false, false}, style.colour);
}

Json workersOf(const World& world) {
  Json workers = Json::array();
  for (const WorkerState& worker : world.workers ? world.workers() : std::vector<WorkerState>()) {
    workers.push_back({{"number", worker.number},
                       {"pid", worker.pid == 0 ? Json(nullptr) : Json(worker.pid)},
                       {"serving", worker.serving},
                       {"starts", worker.starts},
                       {"frames", worker.totals.frames},
                       {"passed", worker.totals.passed},
                       {"dropped", worker.totals.dropped}});
  }
  return {{"workers", std::move(workers)}};
}

std::string workersText(const Json& document, const TextStyle& style) {
  if (document.at("workers").empty()) return "the agent has its ports itself (velo run had no --workers)\n";
  std::vector<std::vector<std::string>> lines = {
      {"worker", "pid", "state", "starts", "frames", "passed", "dropped"}};
  for (const Json& worker : document.at("workers")) {
    const bool isGone = worker.at("pid").is_null();
    lines.push_back({valueText(worker.at("number")), isGone ? "-" : valueText(worker.at("pid")),
                     isGone                             ? "gone"
                     : worker.at("serving").get<bool>() ? "serving"
                                                        : "beginning",
                     valueText(worker.at("starts")), valueText(worker.at("frames")),
                     valueText(worker.at("passed")), valueText(worker.at("dropped"))});
  }
  return tableText(lines, {true, true, false, true, true, true, true}, style.colour);
}

Json messagesOf(const World&) { return {{"messages", messagesJson()}}; }

std::string messagesShownText(const Json& document, const TextStyle&) {
  return messagesText(document.at("messages"));
}

constexpr Show agentRows[] = {
    {"workers", "", "the processes that have the ports", whole<workersOf>, workersText},
    {"tasks", "", "the tasks of the event loop", whole<tasksOf>, tasksText},
    {"plugins", "", "the plugins that are loaded", whole<pluginsOf>, pluginsText},
    {"log-messages", "", "the catalogue of log messages", whole<messagesOf>, messagesShownText},
};

}  // namespace

std::span<const Show> agentShows() { return agentRows; }

}  // namespace Agent
