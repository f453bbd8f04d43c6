#include <Zeb/LogHandle.h>
#include <agent/core/Core.h>
#include <agent/core/Document.h>
#include <agent/core/Output.h>
#include <agent/show/LogMessages.h>

#include <CLI/CLI.hpp>

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

namespace {

class LogMessagesCommand final : public ProgramCommand {
 public:
  explicit LogMessagesCommand(CLI::App& program)
      : ProgramCommand(program, "log-messages",
                       "Load the plugin and print the catalogue of its log messages.") {
    app().footer(exitMeaning);
    app().add_flag("--json", json_, "one JSON document instead of text");
  }

  Exit run(const std::string& plugin) const override {
    Core core;
    if (const auto wrong = core.loadPlugin(plugin, furtherPlugins())) {
      complain(*wrong);
      return exitUsage;
    }
    return print(json_ ? linesOf({{"messages", messagesJson()}}) : messagesText(messagesJson())) ? exitDone
                                                                                                 : exitUnread;
  }
  bool loadsPlugin() const override { return true; }

 private:
  bool json_ = false;
};

}  // namespace

std::unique_ptr<ProgramCommand> logMessagesCommand(CLI::App& program) {
  return std::make_unique<LogMessagesCommand>(program);
}

}  // namespace Agent
