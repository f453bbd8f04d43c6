#include <VeloAcl/VeloPlugin/BoundLists.h>

#include "World.h"

// The searches that the packet path remembers: what they found is what a search would find now.

namespace {

using namespace TestSupport;

class BoundLists : public testing::Test {
 protected:
  BoundLists() {
    bind(AclType::ip, in, "eth1", "L");
    config->configIs(AclType::ip)->aclIs("L");
  }
  void bind(AclType type, AclDirection direction, const char* intf, const char* name) {
    bindings->configIs(type)->intfIs(direction)->intfIs(IntfId(intf), name);
  }
  std::string found(AclType type = AclType::ip, AclDirection direction = in, const char* intf = "eth1") {
    const auto& bound = lists.find(IntfId(intf), direction, type);
    EXPECT_EQ(bound.bound, !bound.name.empty());
    if (!bound.bound) return "nothing bound";
    if (!bound.list) return bound.typeKnown ? "no such list" : "no list of the type";
    EXPECT_EQ(bound.list->name(), bound.name);
    return bound.name.str();
  }

  const Kelp::Ptr<Acl::IntfConfig> bindings = Acl::intfConfigFactory("i");
  const Kelp::Ptr<Acl::Config> config = MemSlab::make<Acl::Config>();
  /// One place only, so that all searches meet in it.
  Velo::VeloAcl::BoundListsOf<1> lists{bindings.get(), config.get()};
};

TEST_F(BoundLists, SearchesThatShareAPlaceKeepApart) {
  bind(AclType::ip, in, "eth2", "L2");
  bind(AclType::ip, out, "eth1", "LO");
  bind(AclType::mac, in, "eth1", "LM");
  config->configIs(AclType::ip)->aclIs("L2");
  config->configIs(AclType::ip)->aclIs("LO");
  config->configIs(AclType::mac)->aclIs("LM");
  struct Row {
    const char* why;
    AclType type;
    AclDirection direction;
    const char *intf, *list;
  };
  const Row rows[] = {
      {"another interface", AclType::ip, in, "eth2", "L2"},
      {"another direction", AclType::ip, out, "eth1", "LO"},
      {"another type", AclType::mac, in, "eth1", "LM"},
  };
  for (const auto& [why, type, direction, intf, list] : rows) {
    EXPECT_EQ(found(), "L") << why;
    EXPECT_EQ(found(type, direction, intf), list) << why;
  }
}

/// A change of one of the five collections that a search goes through, and that collection's own count.
struct ChangeOf {
  const char* collection;
  std::function<void(Acl::IntfConfig&, Acl::Config&)> change;
  std::function<void(Acl::IntfConfig&, Acl::Config&, uint64_t)> advance;
  const char* found;
};

template <class Map>
void advance(const Map& map, uint64_t by) {
  const_cast<Map&>(map).advanceVersion(by);
}
Acl::IntfTypeConfig& bindingsOfIp(Acl::IntfConfig& bindings) { return *bindings.configIs(AclType::ip); }

const ChangeOf eachChange[] = {
    {"the types of bindings", [](auto& bindings, auto&) { bindings.configDel(AclType::ip); },
     [](auto& bindings, auto&, uint64_t by) { advance(bindings.config(), by); }, "nothing bound"},
    {"the directions", [](auto& bindings, auto&) { bindingsOfIp(bindings).intfDel(in); },
     [](auto& bindings, auto&, uint64_t by) { advance(bindingsOfIp(bindings).intf(), by); }, "nothing bound"},
    {"the interfaces",
     [](auto& bindings, auto&) { bindingsOfIp(bindings).intfIs(in)->intfDel(IntfId("eth1")); },
     [](auto& bindings, auto&, uint64_t by) { advance(bindingsOfIp(bindings).intfIs(in)->intf(), by); },
     "nothing bound"},
    {"the types of lists", [](auto&, auto& config) { config.configDel(AclType::ip); },
     [](auto&, auto& config, uint64_t by) { advance(config.config(), by); }, "no list of the type"},
    {"the lists", [](auto&, auto& config) { config.configIs(AclType::ip)->aclDel("L"); },
     [](auto&, auto& config, uint64_t by) { advance(config.configIs(AclType::ip)->acl(), by); },
     "no such list"},
};

class BoundListsAfter : public BoundLists, public testing::WithParamInterface<ChangeOf> {
 protected:
  // Held, so that a search that is wrongly taken to hold reads what was, not freed memory.
  const Kelp::Ptr<Acl::IntfTypeConfig> ofType = bindings->configIs(AclType::ip);
  const Kelp::Ptr<Acl::AclIntf> ofDirection = ofType->intfIs(in);
  const Kelp::Ptr<Acl::AclTypeConfig> ofLists = config->configIs(AclType::ip);
  const Kelp::Ptr<Acl::AclConfig> list = ofLists->aclIs("L");
};

TEST_P(BoundListsAfter, AChangeTheSearchIsMadeAnew) {
  EXPECT_EQ(found(), "L");
  GetParam().change(*bindings, *config);
  EXPECT_EQ(found(), GetParam().found);
}

TEST_P(BoundListsAfter, AsManyChangesAsTheVersionCountsTheSearchIsMadeAnew) {
  EXPECT_EQ(found(), "L");
  GetParam().change(*bindings, *config);
  GetParam().advance(*bindings, *config, 0x7fffff);
  EXPECT_EQ(found(), GetParam().found) << "2^23 changes in all: the version is what it was";
}

INSTANTIATE_TEST_SUITE_P(, BoundListsAfter, testing::ValuesIn(eachChange), [](const auto& each) {
  std::string name = each.param.collection;
  std::replace(name.begin(), name.end(), ' ', '_');
  return name;
});

TEST_F(BoundLists, WhatIsPutInPlaceOfSomethingIsFound) {
  EXPECT_EQ(found(), "L");
  bindings->configDel(AclType::ip);
  config->configDel(AclType::ip);
  // From the same slabs, with as many changes as before.
  bind(AclType::ip, in, "eth1", "M");
  config->configIs(AclType::ip)->aclIs("M");
  EXPECT_EQ(found(), "M");
}

TEST_F(BoundLists, NothingUnboundIsEnforcedAfterEveryNumberOfRebindings) {
  Velo::VeloAcl::BoundLists real(bindings.get(), config.get());
  const auto& intfs = bindings->configIs(AclType::ip)->intfIs(in);
  EXPECT_TRUE(real.find(IntfId("eth1"), in, AclType::ip).bound);
  const Kelp::String names[] = {"L", "M"};
  const IntfId eth1("eth1");
  for (int i = 1; i < 0x800000; ++i) intfs->intfIs(eth1, names[i % 2]);
  intfs->intfDel(eth1);
  EXPECT_FALSE(real.find(eth1, in, AclType::ip).bound) << "after 2^23 changes";
}

}  // namespace
