// Shows of the agent itself: its tasks, and what it can log.
#include <Kiv/TaskScheduler.h>
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

Json messagesOf(const World&) { return {{"messages", messagesJson()}}; }

std::string messagesShownText(const Json& document, const TextStyle&) {
  return messagesText(document.at("messages"));
}

constexpr Show agentRows[] = {
    {"tasks", "", "the tasks of the event loop", whole<tasksOf>, tasksText},
    {"log-messages", "", "the catalogue of log messages", whole<messagesOf>, messagesShownText},
};

}  // namespace

std::span<const Show> agentShows() { return agentRows; }

}  // namespace Agent
