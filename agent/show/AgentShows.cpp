// Shows of the agent itself: its tasks, its plugins, and what it can log.
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

Json messagesOf(const World&) { return {{"messages", messagesJson()}}; }

std::string messagesShownText(const Json& document, const TextStyle&) {
  return messagesText(document.at("messages"));
}

constexpr Show agentRows[] = {
    {"tasks", "", "the tasks of the event loop", whole<tasksOf>, tasksText},
    {"plugins", "", "the plugins that are loaded", whole<pluginsOf>, pluginsText},
    {"log-messages", "", "the catalogue of log messages", whole<messagesOf>, messagesShownText},
};

}  // namespace

std::span<const Show> agentShows() { return agentRows; }

}  // namespace Agent
