// Shows of lists and of what refers to them.
#include <agent/config/Sentences.h>
#include <agent/core/Reserve.h>
#include <agent/core/Words.h>
#include <agent/show/ListJson.h>
#include <agent/show/Shows.h>

#include <algorithm>
#include <set>

namespace Agent {

using Json = nlohmann::ordered_json;

namespace {

std::string accessListsText(const Json& document, const TextStyle& style) {
  const std::string text = clearedLine(document, style) + listsText(document, style);
  return text.empty() ? "no list\n" : text;
}

/// The entry of an interface, made when there is none.
Json& interfaceEntry(Json& all, const std::string& name) {
  Refusable::check();
  Json& one = all[name];
  if (one.is_null()) one = {{"bindings", Json::array()}};
  return one;
}

void addPortChannels(Json& all, const Core& core) {
  for (const auto& [id, members] : core.portChannels().all()) {
    Json& channel = interfaceEntry(all, id.name().str());
    channel["members"] = Json::array();
    for (const auto& member : members) {
      channel["members"].push_back(member.name().view());
      interfaceEntry(all, member.name().str())["portChannel"] = id.name().view();
    }
  }
}

void addBindings(Json& all, const ListReport& list, bool defined) {
  for (const auto& binding : list.bindings) {
    Json one = {{"direction", Acl::stringValue(binding.direction)},
                {"type", Acl::stringValue(list.type)},
                {"list", list.name},
                {"defined", defined}};
    addSources(one, binding.sources);
    interfaceEntry(all, binding.interface)["bindings"].push_back(std::move(one));
  }
}

/// The destinations of mirror sessions whose copies are lost because no port there has a device.
Json destinationsWithoutDevice(const World& world) {
  std::set<std::string> with, without;
  if (!world.portStates) return Json::array();
  for (const PortState& state : world.portStates()) {
    if (state.present) with.insert(state.name);
  }
  const auto& channels = world.core.portChannels().all();
  for (const auto& [session, destinations] : Velo::MirroringStepHelper::singleton()->sessions()) {
    for (const Nimnet::IntfId& destination : destinations) {
      const auto channel = channels.find(destination);
      std::vector<Nimnet::IntfId> ports = {destination};
      if (channel != channels.end()) ports.assign(channel->second.begin(), channel->second.end());
      const bool reaches = std::any_of(ports.begin(), ports.end(), [&](const Nimnet::IntfId& port) {
        return with.contains(port.name().str());
      });
      if (!reaches) without.insert(destination.name().str());
    }
  }
  return without;
}

/// What the texts keep with interfaces; of several sources the first one's.
void addNotes(Json& all, const World& world) {
  if (!world.sources) return;
  std::set<std::string> known;
  world.sources().forEach([&](const std::string&, const Config::Model& model) {
    for (const auto& [name, notes] : model.interfaceNotes) {
      Refusable::check();
      if (!known.insert(name).second) continue;
      Json& one = interfaceEntry(all, name);
      if (!notes.description.empty()) one["description"] = notes.description;
      if (notes.shutdown) one["shutdown"] = true;
    }
  });
}

Json interfacesOf(const World& world) {
  Json all = Json::object();
  for (const auto& [id, port] : world.forwarder.ports()) interfaceEntry(all, id.name().str());
  addPortChannels(all, world.core);
  const ListReader reader(world.core);
  for (const auto& key : reader.defined()) addBindings(all, reader.head(key), true);
  for (const auto& key : reader.undefined()) addBindings(all, reader.head(key), false);
  addNotes(all, world);
  Json sessions = Json::object();
  for (const auto& [name, destinations] : Velo::MirroringStepHelper::singleton()->sessions()) {
    Refusable::check();
    sessions[name.str()] = Json::array();
    for (const auto& destination : destinations) sessions[name.str()].push_back(destination.name().view());
  }
  return {{"interfaces", std::move(all)},
          {"mirrorSessions", std::move(sessions)},
          {"withoutDevice", destinationsWithoutDevice(world)}};
}

std::string joined(const Json& names) {
  std::string text;
  for (const Json& name : names) text += (text.empty() ? "" : " ") + name.get<std::string>();
  return text;
}

std::string interfacesText(const Json& document, const TextStyle& style) {
  std::vector<std::vector<std::string>> lines = {{"interface", "direction", "type", "list", "from"}};
  for (const auto& [name, one] : document.at("interfaces").items()) {
    std::string shown = name;
    if (one.contains("members")) shown += " (" + joined(one.at("members")) + ")";
    if (one.contains("portChannel")) shown += " (in " + one.at("portChannel").get<std::string>() + ")";
    if (one.at("bindings").empty()) lines.push_back({shown, "-", "", "no list", ""});
    for (const Json& binding : one.at("bindings")) {
      std::string list = binding.at("list").get<std::string>();
      if (!binding.at("defined").get<bool>()) list += fmt::format(" ({})", notDefined);
      lines.push_back({shown, binding.at("direction").get<std::string>(),
                       binding.at("type").get<std::string>(), list,
                       binding.at("source").is_null() ? "" : binding.at("source").get<std::string>()});
      shown.clear();
    }
  }
  std::string text = tableText(lines, {false, false, false, false, false}, style.colour);
  for (const auto& [name, one] : document.at("interfaces").items()) {
    if (one.contains("description")) text += fmt::format("{}: {}\n", name, valueText(one.at("description")));
    if (one.contains("shutdown")) text += fmt::format("{}: {}\n", name, Config::shutdownHasNoEffect);
  }
  const Json& lost = document.at("withoutDevice");
  for (const auto& [name, destinations] : document.at("mirrorSessions").items()) {
    text += fmt::format("mirror session {} to", name);
    for (const Json& destination : destinations) {
      const bool without = std::find(lost.begin(), lost.end(), destination) != lost.end();
      text += fmt::format(" {}{}", valueText(destination), without ? " (no device: copies are lost)" : "");
    }
    text += "\n";
  }
  return text;
}

constexpr Show listRows[] = {
    {"access-lists", "[NAME]", "the lists in force as they were typed, with what each rule matched",
     listsDocument, accessListsText, true, true},
    {"interfaces", "", "which lists are bound where, port-channels, mirror sessions", whole<interfacesOf>,
     interfacesText},
};

}  // namespace

std::span<const Show> listShows() { return listRows; }

}  // namespace Agent
