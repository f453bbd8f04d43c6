#include <Kiv/Clock.h>
#include <Nimnet/IntfId.h>
#include <Velo/PacketContext.h>
#include <agent/change/ConfigFiles.h>
#include <agent/change/Start.h>
#include <agent/change/Warnings.h>
#include <agent/config/Model.h>
#include <agent/config/Nearest.h>
#include <agent/core/Output.h>
#include <agent/core/TaskLoop.h>
#include <agent/core/Words.h>
#include <agent/explain/Explain.h>
#include <agent/study/ListProof.h>
#include <agent/study/OffLine.h>
#include <agent/warnings/WarningText.h>

#include <set>

namespace Agent {

using Json = nlohmann::ordered_json;

namespace {

constexpr const char* portsUnchecked =
    "whether interfaces are ports of the agent (--ports eth1,eth2 tells which it has)";

}  // namespace

Json checkDocument(const Checked& asked) {
  ConfigFiles texts;
  if (asked.prove) texts.noticeAllRules();
  std::vector<std::string> mistakes = texts.read(asked.files, asked.dir, asked.limits);
  if (mistakes.empty()) {
    if (auto wrong = texts.sources().whyNot()) mistakes.push_back(std::move(*wrong));
  }
  Json document = {{"mistakes", mistakes}};
  if (!mistakes.empty()) return document;
  Config::Size size;
  texts.sources().forEach([&](const std::string&, const Config::Model& model) { size.add(model); });
  document.update(sizeWords(size));
  const auto found = changeWarnings({}, texts.sources().layers(), asked.ports ? &*asked.ports : nullptr);
  document["warnings"] = warningsJson(found.told);
  document["unchecked"] = Json::array();
  if (!asked.ports) document["unchecked"].push_back(portsUnchecked);
  if (asked.prove) {
    const ListProof proof = proveLists(texts.sources().layers(), *asked.prove, std::nullopt, asked.say);
    for (const Json& each : warningsJson(proof.warnings)) document["warnings"].push_back(each);
    for (const std::string& each : proof.unchecked) document["unchecked"].push_back(each);
    document["proven"] = proof.unchecked.empty();
  }
  const auto refused = whyRefused(found, asked.leave);
  document["refused"] = refused ? Json(*refused) : Json(nullptr);
  return document;
}

std::string checkText(const Json& document) {
  std::string text = warningsText(document.at("warnings"));
  text += fmt::format("no mistake: {}\n", sizeText(document));
  for (const Json& what : document.at("unchecked"))
    text += fmt::format("not checked: {}\n", what.get<std::string>());
  if (const Json& refused = document.at("refused"); refused.is_string())
    text += fmt::format("an agent would refuse to start: {}\n", refused.get<std::string>());
  return text;
}

namespace {

/// The interfaces that some sources name.
std::set<std::string> interfacesIn(const Sources& sources) {
  std::set<std::string> all;
  sources.forEach([&all](const std::string&, const Config::Model& model) {
    for (const auto& [key, list] : model.bindings) all.insert(key.interface);
    for (const auto& [name, notes] : model.interfaceNotes) all.insert(name);
    all.insert(model.notices.interfaces.begin(), model.notices.interfaces.end());
    for (const auto* groups : {&model.portChannels, &model.mirrorSessions}) {
      for (const auto& [name, members] : *groups) all.insert(members.begin(), members.end());
    }
    for (const auto& [name, members] : model.portChannels) all.insert(name);
  });
  return all;
}

/// The sentence about an interface that no source names, with `more` behind it.
std::optional<std::string> notNamed(const std::string& name, const Sources& sources,
                                    const std::set<std::string>& ports, std::string_view more) {
  auto all = interfacesIn(sources);
  all.insert(ports.begin(), ports.end());
  if (name.empty() || all.contains(name)) return std::nullopt;
  return Config::orNearest(fmt::format("{} is named nowhere in the configuration{}", name, more), name,
                           std::vector<std::string_view>(all.begin(), all.end()));
}

}  // namespace

std::optional<std::string> whyNotNamed(const std::string& name, const Sources& sources,
                                       const std::set<std::string>& ports) {
  return notNamed(name, sources, ports, "");
}

std::optional<std::string> assumedOf(const std::string& name, const Sources& sources,
                                     const std::set<std::string>& ports) {
  return notNamed(name, sources, ports, ": taken for a port without lists");
}

std::optional<Json> explainWith(const Sources& sources, const std::string& plugin, const std::string& port,
                                const std::string& out, const Frame& frame, std::string* wrong) {
  const auto failed = [wrong](std::optional<std::string> why, std::string_view before = {}) {
    if (why) *wrong = std::string(before) + *why;
    return why.has_value();
  };
  if (failed(sources.whyNoPort(port))) return std::nullopt;
  TaskLoop tasks(Kiv::steadyClock());
  Core core;
  Forwarder forwarder(core, Velo::MalformedPolicy::drop);
  if (failed(start(core, sources, {.plugin = plugin, .further = {}, .settle = [&tasks] { tasks.settle(); }})))
    return std::nullopt;
  forwarder.portIs(port);
  forwarder.portsOfConfigurationIs();
  if (!out.empty()) {
    const Nimnet::IntfId& channel = core.portChannels().portChannelOf(Nimnet::IntfId(port));
    const std::string from = channel.empty() ? port : channel.name().str();
    if (failed(forwarder.patchIs(from, out), "--out: ")) return std::nullopt;
  }
  return Explainer(core, forwarder).explain(port, frame);
}

std::optional<Json> explainOffLine(const OffLineExplanation& asked, const Frame& frame, Exit* exit) {
  *exit = exitUsage;
  ConfigFiles files;
  const auto mistakes = files.read(asked.files, asked.dir, asked.limits);
  tellMistakes(mistakes);
  if (!mistakes.empty()) return std::nullopt;
  tellWarnings(changeWarnings({}, files.sources().layers(), nullptr).openings);
  std::string wrong;
  auto document = explainWith(files.sources(), asked.plugin, asked.port, asked.out, frame, &wrong);
  if (!document) {
    complain(wrong);
    return std::nullopt;
  }
  *exit = exitDone;
  (*document)["assumed"] = Json::array();
  for (const std::string& name : {asked.port, asked.out}) {
    if (auto assumed = assumedOf(name, files.sources()))
      (*document)["assumed"].push_back(std::move(*assumed));
  }
  return document;
}

}  // namespace Agent
