#include <Zeb/LogHandle.h>
#include <agent/show/LogMessages.h>

#include <fmt/format.h>

namespace Agent {

using Json = nlohmann::ordered_json;

Json messagesJson() {
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
  return all;
}

std::string messagesText(const Json& messages) {
  std::string text;
  for (const Json& message : messages) {
    const auto member = [&message](const char* name) { return message.at(name).get<std::string>(); };
    text +=
        fmt::format("{}\n  severity     {} ({})\n  format       {}\n  explanation  {}\n  action       {}\n\n",
                    member("name"), message.at("severity").get<int>(), member("severityName"),
                    member("format"), member("explanation"), member("action"));
  }
  return text;
}

}  // namespace Agent
