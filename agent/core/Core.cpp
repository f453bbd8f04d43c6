#include <Acl/Counters.h>
#include <Rix/InReactor.h>
#include <agent/core/Apply.h>
#include <agent/core/Core.h>

namespace Agent {

namespace {

constexpr std::string_view commandLineSource = "cli";
constexpr std::string_view inputSources = "input/";

/// What plugins read and write in the state tree, by the name that they ask for it by.
const Hive::MountProfiles& mountProfiles() {
  using Mode = Hive::MountProfile::Mode;
  static const Hive::MountProfiles profiles{{"Acl",
                                             {{
                                                 {"acl/config/input", "Zeb::Dir", Mode::read},
                                                 {"acl/config/cli", "Acl::Input::Config", Mode::read},
                                                 {"acl/intf/config/input", "Zeb::Dir", Mode::read},
                                                 {"acl/intf/config/cli", "Acl::IntfConfig", Mode::read},
                                                 {"acl/status/dp/kepa", "Acl::StatusDp", Mode::write},
                                             }}}};
  return profiles;
}

/// The entity of a name in a directory, made when there is none.
template <class T>
Kelp::Ptr<T> entryOf(const Kelp::Ptr<Zeb::Entity>& dir, const std::string& name) {
  auto& entries = static_cast<Zeb::Dir&>(*dir);
  if (const auto* known = entries.entry().find(name)) {
    return Kelp::Ptr<T>(const_cast<T*>(static_cast<const T*>(known->get())));
  }
  const auto made = MemSlab::make<T>(Kelp::String(name));
  entries.entryIs(made);
  return made;
}

void keepOnly(const Kelp::Ptr<Zeb::Entity>& dir, const std::map<std::string, Config::Model>& wanted) {
  auto& entries = static_cast<Zeb::Dir&>(*dir);
  for (auto at = entries.entry().begin(); at; at.next()) {
    if (!wanted.contains(at.key().str())) entries.entryDel(at.key());
  }
}

/// Port-channels and mirror sessions of all sources; the first source that has one of a name is in force.
Config::Model mergeInterfaces(const Config::Model& commandLine,
                              const std::map<std::string, Config::Model>& inputs) {
  Config::Model merged;
  merged.portChannels = commandLine.portChannels;
  merged.mirrorSessions = commandLine.mirrorSessions;
  for (const auto& [name, model] : inputs) {
    merged.portChannels.insert(model.portChannels.begin(), model.portChannels.end());
    merged.mirrorSessions.insert(model.mirrorSessions.begin(), model.mirrorSessions.end());
  }
  return merged;
}

std::vector<Nimnet::IntfId> intfIds(const std::vector<std::string>& names) {
  std::vector<Nimnet::IntfId> ids;
  for (const auto& name : names) ids.emplace_back(name);
  return ids;
}

/// Returns what is wrong with the port-channels.
std::optional<std::string> readPortChannels(const Config::Model& interfaces,
                                            Velo::PortChannels& portChannels) {
  for (const auto& [name, members] : interfaces.portChannels) {
    for (const auto& member : members) {
      if (interfaces.portChannels.contains(member)) {
        return fmt::format("port-channel {}: its member {} is a port-channel", name, member);
      }
    }
    if (auto wrong = portChannels.membersIs(Nimnet::IntfId(name), intfIds(members))) {
      return fmt::format("port-channel {}: {}", name, *wrong);
    }
  }
  return std::nullopt;
}

}  // namespace

Core::Core() : namedCounters_(MemSlab::make<Velo::VeloNamedCounters>()) {
  context_.manager = &manager_;
  context_.entityManager = MemSlab::make<Hive::EntityManager>();
  for (const auto& [name, profile] : mountProfiles()) {
    const auto failure = context_.entityManager->mountProfile(profile);
    KELP_ASSERT(!failure, *failure);
  }
}

Core::~Core() { unloadPlugin(); }

std::optional<std::string> Core::loadPlugin(const std::string& path) {
  if (auto stuck = unloadPlugin()) return stuck;
  auto& loader = Velo::DefaultPluginLoader();
  if (auto refusal = loader.load(path)) return refusal;
  plugin_ = loader.plugins().back().name;
  loader.callInit(&context_, plugin_);
  auto unmounted = manager_.runPhases(mountProfiles());
  if (unmounted) unloadPlugin();
  return unmounted;
}

std::optional<std::string> Core::unloadPlugin() {
  if (plugin_.empty()) return std::nullopt;
  while (!manager_.plugins().empty()) manager_.pluginDel(manager_.plugins().back()->name());
  Rix::Gen::zebDoZombieReactors();
  return Velo::DefaultPluginLoader().unload(std::exchange(plugin_, {}));
}

std::optional<std::string> Core::whyNot(const Config::Model& commandLine,
                                        const std::map<std::string, Config::Model>& inputs) {
  Velo::PortChannels portChannels;
  return readPortChannels(mergeInterfaces(commandLine, inputs), portChannels);
}

std::optional<std::string> Core::apply(const Config::Model& commandLine,
                                       const std::map<std::string, Config::Model>& inputs) {
  if (auto wrong = applyInterfaces(commandLine, inputs)) return wrong;
  const Source own = sourceIs({});
  applySource(std::string(commandLineSource), commandLine, own.lists);
  applyBindings(commandLine, own.bindings);
  keepOnly(entity("acl/config/input"), inputs);
  keepOnly(entity("acl/intf/config/input"), inputs);
  for (const auto& [name, model] : inputs) {
    const Source input = sourceIs(name);
    applySource(fmt::format("{}{}", inputSources, name), model, input.lists);
    applyBindings(model, input.bindings);
  }
  return std::nullopt;
}

std::optional<std::string> Core::applyInterfaces(const Config::Model& commandLine,
                                                 const std::map<std::string, Config::Model>& inputs) {
  const Config::Model interfaces = mergeInterfaces(commandLine, inputs);
  Velo::PortChannels portChannels;
  if (auto wrong = readPortChannels(interfaces, portChannels)) return wrong;
  portChannels_ = std::move(portChannels);

  const auto& mirroring = Velo::MirroringStepHelper::singleton();
  const auto sessions = mirroring->sessions();
  for (const auto& [name, destinations] : sessions) {
    if (!interfaces.mirrorSessions.contains(name.str())) mirroring->sessionDel(name);
  }
  for (const auto& [name, destinations] : interfaces.mirrorSessions) {
    mirroring->sessionIs(name, intfIds(destinations));
  }
  return std::nullopt;
}

Core::Source Core::sourceIs(const std::string& input) {
  if (input.empty()) {
    return {Kelp::ptrCast<Acl::Input::Config>(entity("acl/config/cli")),
            Kelp::ptrCast<Acl::IntfConfig>(entity("acl/intf/config/cli"))};
  }
  return {entryOf<Acl::Input::Config>(entity("acl/config/input"), input),
          entryOf<Acl::IntfConfig>(entity("acl/intf/config/input"), input)};
}

void Core::sourceDel(const std::string& input) {
  for (const char* path : {"acl/config/input", "acl/intf/config/input"})
    static_cast<Zeb::Dir&>(*entity(path)).entryDel(input);
}

Kelp::Ptr<Zeb::Entity> Core::entity(std::string_view path) const {
  return context_.entityManager->getEntity(path);
}

void Core::applySource(const std::string& source, const Config::Model& model,
                       const Kelp::Ptr<Acl::Input::Config>& lists) {
  if (!ruleIdMemory_) return applyLists(model, lists);
  applyLists(model, lists, [&](const Config::List& list, const Config::Rule& rule) {
    const Kiv::UniqueId known = ruleIdMemory_(source, list, rule);
    return known.empty() ? freshId(list, rule) : known;
  });
}

template <class T>
Kelp::Ptr<T> Core::pluginAttribute(std::string_view name) const {
  for (const auto& plugin : manager_.plugins()) {
    if (const auto held = Zeb::attributeValue<Kelp::Ptr<T>>(*plugin, name)) return *held;
  }
  return nullptr;
}

Kelp::Ptr<const Acl::Config> Core::source(std::string_view name) const {
  if (name == commandLineSource) return Kelp::ptrCast<Acl::Config>(entity("acl/config/cli"));
  if (!name.starts_with(inputSources)) return nullptr;
  const auto& entries = static_cast<const Zeb::Dir&>(*entity("acl/config/input")).entry();
  const auto* known = entries.find(Kelp::String(name.substr(inputSources.size())));
  return known ? Kelp::Ptr<const Acl::Config>(static_cast<const Acl::Config*>(known->get())) : nullptr;
}

std::vector<std::string> Core::sources() const {
  std::vector<std::string> names{std::string(commandLineSource)};
  const auto dir = entity("acl/config/input");
  for (auto at = static_cast<const Zeb::Dir&>(*dir).entry().begin(); at; at.next())
    names.push_back(fmt::format("{}{}", inputSources, at.key()));
  return names;
}

Kelp::Ptr<Acl::StatusDp> Core::mountedStatus() const {
  return Kelp::ptrCast<Acl::StatusDp>(entity("acl/status/dp/kepa"));
}

Kelp::Ptr<Acl::AclConfig> Core::mergedList(Acl::AclType type, const Kelp::String& name) const {
  const auto all = pluginAttribute<Acl::Config>("aclConfig");
  const auto lists = all ? all->config(type) : nullptr;
  return lists ? lists->acl(name) : nullptr;
}

bool Core::takeOver(Acl::AclType type, const Kelp::String& name, size_t most) {
  const auto aggregator = pluginAttribute<Acl::AclConfigAggregatorSm>("aclAggregatorSm");
  return !aggregator || aggregator->takeOver({type, name}, most);
}

Kelp::Ptr<const Acl::Config> Core::lists() const { return pluginAttribute<Acl::Config>("aclConfig"); }
Kelp::Ptr<const Acl::IntfConfig> Core::bindings() const {
  return pluginAttribute<Acl::IntfConfig>("intfConfig");
}
Kelp::Ptr<const Acl::AclConfigAggregatorSm> Core::listSources() const {
  return pluginAttribute<Acl::AclConfigAggregatorSm>("aclAggregatorSm");
}
Kelp::Ptr<const AclAgent::IntfConfigSm> Core::bindingSources() const {
  return pluginAttribute<AclAgent::IntfConfigSm>("intfConfigSm");
}
Kelp::Ptr<const Acl::StatusDp> Core::status() const { return pluginAttribute<Acl::StatusDp>("aclStatus"); }

std::vector<Kelp::Ptr<Velo::Counter::VeloDpAclCounterColl>> Core::counters() const {
  std::vector<Kelp::Ptr<Velo::Counter::VeloDpAclCounterColl>> all;
  for (auto at = manager_.counterHolder()->collection().begin(); at; at.next()) {
    if (auto typed = Kelp::ptrCast<Velo::Counter::VeloDpAclCounterColl>(at.value().object))
      all.push_back(typed);
  }
  return all;
}

std::optional<std::string> Core::unpublished() const {
  const auto published = status();
  if (!published) return std::nullopt;
  if (const auto all = lists()) {
    for (auto type = all->config().begin(); type; type.next()) {
      const auto shown = published->status(type.key());
      for (auto list = type.value()->acl().begin(); list; list.next()) {
        const auto status = shown ? shown->acl(list.key()) : nullptr;
        if (!status || !status->implicitRuleId(Acl::ImplicitRuleType::drop)) {
          return fmt::format("{} access-list {}", type.key(), list.key());
        }
      }
    }
  }
  if (const auto all = bindings()) {
    for (auto type = all->config().begin(); type; type.next()) {
      const auto shownType = published->status(type.key());
      for (auto direction = type.value()->intf().begin(); direction; direction.next()) {
        const auto shown = shownType ? shownType->intf(direction.key()) : nullptr;
        for (auto intf = direction.value()->intf().begin(); intf; intf.next()) {
          const auto* list = shown ? shown->intf(intf.key()) : nullptr;
          if (!list || *list != intf.value()) {
            return fmt::format("{} access-group {} of {} {}", type.key(), intf.value(), intf.key(),
                               direction.key());
          }
        }
      }
    }
  }
  return std::nullopt;
}

}  // namespace Agent
