#include <MemSlab/Slab.h>
#include <Nimnet/IntfId.h>
#include <Rix/InReactor.h>
#include <agent/core/Core.h>

namespace Agent {

namespace {

constexpr std::string_view inputSources = "input/";

// Where the state tree has what plugins read and write.
constexpr const char *listInputs = "acl/config/input", *listCommandLine = "acl/config/cli",
                     *bindingInputs = "acl/intf/config/input", *bindingCommandLine = "acl/intf/config/cli",
                     *listStatus = "acl/status/dp/kepa";

/// What plugins read and write in the state tree, by the name of their mount profile.
const Hive::MountProfiles& mountProfiles() {
  using Mode = Hive::MountProfile::Mode;
  static const Hive::MountProfiles profiles{{"Acl",
                                             {{
                                                 {listInputs, "Zeb::Dir", Mode::read},
                                                 {listCommandLine, "Acl::Input::Config", Mode::read},
                                                 {bindingInputs, "Zeb::Dir", Mode::read},
                                                 {bindingCommandLine, "Acl::IntfConfig", Mode::read},
                                                 {listStatus, "Acl::StatusDp", Mode::write},
                                             }}}};
  return profiles;
}

/// An entity as the type that it is known to have.
template <class T, class U>
Kelp::Ptr<T> as(const Kelp::Ptr<U>& entity) {
  auto typed = Kelp::ptrCast<T>(entity);
  KELP_ASSERT(typed, "the state tree has an entity of another type here");
  return typed;
}

/// The entry of a directory with this name, made when there is none.
template <class T>
Kelp::Ptr<T> entryOf(Zeb::Dir& entries, const std::string& name) {
  // A directory only shows its entries. This one is the program's own, and so are they.
  if (const auto known = entries.entry(name)) return Kelp::Ptr<T>(const_cast<T*>(as<const T>(known).get()));
  const auto made = MemSlab::make<T>(Kelp::String(name));
  entries.entryIs(made);
  return made;
}

template <class Id>
std::vector<Id> idsOf(const std::vector<std::string>& names) {
  std::vector<Id> ids;
  for (const auto& name : names) ids.emplace_back(name);
  return ids;
}

/// A state tree in which every mount profile is mounted.
Kelp::Ptr<Hive::EntityManager> mounted() {
  auto tree = MemSlab::make<Hive::EntityManager>();
  for (const auto& [name, profile] : mountProfiles()) {
    const auto failure = tree->mountProfile(profile);
    KELP_ASSERT(!failure, *failure);
  }
  return tree;
}

/// Returns what is wrong with the port-channels.
template <class Id>
std::optional<std::string> readPortChannels(const Config::Model& interfaces,
                                            Velo::PortChannelsOf<Id>& portChannels) {
  for (const auto& [name, members] : interfaces.portChannels) {
    for (const auto& member : members) {
      if (interfaces.portChannels.contains(member)) {
        return fmt::format("port-channel {}: its member {} is a port-channel", name, member);
      }
    }
    if (auto wrong = portChannels.membersIs(Id(name), idsOf<Id>(members))) {
      return fmt::format("port-channel {}: {}", name, *wrong);
    }
  }
  return std::nullopt;
}

}  // namespace

Core::Core()
    : context_{&manager_, mounted()},
      namedCounters_(MemSlab::make<Velo::VeloNamedCounters>()),
      inForce_(manager_, mountedStatus()) {}

Core::~Core() { unloadPlugin(); }

std::optional<std::string> Core::loadPlugin(const std::string& path,
                                            const std::vector<std::string>& further) {
  if (auto stuck = unloadPlugin()) return stuck;
  auto wrong = addPlugin(path);
  for (auto next = further.begin(); !wrong && next != further.end(); ++next) wrong = addPlugin(*next);
  if (wrong) unloadPlugin();
  return wrong;
}

std::optional<std::string> Core::addPlugin(const std::string& path) {
  auto& loader = Velo::DefaultPluginLoader();
  if (auto refusal = loader.load(path)) return refusal;
  plugins_.push_back(loader.plugins().back().name);
  loader.callInit(&context_, plugins_.back());
  return manager_.runPhases(mountProfiles());
}

std::optional<std::string> Core::unloadPlugin() {
  if (plugins_.empty()) return std::nullopt;
  while (!manager_.plugins().empty()) manager_.pluginDel(manager_.plugins().back()->name());
  Rix::Gen::zebDoZombieReactors();
  std::optional<std::string> stuck;
  for (; !plugins_.empty(); plugins_.pop_back()) {
    auto why = Velo::DefaultPluginLoader().unload(plugins_.back());
    if (!stuck) stuck = std::move(why);
  }
  return stuck;
}

/// By texts, so that names of interfaces are not kept that are only checked.
std::optional<std::string> Core::whyNot(const Config::Model& interfaces) {
  Velo::PortChannelsOf<std::string> portChannels;
  return readPortChannels(interfaces, portChannels);
}

std::optional<std::string> Core::interfacesAre(const Config::Model& interfaces) {
  Velo::PortChannels portChannels;
  if (auto wrong = readPortChannels(interfaces, portChannels)) return wrong;
  portChannels_ = std::move(portChannels);

  const auto& mirroring = Velo::MirroringStepHelper::singleton();
  const auto sessions = mirroring->sessions();
  for (const auto& [name, destinations] : sessions) {
    if (!interfaces.mirrorSessions.contains(name.str())) mirroring->sessionDel(name);
  }
  for (const auto& [name, destinations] : interfaces.mirrorSessions) {
    mirroring->sessionIs(name, idsOf<Nimnet::IntfId>(destinations));
  }
  return std::nullopt;
}

Core::Source Core::sourceIs(const std::string& input) {
  if (input.empty())
    return {as<Acl::Input::Config>(entity(listCommandLine)), as<Acl::IntfConfig>(entity(bindingCommandLine))};
  return {entryOf<Acl::Input::Config>(*as<Zeb::Dir>(entity(listInputs)), input),
          entryOf<Acl::IntfConfig>(*as<Zeb::Dir>(entity(bindingInputs)), input)};
}

void Core::sourceDel(const std::string& input) {
  for (const char* dir : {listInputs, bindingInputs}) as<Zeb::Dir>(entity(dir))->entryDel(input);
}

Kelp::Ptr<Zeb::Entity> Core::entity(std::string_view path) const {
  return context_.entityManager->getEntity(path);
}

Kelp::Ptr<const Acl::Config> Core::source(std::string_view name) const {
  if (name == commandLineSource) return as<const Acl::Config>(entity(listCommandLine));
  if (!name.starts_with(inputSources)) return nullptr;
  const auto known = as<Zeb::Dir>(entity(listInputs))->entry(Kelp::String(name.substr(inputSources.size())));
  return known ? as<const Acl::Config>(known) : nullptr;
}

std::string Core::sourceName(const std::string& input) {
  return fmt::format("{}{}", input.empty() ? commandLineSource : inputSources, input);
}

std::vector<std::string> Core::inputs() const {
  std::vector<std::string> names;
  const auto dir = as<Zeb::Dir>(entity(listInputs));
  for (auto at = std::as_const(*dir).entry().begin(); at; at.next()) names.push_back(at.key().str());
  return names;
}

std::vector<std::string> Core::sources() const {
  std::vector<std::string> names{sourceName({})};
  for (const std::string& input : inputs()) names.push_back(sourceName(input));
  return names;
}

Kelp::Ptr<Acl::StatusDp> Core::mountedStatus() const { return as<Acl::StatusDp>(entity(listStatus)); }

}  // namespace Agent
