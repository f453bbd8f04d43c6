#include <Blip/FastTrace.h>
#include <Blip/Ring.h>
#include <VeloAcl/VeloPlugin/AclVeloPlugin.h>
#include <Zeb/LogHandle.h>
#include <Zeb/TypeModule.h>

#include "World.h"

// The library's globals, which this program has linked in: types, log messages and the instance.

namespace {

using namespace TestSupport;
using Velo::VeloAcl::AclPlugin;

class Registration : public testing::Test {
 protected:
  ~Registration() override {
    Blip::fastTraceIs("Acl", false);
    Zeb::TraceHandle::disableAll();
    for (const auto& plugin : loader.plugins()) plugin.initCaller->letGo();
    Blip::ring().clear();
  }
  Kelp::Ptr<Velo::VeloPluginBase> current() const {
    return agent.manager.plugins().empty() ? nullptr : agent.manager.plugins().back();
  }
  AgentSide agent;
  Plugin::Loader<Velo::PluginContext>& loader = Velo::DefaultPluginLoader();
};

TEST_F(Registration, NamesThePluginToTheLoader) {
  ASSERT_EQ(loader.plugins().size(), 1u);
  const auto& plugin = loader.plugins()[0];
  EXPECT_EQ(plugin.name, "VeloAclPlugin");
  EXPECT_EQ(plugin.kind, loader.kind());
  EXPECT_EQ(plugin.shortName, "Acl");
  EXPECT_EQ(plugin.options, "");
  EXPECT_EQ(plugin.interfaceVersion, Plugin::interfaceVersion);
  EXPECT_NE(plugin.initCaller, nullptr);
}

TEST_F(Registration, TheTypesOfEveryUnitAreKnownByNameAndMadeFromArguments) {
  const std::any name = Kelp::String("p");
  const auto plugin =
      Kelp::ptrCast<AclPlugin>(Zeb::constructByName("Velo::VeloAcl::AclPlugin", std::span(&name, 1)));
  ASSERT_TRUE(plugin);
  EXPECT_EQ(plugin->name(), "p");
  const auto config = MemSlab::make<Acl::Config>();
  const std::any argument = config;
  EXPECT_TRUE(Zeb::constructByName("Velo::VeloAcl::VeloAclConfigSharedObject", std::span(&argument, 1)));
  const std::any helper = Kelp::Ptr<Velo::VeloAcl::DataplaneAclHelper>();
  for (const char* step : {"Velo::VeloAcl::DataplaneAclInputStep", "Velo::VeloAcl::DataplaneAclOutputStep"}) {
    EXPECT_TRUE(Zeb::constructByName(step, std::span(&helper, 1))) << step;
    EXPECT_FALSE(Zeb::constructByName(step, std::span(&name, 1))) << "from another argument it is not";
  }
  EXPECT_NE(Zeb::typeByName("Velo::VeloAcl::DataplaneAclHelper"), nullptr);
}

TEST_F(Registration, InitMakesThePluginAndRecordsIt) {
  EXPECT_EQ(current(), nullptr);
  loader.callInit(&agent.context);
  const auto plugin = Kelp::ptrCast<AclPlugin>(current());
  ASSERT_TRUE(plugin);
  EXPECT_EQ(plugin->name(), "Acl");
  EXPECT_EQ(plugin->pluginCtx(), &agent.context);
  EXPECT_EQ(plugin->manager(), &agent.manager);
  EXPECT_EQ(plugin->nodeUseCount(), 3u) << "the instance, the framework and this test";
}

TEST_F(Registration, ASecondInitReplacesThePluginAndReleasesTheOldOne) {
  loader.callInit(&agent.context);
  auto first = current();
  loader.callInit(&agent.context);
  EXPECT_NE(current(), first);
  EXPECT_EQ(agent.manager.plugins().size(), 1u);
  EXPECT_EQ(first->nodeUseCount(), 1u) << "only this test has it still";
}

TEST_F(Registration, WithTracingOffInitWritesNothing) {
  Blip::ring().clear();
  TraceCapture traces;
  loader.callInit(&agent.context);
  EXPECT_TRUE(traces.lines().empty());
  EXPECT_EQ(Blip::ring().lineCount(), 0u);
}

TEST_F(Registration, InitWritesAFastTraceWhenThatIsOn) {
  Blip::fastTraceIs("Acl", true);
  Blip::ring().clear();
  loader.callInit(&agent.context);
  EXPECT_EQ(Blip::ring().lines(), Lines{"VeloAcl/VeloPlugin/AclVeloPlugin:381 Acl"});
}

TEST_F(Registration, InitWritesADualTraceWhenItsFacilityIsOn) {
  ASSERT_EQ(Zeb::TraceHandle::enable("Velo::Acl/0"), std::nullopt);
  Blip::ring().clear();
  TraceCapture traces;
  loader.callInit(&agent.context);
  ASSERT_EQ(traces.lines().size(), 1u);
  const TraceLine& line = traces.lines()[0];
  EXPECT_EQ(line.text,
            "virtual void Velo::VeloAcl::VeloAclPluginInst::init(Velo::PluginContext*) loaded Acl plugin");
  EXPECT_EQ(line.facility, "Velo::Acl");
  EXPECT_EQ(line.level, 0);
  EXPECT_EQ(line.file, "VeloAcl/VeloPlugin/AclVeloPlugin");
  EXPECT_EQ(line.line, 381);
  EXPECT_EQ(line.function, "init");
  EXPECT_EQ(Blip::ring().lineCount(), 1u) << "the other of the two outputs";
}

TEST(LogMessages, TheSixAreInTheCatalogueInOrder) {
  struct Row {
    const char *name, *format, *explanation, *action;
    int severity;
    double interval;
  };
  const Row rows[] = {
      {"ACL_IPACCESS", "%slist %s%s %s %s",
       "A packet has matched one of the rules with 'log' option in the specified IP access-list.", "\x01", 6,
       0},
      {"ACL_IPACCESS2", "%slist %s%s %s %s",
       "A packet has matched one of the rules with 'log' option in the specified IP access-list.", "\x01", 5,
       0},
      {"ACL_IP6ACCESS", "%slist %s %s %s %s %s -> %s%s",
       "A packet has matched one of the rules with 'log' option in the specified IPv6 access-list.", "\x01",
       6, 0},
      {"ACL_MACACCESS", "%slist %s %s %s %s %s -> %s %s",
       "A packet has matched one of the rules with 'log' option in the specified MAC access-list.", "\x01", 6,
       0},
      {"ACL_DISCONTIG_MASK", "ACL with unsupported discontiguous mask (%s)",
       "The switch is unable to enforce this rule. It will be ignored.",
       "Reconfigure the ACL to use contiguous masks.", 4, 0},
      {"ACL_KERNEL_TABLE_MANAGEMENT_FAILURE", "%s command failed to manage rules in the kernel",
       "The kernel rejected the rules that the agent desired to manage. This is likely to be a kernel "
       "mismatch in "
       "cOrbi-lab.",
       "See the Acl agent log for details.", 3, 1},
  };
  std::vector<const Zeb::LogHandle*> found;
  for (const auto* handle : Zeb::LogHandle::catalogue()) {
    if (std::string_view(handle->descriptor().name).starts_with("ACL_")) found.push_back(handle);
  }
  ASSERT_EQ(found.size(), std::size(rows));
  for (size_t i = 0; i < found.size(); ++i) {
    const Zeb::LogDescriptor& descriptor = found[i]->descriptor();
    EXPECT_STREQ(descriptor.name, rows[i].name);
    EXPECT_STREQ(descriptor.format, rows[i].format) << rows[i].name;
    EXPECT_STREQ(descriptor.explanation, rows[i].explanation) << rows[i].name;
    EXPECT_STREQ(descriptor.action, rows[i].action) << rows[i].name;
    EXPECT_EQ(descriptor.severity, rows[i].severity) << rows[i].name;
    EXPECT_EQ(descriptor.zero, 0u) << rows[i].name;
    EXPECT_EQ(found[i]->minInterval(), Kelp::Duration(rows[i].interval)) << rows[i].name;
    EXPECT_EQ(found[i]->intervalFactor(), 1.0) << rows[i].name;
    EXPECT_EQ(found[i]->burst(), 0u) << rows[i].name;
    EXPECT_EQ(found[i]->emissionLimit(), 0u) << rows[i].name;
  }
  EXPECT_STREQ(found[0]->descriptor().format, found[1]->descriptor().format) << "the two share one text";
}

}  // namespace
