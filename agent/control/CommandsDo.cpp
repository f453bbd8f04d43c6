#include <agent/change/ConfigFiles.h>
#include <agent/change/Difference.h>
#include <agent/control/Commands.h>
#include <agent/control/ControlClient.h>
#include <agent/control/OffLine.h>
#include <agent/control/Operations.h>
#include <agent/core/Output.h>
#include <agent/core/Words.h>
#include <agent/explain/FrameArgument.h>
#include <agent/show/Shows.h>
#include <unistd.h>

#include <chrono>
#include <thread>

namespace Agent {

using Json = nlohmann::ordered_json;

namespace {

bool onTerminal() { return isatty(STDOUT_FILENO) != 0; }

double wallSeconds() { return Kiv::wallClock().now().seconds(); }

/// The document of an answer; a refusal and a broken connection are complained of.
std::optional<Json> documentOf(ControlClient& agent, const Json& request, Exit* exit) {
  std::string wrong;
  auto answer = agent.ask(request, &wrong);
  if (!answer) {
    complain(wrong);
    *exit = exitUnread;
    return std::nullopt;
  }
  if (answer->at("ok") == true) return answer->at("document");
  const Json& error = answer->at("error");
  tellMistakes(error);
  complain(error.at("text").get<std::string>());
  *exit = exitUsage;
  return std::nullopt;
}

/// One request to the agent at a path.
std::optional<Json> askOnce(const std::string& path, const Json& request, Exit* exit) {
  ControlClient agent;
  if (const auto wrong = agent.connect(path)) {
    complain(*wrong);
    *exit = exitUnread;
    return std::nullopt;
  }
  return documentOf(agent, request, exit);
}

/// A request that names a list, if one was given.
Json withName(Json request, const std::string& name) {
  if (!name.empty()) request["name"] = name;
  return request;
}

std::string jsonText(const Json& document) {
  return document.dump(2, ' ', false, Json::error_handler_t::replace) + "\n";
}

Exit printed(const std::string& text, Exit otherwise = exitDone) {
  return print(text) ? otherwise : exitUnread;
}

}  // namespace

Exit ControlCommands::show() const {
  ControlClient agent;
  if (const auto wrong = agent.connect(control_)) {
    complain(*wrong);
    return exitUnread;
  }
  for (;;) {
    Exit exit = exitDone;
    const auto document = documentOf(agent, withName({{"do", "show"}, {"what", what_}}, name_), &exit);
    if (!document) return exit;
    std::string text = json_ ? watch_ ? lineOf(*document) + "\n" : jsonText(*document)
                             : showOf(what_)->text(*document, {onTerminal(), wallSeconds()});
    // A screen is redrawn from its upper left corner; elsewhere one text follows the other.
    if (watch_ && onTerminal() && !json_) text = "\x1b[H\x1b[2J" + text;
    if (!print(text)) return exitUnread;
    if (!watch_) return exitDone;
    std::this_thread::sleep_for(std::chrono::duration<double>(*watch_));
  }
}

Exit ControlCommands::apply() const {
  std::vector<std::string> wrong;
  std::vector<Config::Source> sources;
  // Of more the agent would not hold.
  TextReader reader({Operations::mostText, Operations::mostText});
  for (const std::string& path : files_) {
    if (auto file = reader.read(path, TextReader::Named::byUser, wrong))
      sources.push_back({path, std::move(file->text)});
  }
  // Mistakes are told here, before the agent is bothered with them.
  if (wrong.empty()) {
    wrong = textsOf(Config::read(sources, {}, mostMistakes).mistakes);
  }
  tellMistakes(wrong);
  if (!wrong.empty()) return exitUsage;

  ControlClient agent;
  if (const auto unreachable = agent.connect(control_)) {
    complain(*unreachable);
    return exitUnread;
  }
  Exit exit = exitDone;
  for (const auto& source : sources) {
    for (const Json& request : textRequests(source.name, source.text)) {
      if (!documentOf(agent, request, &exit)) return exit;
    }
  }
  const auto document = documentOf(agent, {{"do", "apply"}, {"dryRun", dryRun_}}, &exit);
  if (!document) return exit;
  if (json_) return printed(jsonText(*document));
  return printed(differenceText(document->at("difference"), onTerminal()) +
                 (dryRun_ ? "(nothing was applied)\n" : ""));
}

Exit ControlCommands::check() const {
  if (files_.empty() && configDir_.empty()) {
    complain("check needs a FILE or --config-dir");
    return exitUsage;
  }
  const Json document = checkDocument(files_, configDir_, limits_);
  const bool good = document.at("mistakes").empty();
  if (json_) return printed(jsonText(document), good ? exitDone : exitUsage);
  tellMistakes(document);
  return good ? printed(checkText(document)) : exitUsage;
}

Exit ControlCommands::explain() const {
  std::string wrong;
  const auto frame = readFrameArgument(frame_, &wrong);
  if (!frame) {
    complain("--in: " + wrong);
    return exitUsage;
  }
  Exit exit = exitDone;
  std::optional<Json> document;
  if (files_.empty() && configDir_.empty()) {
    if (!out_.empty()) {
      complain("--out is for --config: a running agent knows where the frame would leave");
      return exitUsage;
    }
    document = askOnce(control_,
                       {{"do", "explain"},
                        {"port", port_},
                        {"frame", hexOf(frame->octets)},
                        {"wireLength", frame->wireLength}},
                       &exit);
  } else {
    document = explainOffLine({files_, configDir_, plugin_, port_, out_, limits_}, *frame, &exit);
  }
  if (!document) return exit;
  return printed(json_ ? jsonText(*document) : explainText(*document, onTerminal()));
}

Exit ControlCommands::clear() const {
  Exit exit = exitDone;
  const auto document = askOnce(control_, withName({{"do", "clear"}}, name_), &exit);
  if (!document) return exit;
  return json_ ? printed(jsonText(*document)) : exitDone;
}

Exit ControlCommands::trace() const {
  std::vector<Json> requests;
  if (traceOff_) requests.push_back({{"do", "trace"}, {"off", true}});
  if (!facilities_.empty()) requests.push_back({{"do", "trace"}, {"facility", facilities_}});
  if (!fast_.empty()) requests.push_back({{"do", "trace"}, {"fast", fast_}, {"on", true}});
  if (!fastOff_.empty()) requests.push_back({{"do", "trace"}, {"fast", fastOff_}, {"on", false}});
  if (requests.empty()) {
    complain("trace needs a FACILITY/LEVEL, --off, --fast or --fast-off");
    return exitUsage;
  }
  Exit exit = exitDone;
  for (const Json& request : requests) {
    if (!askOnce(control_, request, &exit)) return exit;
  }
  return json_ ? printed("{}\n") : exitDone;
}

}  // namespace Agent
