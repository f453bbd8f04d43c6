#include <Kiv/Clock.h>
#include <agent/change/ConfigFiles.h>
#include <agent/control/OffLine.h>
#include <agent/core/Output.h>
#include <agent/core/TaskLoop.h>
#include <agent/explain/Explain.h>
#include <agent/show/Text.h>

#include <map>
#include <set>

namespace Agent {

using Json = nlohmann::ordered_json;

namespace {

/// What is probably not meant.
std::vector<std::string> warningsOf(const std::vector<const Config::Model*>& models) {
  std::set<Config::Model::ListKey> defined;
  std::set<std::string> sessions;
  for (const auto* model : models) {
    for (const auto& [key, list] : model->lists) defined.insert(key);
    for (const auto& [name, destinations] : model->mirrorSessions) sessions.insert(name);
  }
  std::vector<std::string> warnings;
  std::set<Config::Model::ListKey> bound;
  for (const auto* model : models) {
    for (const auto& [key, list] : model->bindings) {
      bound.emplace(key.type, list);
      if (!defined.contains({key.type, list})) {
        warnings.push_back(
            fmt::format("interface {}: {} access-list {} is bound {} but not defined: everything passes it",
                        key.interface, key.type, list, key.direction));
      }
    }
  }
  for (const auto& [type, name] : defined) {
    if (!bound.contains({type, name}))
      warnings.push_back(fmt::format("{} access-list {} is bound nowhere", type, name));
  }
  for (const auto* model : models) {
    for (const auto& [key, list] : model->lists) {
      for (const auto& [sequence, rule] : list.rules) {
        const std::string session = Config::common(rule).mirrorSession.str();
        if (!session.empty() && !sessions.contains(session)) {
          warnings.push_back(fmt::format("{} access-list {} rule {}: mirror session {} is not defined",
                                         key.first, key.second, sequence, session));
        }
      }
    }
  }
  return warnings;
}

}  // namespace

Json checkDocument(const std::vector<std::string>& files, const std::string& dir, TextLimits limits) {
  ConfigFiles texts;
  std::vector<std::string> mistakes = texts.read(files, dir, limits);
  if (mistakes.empty()) {
    if (auto wrong = Core::whyNot(texts.commandLine(), texts.inputs())) mistakes.push_back(std::move(*wrong));
  }
  Json document = {{"mistakes", mistakes}};
  if (!mistakes.empty()) return document;
  std::vector<const Config::Model*> models = {&texts.commandLine()};
  for (const auto& [name, model] : texts.inputs()) models.push_back(&model);
  size_t lists = 0, rules = 0, bindings = 0;
  for (const auto* model : models) {
    lists += model->lists.size();
    bindings += model->bindings.size();
    for (const auto& [key, list] : model->lists) rules += list.rules.size();
  }
  document["lists"] = lists;
  document["rules"] = rules;
  document["bindings"] = bindings;
  document["warnings"] = warningsOf(models);
  return document;
}

std::string checkText(const Json& document) {
  std::string text;
  for (const Json& warning : document.at("warnings"))
    text += fmt::format("warning: {}\n", warning.get<std::string>());
  const auto counted = [&document](const char* member, std::string_view one) {
    return countText(document.at(member).get<uint64_t>(), one);
  };
  return text + fmt::format("no mistake: {}, {}, {}\n", counted("lists", "list"), counted("rules", "rule"),
                            counted("bindings", "binding"));
}

std::optional<Json> explainOffLine(const OffLineExplanation& asked, const Frame& frame, Exit* exit) {
  *exit = exitUsage;
  ConfigFiles files;
  const auto mistakes = files.read(asked.files, asked.dir, asked.limits);
  for (const std::string& mistake : mistakes) fmt::print(stderr, "{}\n", mistake);
  if (!mistakes.empty()) return std::nullopt;
  const auto refuse = [](const std::string& text) {
    complain(text);
    return std::nullopt;
  };
  if (files.hasPortChannel(asked.port))
    return refuse(fmt::format("{} is a port-channel: frames come in by its members", asked.port));

  TaskLoop tasks(Kiv::steadyClock());
  Core core;
  Forwarder forwarder(core, Velo::MalformedPolicy::drop);
  if (auto wrong = core.loadPlugin(asked.plugin)) return refuse(*wrong);
  if (auto wrong = core.apply(files.commandLine(), files.inputs())) return refuse(*wrong);
  tasks.settle();
  forwarder.portIs(asked.port);
  forwarder.portsOfConfigurationIs();
  if (!asked.out.empty()) {
    const Nimnet::IntfId& channel = core.portChannels().portChannelOf(Nimnet::IntfId(asked.port));
    const std::string from = channel.empty() ? asked.port : channel.name().str();
    if (auto wrong = forwarder.patchIs(from, asked.out)) return refuse("--out: " + *wrong);
  }
  *exit = exitDone;
  Explainer explainer(core, forwarder);
  return explainer.explain(asked.port, frame);
}

}  // namespace Agent
