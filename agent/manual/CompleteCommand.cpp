#include <agent/client/ControlClient.h>
#include <agent/control/ControlPlane.h>
#include <agent/core/Output.h>
#include <agent/manual/Completion.h>
#include <agent/manual/ManualCommand.h>

#include <CLI/CLI.hpp>
#include <cstdlib>
#include <set>

namespace Agent {

namespace {

using Json = nlohmann::ordered_json;

/// What the agent shows; nothing is in it when none answers.
Json shown(const std::string& socket, Json request) {
  ControlClient agent;
  std::string wrong;
  if (agent.connect(socket)) return Json::object();
  request["do"] = "show";
  const auto answer = agent.ask(request, &wrong);
  return answer && answer->value("ok", false) ? answer->at("document") : Json::object();
}

std::vector<std::string> interfacesIn(const Json& document) {
  std::vector<std::string> names;
  const Json interfaces = document.value("interfaces", Json::object());
  for (const auto& [name, entry] : interfaces.items()) names.push_back(name);
  return names;
}

/// Of the summary of the status, which has no rules, however many there are.
std::vector<std::string> listsIn(const Json& document) {
  std::set<std::string> names;
  const Json types = document.value("/status/status"_json_pointer, Json::object());
  for (const Json& type : types) {
    const Json lists = type.value("acl", Json::object());
    for (const auto& [name, list] : lists.items()) names.insert(name);
  }
  return {names.begin(), names.end()};
}

std::vector<std::string> facilitiesIn(const Json& document) {
  std::vector<std::string> names;
  const Json facilities = document.value("facilities", Json::array());
  for (const Json& facility : facilities) names.push_back(facility.at("name").get<std::string>());
  return names;
}

class CompleteCommand final : public ProgramCommand {
 public:
  explicit CompleteCommand(CLI::App& program)
      : ProgramCommand(program, "complete", "Print what the last of some words may be."), program_(program) {
    app().group("");
    app().add_option("words", words_, "behind the name of the program")->type_name("WORD...");
  }

  Exit run(const std::string&) const override {
    const std::string socket = socketOf();
    const LiveNames live{
        [&] {
          return listsIn(shown(socket, {{"what", "status"}, {"summary", true}}));
        },
        [&] {
          return interfacesIn(shown(socket, {{"what", "interfaces"}}));
        },
        [&] {
          return facilitiesIn(shown(socket, {{"what", "trace-facilities"}}));
        },
    };
    std::string text;
    for (const std::string& word : completions(program_, words_, live)) text += word + "\n";
    return print(text) ? exitDone : exitUnread;
  }

 private:
  /// The agent that the words speak to.
  std::string socketOf() const {
    for (size_t i = 0; i + 2 < words_.size(); ++i) {
      if (words_[i] == "--control") return words_[i + 1];
    }
    const char* set = std::getenv("VELO_CONTROL");
    return set ? set : defaultControlPath;
  }

  const CLI::App& program_;
  std::vector<std::string> words_;
};

}  // namespace

std::unique_ptr<ProgramCommand> completeCommand(CLI::App& program) {
  return std::make_unique<CompleteCommand>(program);
}

}  // namespace Agent
