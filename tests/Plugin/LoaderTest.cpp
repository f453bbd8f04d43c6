#include <Acl/Counters.h>
#include <Acl/Model.h>
#include <Acl/Status.h>
#include <Velo/Mirroring.h>
#include <Velo/VeloPlugin.h>
#include <Zeb/LogHandle.h>
#include <Zeb/TypeModule.h>
#include <dlfcn.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/resource.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>

#include "../support/Frames.h"
#include "../support/Sanitizers.h"

// The agent's loader with real libraries: the plugin itself, and small ones made for this.

namespace {

namespace fs = std::filesystem;
using Sentence = std::optional<std::string>;

const std::string bin = VELO_BIN_DIR;
const std::string plugin = bin + "/VeloAcl.so";
const std::string tiny = bin + "/TinyPlugin.so";

bool isOpen(const std::string& path) {
  void* library = dlopen(path.c_str(), RTLD_LAZY | RTLD_NOLOAD);
  if (library) dlclose(library);
  return library != nullptr;
}

size_t messages() {
  size_t count = 0;
  for (const auto* handle : Zeb::LogHandle::catalogue()) {
    count += std::string_view(handle->descriptor().name).starts_with("ACL_");
  }
  return count;
}

class PluginLoader : public testing::Test {
 protected:
  ~PluginLoader() override {
    EXPECT_TRUE(loader.plugins().empty()) << "every test closes what it opens";
    EXPECT_EQ(MemSlab::liveCount() - objects, 1u) << "the entity manager" << MemSlab::liveReport();
  }

  Velo::PluginManager& newManager() {
    manager = std::make_unique<Velo::PluginManager>();
    context.manager = manager.get();
    return *manager;
  }
  /// The way of an agent, up to active.
  void bringUp() {
    newManager();
    ASSERT_EQ(loader.load(plugin), std::nullopt);
    loader.callInit(&context, "VeloAclPlugin");
    ASSERT_EQ(manager->runPhases({{"Acl", profile}}), std::nullopt);
  }
  void bringDown() {
    while (!manager->plugins().empty()) manager->pluginDel(manager->plugins().back()->name());
    for (const auto& mount : profile.mounts) context.entityManager->mountDel(mount.path);
    EXPECT_EQ(loader.unload("VeloAclPlugin"), std::nullopt);
    manager.reset();
  }

  const uint64_t objects = MemSlab::liveCount();
  Plugin::Loader<Velo::PluginContext>& loader = Velo::DefaultPluginLoader();
  std::unique_ptr<Velo::PluginManager> manager;
  Velo::PluginContext context{nullptr, MemSlab::make<Hive::EntityManager>()};
  const Hive::MountProfile profile{{{"acl/config/input", "Zeb::Dir"},
                                    {"acl/config/cli", "Acl::Input::Config"},
                                    {"acl/intf/config/input", "Zeb::Dir"},
                                    {"acl/intf/config/cli", "Acl::IntfConfig"},
                                    {"acl/status/dp/kepa", "Acl::StatusDp"}}};
};

TEST_F(PluginLoader, TakesUpWhatALibraryRegisters) {
  ASSERT_EQ(loader.load(plugin), std::nullopt);
  ASSERT_EQ(loader.plugins().size(), 1u);
  const auto& registered = loader.plugins()[0];
  EXPECT_EQ(registered.name, "VeloAclPlugin");
  EXPECT_EQ(registered.kind, loader.kind());
  EXPECT_EQ(registered.shortName, "Acl");
  EXPECT_EQ(registered.options, "");
  EXPECT_EQ(registered.interfaceVersion, Plugin::interfaceVersion);
  EXPECT_NE(registered.initCaller, nullptr);
  EXPECT_EQ(registered.path, plugin);
  EXPECT_TRUE(isOpen(plugin));
  EXPECT_EQ(messages(), 6u);
  EXPECT_NE(Zeb::typeByName("Velo::VeloAcl::AclPlugin"), nullptr);
  EXPECT_EQ(loader.unload("VeloAclPlugin"), std::nullopt);
}

TEST_F(PluginLoader, UnloadingReallyClosesTheLibrary) {
  const auto units = [] {
    std::vector<std::string> names;
    for (const auto* module : Zeb::typeModules()) names.emplace_back(module->unit());
    return names;
  };
  const auto before = units();
  ASSERT_EQ(loader.load(plugin), std::nullopt);
  EXPECT_THAT(units(), testing::IsSupersetOf({"VeloAclConfigSharedObject", "AclVeloPlugin"}));
  ASSERT_EQ(loader.unload("VeloAclPlugin"), std::nullopt);
  EXPECT_FALSE(isOpen(plugin));
  EXPECT_EQ(messages(), 0u);
  EXPECT_EQ(units(), before);
  EXPECT_EQ(Zeb::typeByName("Velo::VeloAcl::AclPlugin"), nullptr);
  newManager();
  loader.callInit(&context);
  EXPECT_TRUE(manager->plugins().empty()) << "its init caller is gone, too";
  manager.reset();
}

TEST_F(PluginLoader, WhatIsNoPluginIsRefusedWithASentenceThatSaysWhy) {
  const fs::path dir = fs::temp_directory_path() / fmt::format("loader-test-{}", getpid());
  fs::create_directory(dir);
  const std::string text = dir / "text.so", marked = dir / "marked.so", damaged = dir / "damaged.so";
  std::ofstream(text) << "not a library\n";
  std::ofstream(marked) << "velo plugin interface " << Plugin::interfaceVersion;
  std::ofstream(damaged, std::ios::binary) << std::ifstream(plugin, std::ios::binary).rdbuf();
  fs::resize_file(damaged, 40);

  struct Row {
    const char* why;
    std::string path, sentence;
    bool whole;
  };
  const std::string other = bin + "/OtherVersion.so", none = bin + "/NoPlugin.so";
  const Row rows[] = {
      {"a missing file", dir / "missing.so",
       fmt::format("{}/missing.so: there is no such file", dir.string()), true},
      {"a missing directory", "/no/such/dir/x.so", "/no/such/dir/x.so: there is no such file", true},
      {"a directory", dir, fmt::format("{}: not a plugin: not a file", dir.string()), true},
      {"a text", text, fmt::format("{}: not a plugin: there is no interface version in it", text), true},
      {"a text that has a version", marked, fmt::format("{}: not a plugin: {}: ", marked, marked), false},
      {"a damaged library", damaged, fmt::format("{}: not a plugin: ", damaged), false},
      {"a library that registers nothing", none, fmt::format("{}: not a plugin: it registers none", none),
       true},
      {"another interface version", other,
       fmt::format(
           "{}: TinyPlugin was built against interface version 0, this agent has {}: build it from this "
           "agent's headers with its compiler",
           other, Plugin::interfaceVersion),
       true},
  };
  for (const auto& [why, path, sentence, whole] : rows) {
    const Sentence refusal = loader.load(path);
    ASSERT_TRUE(refusal) << why;
    EXPECT_EQ(whole ? *refusal : refusal->substr(0, sentence.size()), sentence) << why;
    EXPECT_GE(refusal->size(), sentence.size());
    EXPECT_TRUE(loader.plugins().empty()) << why;
    EXPECT_FALSE(isOpen(path)) << why;
  }
  EXPECT_EQ(Zeb::typeByName("TinyPlugin::Thing"), nullptr) << "nothing of a refused library stays";
  fs::remove_all(dir);
}

TEST_F(PluginLoader, TheVersionOfAPluginIsFoundWhereverItLiesInTheFile) {
  const std::string path = testing::TempDir() + fmt::format("loader-test-{}.so", getpid());
  const std::string version(Plugin::interfaceVersion.size(), '7');
  const std::string mark = "velo plugin interface " + version;
  // Across every border of the pieces in which a file may be read.
  for (const size_t border : {size_t{0}, size_t{4096}, size_t{65536}, size_t{131072}}) {
    for (size_t at = border - std::min(border, 2 * mark.size()); at <= border; ++at) {
      std::ofstream(path) << std::string(at, 'v') << mark << std::string(at % 2 ? 100 : 0, '.');
      EXPECT_EQ(loader.load(path),
                fmt::format("{}: was built against interface version {}, this agent has {}: "
                            "build it from this agent's headers with its compiler",
                            path, version, Plugin::interfaceVersion))
          << "at " << at;
    }
  }
  fs::remove(path);
}

TEST_F(PluginLoader, AFileThatCannotBeOpenedIsRefusedWithTheReason) {
  if (TestSupport::addressSanitizer) GTEST_SKIP() << "the sanitizer needs descriptors itself";
  rlimit before{};
  getrlimit(RLIMIT_NOFILE, &before);
  const rlimit none{0, before.rlim_max};
  setrlimit(RLIMIT_NOFILE, &none);
  const Sentence refusal = loader.load(tiny);
  setrlimit(RLIMIT_NOFILE, &before);
  EXPECT_EQ(refusal, tiny + ": Too many open files");
}

TEST_F(PluginLoader, APluginBuiltOtherwiseIsRefusedBeforeItsCodeRuns) {
  const std::pair<const char*, const char*> rows[] = {
      {"OtherHeaders", "a member was added to a header that it was built against"},
      {"OtherLibrary", "the types of its standard library are larger"},
      {"OtherLayout", "its enumerations are smaller"},
  };
  for (const auto& [name, why] : rows) {
    const std::string other = fmt::format("{}/{}.so", bin, name);
    const Sentence refusal = loader.load(other);
    ASSERT_TRUE(refusal) << why;
    EXPECT_THAT(*refusal,
                testing::MatchesRegex(fmt::format(
                    "{}: was built against interface version [0-9a-f]{{16}}, this agent has {}: build "
                    "it from this agent's headers with its compiler",
                    other, Plugin::interfaceVersion)));
    EXPECT_TRUE(loader.plugins().empty());
    EXPECT_FALSE(isOpen(other));
  }
}

TEST_F(PluginLoader, APluginBuiltAgainstACopyOfTheHeadersIsOneOfThisAgent) {
  ASSERT_EQ(loader.load(bin + "/SameHeaders.so"), std::nullopt) << "where the headers lie does not count";
  loader.callInit(&context, "TinyPlugin");
  EXPECT_TRUE(context.entityManager->getEntity("tiny"));
  context.entityManager->mountDel("tiny");
  EXPECT_EQ(loader.unload("TinyPlugin"), std::nullopt);
}

TEST_F(PluginLoader, TheSameLibraryIsNotLoadedTwiceNorAnotherOfItsName) {
  ASSERT_EQ(loader.load(tiny), std::nullopt);
  EXPECT_EQ(loader.load(tiny), fmt::format("{}: the plugin is loaded already", tiny));
  const std::string twin = bin + "/TwinPlugin.so";
  EXPECT_EQ(loader.load(twin), fmt::format("{}: TinyPlugin is loaded already, from {}", twin, tiny));
  EXPECT_EQ(loader.plugins().size(), 1u);
  EXPECT_FALSE(isOpen(twin));
  EXPECT_EQ(loader.unload("TinyPlugin"), std::nullopt);
  EXPECT_FALSE(isOpen(tiny)) << "the refused second opening does not hold it";
}

TEST_F(PluginLoader, WhatIsNotLoadedCannotBeUnloaded) {
  EXPECT_EQ(loader.unload("X"), "no plugin X is loaded");
}

TEST_F(PluginLoader, APathMayBeRelative) {
  const fs::path here = fs::current_path();
  fs::current_path(bin);
  EXPECT_EQ(loader.load("TinyPlugin.so"), std::nullopt);
  fs::current_path(here);
  EXPECT_EQ(loader.plugins().at(0).path, tiny);
  EXPECT_EQ(loader.unload("TinyPlugin"), std::nullopt);
  EXPECT_FALSE(isOpen(tiny));
}

TEST_F(PluginLoader, ALibraryWhoseObjectsLiveStaysOpen) {
  ASSERT_EQ(loader.load(tiny), std::nullopt);
  loader.callInit(&context, "TinyPlugin");
  const auto kept = context.entityManager->getEntity("tiny");
  ASSERT_TRUE(kept);
  EXPECT_EQ(loader.unload("TinyPlugin"),
            fmt::format("{} is still in use and stays loaded: 1 TinyPlugin::Thing", tiny));
  EXPECT_TRUE(isOpen(tiny));
  EXPECT_EQ(kept->typeData().name(), "TinyPlugin::Thing") << "and is whole";
  EXPECT_EQ(loader.plugins().size(), 1u);
  const_cast<Kelp::Ptr<Zeb::Entity>&>(kept) = nullptr;
  context.entityManager->mountDel("tiny");
  EXPECT_EQ(loader.unload("TinyPlugin"), std::nullopt) << "the instance's own references do not count";
}

TEST_F(PluginLoader, PluginsAreInitialisedTheLatestFirst) {
  newManager();
  ASSERT_EQ(loader.load(tiny), std::nullopt);
  ASSERT_EQ(loader.load(plugin), std::nullopt);
  loader.callInit(&context);
  EXPECT_TRUE(context.entityManager->getEntity("tiny"));
  ASSERT_EQ(manager->plugins().size(), 1u);
  EXPECT_EQ(manager->plugins()[0]->name(), "Acl");
  manager->pluginDel("Acl");
  context.entityManager->mountDel("tiny");
  EXPECT_EQ(loader.unload("TinyPlugin"), std::nullopt);
  EXPECT_EQ(loader.unload("VeloAclPlugin"), std::nullopt);
  manager.reset();
}

TEST_F(PluginLoader, ThePluginComesUpGoesAndComesUpAgain) {
  for (int round = 0; round < 3; ++round) {
    bringUp();
    EXPECT_EQ(manager->pipeline()->stepCount(), 2u);
    EXPECT_EQ(manager->counterHolder()->collection().size(), 4u);
    EXPECT_TRUE(manager->sharedObjects()->sharedObject("AclConfig"));
    EXPECT_EQ(manager->plugins().at(0)->name(), "Acl");
    bringDown();
    EXPECT_FALSE(isOpen(plugin)) << "round " << round;
  }
}

TEST_F(PluginLoader, UnloadingIsRefusedWhileTheAgentHoldsSteps) {
  bringUp();
  const Sentence refusal = loader.unload("VeloAclPlugin");
  ASSERT_TRUE(refusal);
  EXPECT_THAT(*refusal, testing::StartsWith(plugin + " is still in use and stays loaded: "));
  for (const char* type : {"AclPlugin", "VeloAclConfigSharedObject", "DataplaneAclHelper",
                           "DataplaneAclInputStep", "DataplaneAclOutputStep"}) {
    EXPECT_THAT(*refusal, testing::HasSubstr(fmt::format("1 Velo::VeloAcl::{}", type)));
  }
  EXPECT_TRUE(isOpen(plugin));
  EXPECT_EQ(manager->pipeline()->stepCount(), 2u);
  bringDown();
}

TEST_F(PluginLoader, WhatThePluginMadeOfTheAgentsTypesOutlivesTheLibrary) {
  using Acl::AclDirection;
  using Acl::AclType;
  bringUp();
  // One deny-all list and one packet, so that there is a counter.
  const auto cli = Kelp::ptrCast<Acl::Input::Config>(context.entityManager->getEntity("acl/config/cli"));
  const auto bindings =
      Kelp::ptrCast<Acl::IntfConfig>(context.entityManager->getEntity("acl/intf/config/cli"));
  const auto rules = MemSlab::make<Acl::AclSubConfig>();
  rules->macRuleByIdIs(Kiv::UniqueId(uint64_t{7}), {});
  cli->configIs(AclType::mac)->aclIs("L")->currCfgIs(rules);
  bindings->configIs(AclType::mac)->intfIs(AclDirection::in)->intfIs(Nimnet::IntfId("eth1"), "L");
  const auto named = MemSlab::make<Velo::VeloNamedCounters>();
  const auto ctx = MemSlab::make<Velo::PacketContext>(named);
  const TestSupport::Bytes frame = TestSupport::frame().eth().arp("192.0.2.1", "192.0.2.2");
  ctx->pkt()->assign(frame, static_cast<uint32_t>(frame.size()), 0);
  ctx->begin(Nimnet::IntfId("eth1"));
  EXPECT_EQ(manager->pipeline()->process(ctx), nullptr);

  const auto collection = manager->counterHolder()->collection("DpAclInRuleMatches");
  const auto counters = Kelp::ptrCast<Velo::Counter::VeloDpAclCounterColl>(collection);
  const auto counter = counters->counterCollection().begin().value().ptr();
  const auto config =
      Zeb::attributeValue<Kelp::Ptr<Acl::Config>>(*manager->plugins()[0], "aclConfig").value();
  const auto merged =
      Zeb::attributeValue<Kelp::Ptr<Acl::IntfConfig>>(*manager->plugins()[0], "intfConfig").value();
  bringDown();
  ASSERT_FALSE(isOpen(plugin));
  EXPECT_EQ(counters->typeData().name(), "Velo::Counter::VeloDpAclCounterColl");
  EXPECT_EQ(counter->typeData().name(), "Velo::Counter::VeloDpAclCounter");
  EXPECT_EQ(counter->packets(), 1u);
  EXPECT_EQ(config->typeData().name(), "Acl::Config");
  EXPECT_EQ(merged->typeData().name(), "Acl::IntfConfig");
  EXPECT_EQ(merged->parent(), nullptr) << "the owner let go of it";
  EXPECT_EQ(config->parent(), nullptr);
  EXPECT_EQ(counters->parent(), nullptr);
  EXPECT_TRUE(std::as_const(*config).config(AclType::mac)->acl("L")->currCfg());
}

/// A plugin that is part of the program.
class BuiltIn : public Plugin::PluginBase<Velo::PluginContext> {
 public:
  BuiltIn() : PluginBase(Velo::DefaultPluginLoader(), "BuiltInPlugin", "B") {}
  void init(Velo::PluginContext*) override { ++inits; }
  int inits = 0;
};

TEST_F(PluginLoader, APluginOfTheProgramItselfIsInitialisedButNotUnloaded) {
  BuiltIn builtIn;
  EXPECT_EQ(loader.plugins().at(0).kind, loader.kind()) << "registration names the loader's own kind";
  loader.callInit(&context);
  loader.callInit(&context, "BuiltInPlugin");
  loader.callInit(&context, "Other");
  EXPECT_EQ(builtIn.inits, 2);
  EXPECT_EQ(loader.unload("BuiltInPlugin"), "BuiltInPlugin is part of the program and cannot be unloaded");
}

}  // namespace
