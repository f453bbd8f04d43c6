#include <Zeb/LogHandle.h>
#include <agent/Core.h>
#include <agent/LogMessages.h>
#include <agent/Output.h>
#include <nlohmann/json.hpp>

namespace Agent {

namespace {

std::string messagesJson() {
  using Json = nlohmann::ordered_json;
  Json all = Json::array();
  for (const Zeb::LogHandle* handle : Zeb::LogHandle::catalogue()) {
    const Zeb::LogDescriptor& message = handle->descriptor();
    all.push_back({{"name", message.name},
                   {"severity", message.severity},
                   {"severityName", Zeb::logSeverityName(message.severity)},
                   {"format", message.format},
                   {"explanation", message.explanation},
                   {"action", handle->actionText()},
                   {"minInterval", handle->minInterval().seconds()}});
  }
  return all.dump(2) + "\n";
}

std::string messagesText() {
  std::string text;
  for (const Zeb::LogHandle* handle : Zeb::LogHandle::catalogue()) {
    const Zeb::LogDescriptor& message = handle->descriptor();
    text +=
        fmt::format("{}\n  severity     {} ({})\n  format       {}\n  explanation  {}\n  action       {}\n\n",
                    message.name, message.severity, Zeb::logSeverityName(message.severity), message.format,
                    message.explanation, handle->actionText());
  }
  return text;
}

}  // namespace

Exit logMessages(const std::string& plugin, bool json) {
  Core core;
  if (const auto wrong = core.loadPlugin(plugin)) {
    complain(*wrong);
    return exitUsage;
  }
  return print(json ? messagesJson() : messagesText()) ? exitDone : exitUnread;
}

}  // namespace Agent
