#include <agent/change/Sources.h>
#include <agent/core/Core.h>
#include <agent/core/Words.h>

#include <algorithm>
#include <utility>

namespace Agent {

namespace {

constexpr std::string_view fleetTitle = "fleet";

}  // namespace

std::string sourceTitle(const std::string& name) {
  return name == commandLineName ? std::string(Core::commandLineSource)
         : name == fleetName     ? std::string(fleetTitle)
                                 : name;
}

std::string sourceOfTitle(const std::string& title) {
  return title == Core::commandLineSource ? commandLineName : title == fleetTitle ? fleetName : title;
}

std::optional<std::string> whyNoSource(const std::string& name) {
  const bool isFleet = name == fleetTitle;
  if (name != Core::commandLineSource && !isFleet) return std::nullopt;
  return fmt::format("\"{}\" is the name of the {} configuration: a file needs another one", name,
                     isFleet ? "fleet's" : "command line's");
}

const Config::Model* Sources::find(const std::string& name) const {
  if (name == commandLineName) return &commandLine;
  const auto known = inputs.find(name);
  return known == inputs.end() ? nullptr : &known->second;
}

std::optional<Config::Model> Sources::exchange(const std::string& name, std::optional<Config::Model> now) {
  ++version;
  if (name == commandLineName) return std::exchange(commandLine, now ? std::move(*now) : Config::Model());
  const auto known = inputs.find(name);
  if (known != inputs.end() && now) return std::exchange(known->second, std::move(*now));
  if (now) inputs.emplace(name, std::move(*now));
  if (known == inputs.end()) return std::nullopt;
  return std::move(inputs.extract(known).mapped());
}

void Sources::noticesAre(const std::string& name, Config::Notices notices) {
  (name == commandLineName ? commandLine : inputs.at(name)).notices = std::move(notices);
}

Layers Sources::layers() const {
  Layers all;
  forEach([&all](const std::string& name, const Config::Model& model) { all.emplace_back(name, &model); });
  return all;
}

Layers Sources::layersWith(const std::string& name, const Config::Model* now) const {
  Layers all = layers();
  std::erase_if(all, [&name](const auto& layer) { return layer.first == name; });
  if (!now) return all;
  // The empty name of the command line comes before all others.
  const auto behind =
      std::find_if(all.begin(), all.end(), [&name](const auto& layer) { return name < layer.first; });
  all.emplace(behind, name, now);
  return all;
}

Config::Model mergedInterfaces(const Layers& layers) {
  Config::Model merged;
  for (const auto& [name, model] : layers) {
    merged.portChannels.insert(model->portChannels.begin(), model->portChannels.end());
    merged.mirrorSessions.insert(model->mirrorSessions.begin(), model->mirrorSessions.end());
  }
  return merged;
}

std::optional<std::string> Sources::whyNot() const { return Core::whyNot(interfaces()); }

std::optional<std::string> Sources::whyNoPort(const std::string& name) const {
  if (!interfaces().portChannels.contains(name)) return std::nullopt;
  return portChannelIsNoPort(name);
}

std::vector<std::string> Sources::trailingRemarks(const std::string& name,
                                                  const Config::Model::ListKey& list) const {
  const Config::Model* model = find(name);
  if (!model) return {};
  const auto known = model->lists.find(list);
  return known == model->lists.end() ? std::vector<std::string>() : known->second.pendingRemarks;
}

}  // namespace Agent
