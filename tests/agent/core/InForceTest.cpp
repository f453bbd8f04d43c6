#include <agent/change/Apply.h>
#include <agent/config/Reader.h>
#include <agent/core/Core.h>
#include <agent/core/TaskLoop.h>
#include <gtest/gtest.h>

namespace {

using Agent::Core;

/// What another plugin may share under a name that this one uses.
class Stranger final : public Velo::SharedObject {
  ZEB_ENTITY(Stranger, Velo::SharedObject)

 public:
  explicit Stranger(const char* name) : SharedObject(name) {}
};

bool knowsNothing(const Agent::InForce& inForce) {
  return !inForce.lists() && !inForce.list(Acl::AclType::ip, "A") && !inForce.status() &&
         !inForce.bindings() && !inForce.listSources() && !inForce.bindingSources() &&
         inForce.counters().empty() && !inForce.unpublished();
}

TEST(InForce, IsWhatTheLoadedPluginSharesAndPublishes) {
  Kiv::ManualClock clock;
  Agent::TaskLoop tasks(clock);
  Core core;
  EXPECT_TRUE(knowsNothing(core.inForce())) << "no plugin is loaded";

  const auto model =
      *Config::read({{"t", "ip access-list A\n permit ip any any\ninterface eth1\n ip access-group A in\n"}})
           .model;
  ASSERT_FALSE(putInForce(core, {model, {}}));
  EXPECT_TRUE(knowsNothing(core.inForce())) << "no plugin has merged it";

  ASSERT_FALSE(core.loadPlugin(std::string(VELO_BIN_DIR) + "/VeloAcl.so"));
  ASSERT_TRUE(core.inForce().list(Acl::AclType::ip, "A"));
  EXPECT_FALSE(core.inForce().list(Acl::AclType::ip, "B"));
  EXPECT_FALSE(core.inForce().list(Acl::AclType::mac, "A"));
  EXPECT_EQ(core.inForce().lists()->config(Acl::AclType::ip)->acl().size(), 1u);
  EXPECT_EQ(core.inForce().bindings()->config().size(), 1u);
  EXPECT_EQ(core.inForce().listSources()->sources(Acl::AclType::ip, "A").size(), 1u);
  EXPECT_EQ(core.inForce()
                .bindingSources()
                ->sources(Acl::AclType::ip, Acl::AclDirection::in, Nimnet::IntfId("eth1"))
                .size(),
            1u);
  EXPECT_EQ(core.inForce().status(), Kelp::Ptr<const Acl::StatusDp>(core.mountedStatus()));
  tasks.settle();
  EXPECT_EQ(core.inForce().unpublished(), std::nullopt);
  EXPECT_TRUE(core.inForce().statusOf(Acl::AclType::ip, "A"));
  EXPECT_FALSE(core.inForce().statusOf(Acl::AclType::ip, "B"));
  EXPECT_FALSE(core.inForce().statusOf(Acl::AclType::mac, "A"));
  const auto lists = core.mountedStatus()->status(Acl::AclType::ip);
  lists->intfDel(Acl::AclDirection::in);
  EXPECT_EQ(core.inForce().unpublished(),
            "interface eth1: ip access-group A in was not published by the plugin");
  lists->aclDel("A");
  EXPECT_EQ(core.inForce().unpublished(), "ip access-list A was not published by the plugin");

  ASSERT_FALSE(core.unloadPlugin());
  EXPECT_TRUE(knowsNothing(core.inForce())) << "it has gone";
}

TEST(InForce, IsNothingWhenSomethingElseIsSharedUnderTheName) {
  Core core;
  core.manager().sharedObjects()->sharedObjectIs(MemSlab::make<Stranger>("AclMerged"));
  EXPECT_TRUE(knowsNothing(core.inForce()));
}

}  // namespace
