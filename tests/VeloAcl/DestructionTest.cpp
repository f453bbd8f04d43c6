#include "../Acl/ChangeLog.h"
#include "World.h"

// In which order the plugin takes back what it has made.

namespace {

using namespace TestSupport;
using Velo::VeloAcl::AclPlugin;

/// Takes the place of the home of one object, and writes down that the object has gone.
class Watched final : public Kelp::NodeHome {
 public:
  template <class T>
  Watched(const Kelp::Ptr<T>& object, const char* name, Lines& gone)
      : home_(MemSlab::slabOf<T>()), name_(name), gone_(gone) {
    object->nodeHomeIs(this);
  }
  void giveBack(void* place) override {
    gone_.emplace_back(name_);
    home_.giveBack(place);
  }

 private:
  MemSlab::Slab& home_;
  const char* const name_;
  Lines& gone_;
};

/// A plugin whose parts it alone holds: none of them is built over another.
class Destruction : public testing::Test {
 protected:
  using Counters = AclPlugin::Counters;

  Destruction() {
    const auto other = MemSlab::make<Acl::Config>();
    const auto intfs = Acl::intfConfigFactory("i");
    const auto counters = MemSlab::make<Counters>("c", CtrPool::FeatureId(1));
    Rix::SmControl synchronous;
    synchronous.mode = Rix::SmControl::synchronous;
    plugin->aclConfigSOIs(other);
    plugin->aclAggregatorSmIs(nullptr, nullptr, other);
    plugin->aclHelperIs(nullptr, nullptr, nullptr, nullptr, nullptr, nullptr, nullptr);
    plugin->inputStepIs(nullptr);
    plugin->outputStepIs(nullptr);
    plugin->inCountersIs("in", CtrPool::FeatureId(4));
    plugin->macOutCountersIs("mac", CtrPool::FeatureId(3));
    plugin->ipOutCountersIs("ip", CtrPool::FeatureId(1));
    plugin->ip6OutCountersIs("ip6", CtrPool::FeatureId(2));
    plugin->dpAclStatusSmIs(other, intfs, counters, counters, counters, counters,
                            MemSlab::make<Acl::StatusDp>(), synchronous);
    plugin->intfConfigIs(Acl::intfConfigFactory("merged"));
  }

  Lines gone;
  Kelp::Ptr<AclPlugin> plugin = Velo::VeloAcl::aclPluginFactory("Acl");
};

TEST_F(Destruction, TheAttributesAreRemovedInTheirOrder) {
  [[maybe_unused]] const Watched watched[] = {
      {plugin->aclConfig(), "aclConfig", gone},
      {plugin->aclConfigSO(), "aclConfigSO", gone},
      {plugin->aclAggregatorSm(), "aclAggregatorSm", gone},
      {plugin->aclHelper(), "aclHelper", gone},
      {plugin->inputStep(), "inputStep", gone},
      {plugin->outputStep(), "outputStep", gone},
      {plugin->inCounters(), "inCounters", gone},
      {plugin->macOutCounters(), "macOutCounters", gone},
      {plugin->ipOutCounters(), "ipOutCounters", gone},
      {plugin->ip6OutCounters(), "ip6OutCounters", gone},
      {plugin->dpAclStatusSm(), "dpAclStatusSm", gone},
  };
  plugin = nullptr;
  EXPECT_EQ(gone,
            (Lines{"aclConfig", "aclConfigSO", "aclAggregatorSm", "aclHelper", "inputStep", "outputStep",
                   "inCounters", "macOutCounters", "ipOutCounters", "ip6OutCounters", "dpAclStatusSm"}));
}

TEST_F(Destruction, EveryEntityItMadeLosesItsParent) {
  const Kelp::Ptr<Zeb::Entity> made[] = {
      plugin->aclConfig(),      plugin->aclConfigSO(),   plugin->intfConfig(),     plugin->inCounters(),
      plugin->macOutCounters(), plugin->ipOutCounters(), plugin->ip6OutCounters(), plugin->dpAclStatusSm()};
  for (const auto& each : made) EXPECT_EQ(each->parent(), plugin.get()) << each->typeData().name();
  plugin = nullptr;
  for (const auto& each : made) EXPECT_EQ(each->parent(), nullptr) << each->typeData().name();
}

/// On the stack nobody but the destructor itself ends its life as a node.
TEST(DestructionOnTheStack, NothingIsAnnouncedFromItsFirstStepOn) {
  ChangeLog* log = nullptr;
  std::unique_ptr<ChangeLog> owner;
  {
    AclPlugin plugin("Acl");
    owner = std::make_unique<ChangeLog>(plugin);
    log = owner.get();
    plugin.inCountersIs("in", CtrPool::FeatureId(4));
    EXPECT_EQ(log->names(), Lines{"inCounters"});
    log->clear();
  }
  EXPECT_EQ(log->names(), Lines{});
}

}  // namespace
