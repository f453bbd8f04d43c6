#include <Acl/IntfConfigSm.h>
#include <gtest/gtest.h>

#include <map>
#include <random>
#include <string>

#include "ChangeLog.h"

namespace {

using Acl::AclDirection;
using Acl::AclType;
using Nimnet::IntfId;
using Names = std::vector<Kelp::String>;

/// Bindings as text: "ip in eth1=A, mac out eth2=B", in a fixed order.
std::string shown(const Acl::IntfConfig& config) {
  std::map<std::string, std::string> all;
  for (auto type = config.config().begin(); type; type.next()) {
    for (auto direction = type.value()->intf().begin(); direction; direction.next()) {
      for (auto intf = direction.value()->intf().begin(); intf; intf.next()) {
        all[fmt::format("{} {} {}", type.key(), direction.key(), intf.key())] = intf.value().str();
      }
    }
  }
  std::string text;
  for (const auto& [binding, list] : all) text += (text.empty() ? "" : ", ") + binding + "=" + list;
  return text;
}

void bind(Acl::IntfConfig& config, const Kelp::String& list, AclType type = AclType::ip,
          AclDirection direction = AclDirection::in, const char* intf = "eth1") {
  config.configIs(type)->intfIs(direction)->intfIs(IntfId(intf), list);
}

class IntfConfigSm : public testing::Test {
 protected:
  Kelp::Ptr<Acl::IntfConfig> input(const Kelp::String& name) {
    const auto made = Acl::intfConfigFactory(name);
    dir->entryIs(made);
    return made;
  }
  /// In the order in which the plugin puts things together.
  void start(bool withCli = true, bool withDir = true) {
    view = MemSlab::make<Hive::DirMerged>("aclIntfConfig");
    view->addPtr(withCli ? cli : nullptr);
    merge = Hive::DirMergeSm::DirMergeSmIs(view);
    merge->addInputDir(withDir ? dir : nullptr);
    sm = AclAgent::intfConfigSmFactory(view, target);
  }
  Names sources() const { return sm->sources(AclType::ip, AclDirection::in, IntfId("eth1")); }

  /// Takes the binding of eth1 away; whoever is told of that binds eth2, unbinds it, and binds eth3.
  void unbindWhileASubscriberBindsAnew() {
    const auto given = cli->config(AclType::ip)->intf(AclDirection::in);
    ChangeLog bindings(*target->config(AclType::ip)->intf(AclDirection::in));
    bool once = true;
    bindings.then = [&](const Zeb::Change&) {
      if (!std::exchange(once, false)) return;
      bind(*cli, "D", AclType::ip, AclDirection::in, "eth2");
      cli->config(AclType::ip)->intf(AclDirection::in)->intfDel(IntfId("eth2"));
      bind(*cli, "E", AclType::ip, AclDirection::in, "eth3");
    };
    given->intfDel(IntfId("eth1"));
  }

  const Kelp::Ptr<Zeb::Dir> dir = MemSlab::make<Zeb::Dir>();
  const Kelp::Ptr<Acl::IntfConfig> cli = Acl::intfConfigFactory("cli");
  const Kelp::Ptr<Acl::IntfConfig> target = Acl::intfConfigFactory("merged");
  Kelp::Ptr<Hive::DirMerged> view;
  Kelp::Ptr<Hive::DirMergeSm> merge;
  Kelp::Ptr<AclAgent::IntfConfigSm> sm;
};

TEST_F(IntfConfigSm, TheCommandLineWinsThenTheFirstByName) {
  start();
  const auto z = input("z"), b = input("b");
  bind(*z, "Z");
  EXPECT_EQ(shown(*target), "ip in eth1=Z");
  bind(*b, "B");
  EXPECT_EQ(shown(*target), "ip in eth1=B");
  bind(*cli, "C");
  EXPECT_EQ(shown(*target), "ip in eth1=C");
  EXPECT_EQ(sources(), (Names{"cli", "b", "z"})) << "the one in force first";
  EXPECT_EQ(sm->sources(AclType::ip, AclDirection::out, IntfId("eth1")), Names{});
}

TEST_F(IntfConfigSm, WhenTheWinnerGoesTheNextTakesOverInPlace) {
  const auto a = input("a"), b = input("b");
  bind(*cli, "C"), bind(*a, "A"), bind(*b, "B");
  start();
  ChangeLog bindings(*target->config(AclType::ip)->intf(AclDirection::in));
  ChangeLog directions(*target->config(AclType::ip));
  ChangeLog types(*target);
  cli->config(AclType::ip)->intf(AclDirection::in)->intfDel(IntfId("eth1"));
  EXPECT_EQ(shown(*target), "ip in eth1=A");
  a->configDel(AclType::ip);
  EXPECT_EQ(shown(*target), "ip in eth1=B");
  EXPECT_EQ(bindings.names().size(), 2u) << "one write each";
  EXPECT_TRUE(directions.names().empty() && types.names().empty()) << "nothing was taken out in between";
  dir->entryDel("b");
  EXPECT_EQ(shown(*target), "");
  EXPECT_TRUE(target->config().empty()) << "empty levels go, too";
  EXPECT_EQ(sources(), Names{});
}

TEST_F(IntfConfigSm, EveryKindDirectionAndInterfaceIsABindingOfItsOwn) {
  const auto a = input("a");
  bind(*a, "A", AclType::ip, AclDirection::in, "eth1");
  bind(*a, "A", AclType::ip, AclDirection::out, "eth1");
  bind(*cli, "C", AclType::mac, AclDirection::in, "eth1");
  bind(*cli, "C", AclType::ip, AclDirection::in, "eth2");
  start();
  EXPECT_EQ(shown(*target), "ip in eth1=A, ip in eth2=C, ip out eth1=A, mac in eth1=C")
      << "sources are merged binding by binding";
}

TEST_F(IntfConfigSm, DifferencesOnly) {
  const auto a = input("a");
  bind(*cli, "C"), bind(*cli, "D", AclType::ip, AclDirection::in, "eth2"), bind(*a, "A");
  start();
  ChangeLog bindings(*target->config(AclType::ip)->intf(AclDirection::in));
  bind(*cli, "C");
  bind(*a, "OTHER");
  EXPECT_EQ(bindings.names().size(), 0u) << "an equal write and an overridden one are no change";
  bind(*cli, "NEW");
  EXPECT_EQ(bindings.names().size(), 1u);
  EXPECT_EQ(shown(*target), "ip in eth1=NEW, ip in eth2=D");
  cli->config(AclType::ip)->intf(AclDirection::in)->intfDel(IntfId("eth2"));
  EXPECT_EQ(bindings.names().size(), 2u);
}

TEST_F(IntfConfigSm, AnEmptyNameBindsNothing) {
  const auto a = input("a");
  bind(*a, "A");
  start();
  bind(*cli, "");
  EXPECT_EQ(shown(*target), "ip in eth1=A") << "so the next source is in force";
  bind(*cli, "C");
  bind(*cli, "");
  EXPECT_EQ(shown(*target), "ip in eth1=A") << "and a binding that becomes empty is taken back";
}

TEST_F(IntfConfigSm, SourcesMayBeMissing) {
  bind(*cli, "C");
  bind(*input("a"), "A");
  start(false, false);
  EXPECT_EQ(shown(*target), "");
  start(false, true);
  EXPECT_EQ(shown(*target), "ip in eth1=A");
  start(true, false);
  EXPECT_EQ(shown(*target), "ip in eth1=C");
}

TEST_F(IntfConfigSm, EntriesThatAreNoBindingsAreLeftOut) {
  start();
  dir->entryIs(MemSlab::make<Acl::Input::Config>(Kelp::String("a")));
  EXPECT_EQ(shown(*target), "");
  bind(*input("a"), "A");
  EXPECT_EQ(shown(*target), "ip in eth1=A");
}

TEST_F(IntfConfigSm, DestructionLeavesTheTargetAsItIs) {
  bind(*cli, "C");
  start();
  sm = nullptr;
  bind(*cli, "D");
  EXPECT_EQ(shown(*target), "ip in eth1=C");
}

TEST_F(IntfConfigSm, ASubscriberThatBindsAnewWhileALastBindingGoesGetsItsWay) {
  bind(*cli, "C");
  start();
  unbindWhileASubscriberBindsAnew();
  EXPECT_EQ(shown(*target), "ip in eth3=E");
}

TEST_F(IntfConfigSm, SoDoesOneWhoseNewBindingHasAnotherDirectionBesideIt) {
  bind(*cli, "C");
  bind(*cli, "O", AclType::ip, AclDirection::out, "eth1");
  start();
  unbindWhileASubscriberBindsAnew();
  const auto in = target->config(AclType::ip)->intf(AclDirection::in);
  ASSERT_NE(in, nullptr);
  EXPECT_EQ(in->intf().size(), 1u);
  EXPECT_NE(target->config(AclType::ip)->intf(AclDirection::out), nullptr);
}

TEST_F(IntfConfigSm, RandomHistoriesAlwaysAddUp) {
  constexpr const char* intfs[] = {"eth1", "eth2"};
  constexpr const char* lists[] = {"", "A", "B", "C"};
  start();
  std::mt19937 random(1);
  const auto below = [&](uint32_t bound) { return random() % bound; };
  std::map<std::string, Kelp::Ptr<Acl::IntfConfig>> all{{"cli", cli}};
  for (const char* name : {"p", "q", "r"}) all[name] = Acl::intfConfigFactory(name);
  for (int step = 0; step < 20000; ++step) {
    const auto source = std::next(all.begin(), below(4))->second;
    const AclType type = static_cast<AclType>(below(3));
    const AclDirection direction = static_cast<AclDirection>(below(2));
    const char* intf = intfs[below(2)];
    const auto directions = source->config(type);
    const auto bindings = directions ? directions->intf(direction) : nullptr;
    switch (below(8)) {
      case 0:
        if (source != cli)
          dir->entry(source->name()) ? (void)dir->entryDel(source->name()) : (void)dir->entryIs(source);
        break;
      case 1:
        source->configDel(type);
        break;
      case 2:
        if (directions) directions->intfDel(direction);
        break;
      case 3:
        if (bindings) bindings->intfDel(IntfId(intf));
        break;
      default:
        bind(*source, lists[below(4)], type, direction, intf);
    }
    const auto wanted = Acl::intfConfigFactory("wanted");
    for (AclType t : {AclType::ip, AclType::ipv6, AclType::mac}) {
      for (AclDirection d : {AclDirection::in, AclDirection::out}) {
        for (const char* i : intfs) {
          for (const auto& [name, s] : all) {  // "cli" sorts before the others
            if (s != cli && !dir->entry(name)) continue;
            const auto ds = std::as_const(*s).config(t);
            const auto b = ds ? ds->intf(d) : nullptr;
            const Kelp::String* list = b ? b->intf(IntfId(i)) : nullptr;
            if (!list || list->empty()) continue;
            bind(*wanted, *list, t, d, i);
            break;
          }
        }
      }
    }
    ASSERT_EQ(shown(*target), shown(*wanted)) << "step " << step;
  }
}

}  // namespace
