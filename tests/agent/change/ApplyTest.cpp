#include <agent/change/Apply.h>
#include <gtest/gtest.h>

#include "../support/ModelOf.h"

#include <map>

namespace {

using Acl::AclType;
using TestSupport::modelOf;

/// Counts what is written to anything below an entity that it is subscribed to.
class ChangeCount final : public Zeb::Notifiee {
 public:
  void handleChange(const Zeb::Change&) override { ++count; }
  int count = 0;
};

class ApplyTest : public testing::Test {
 protected:
  void lists(const char* text) { Agent::applyLists(modelOf(text), source_); }
  void bindings(const char* text) { Agent::applyBindings(modelOf(text), bindings_); }

  /// The ids of an IPv4 list's rules by number.
  std::map<uint32_t, Kiv::UniqueId> ids(const char* list = "A") {
    std::map<uint32_t, Kiv::UniqueId> found;
    for (const auto* entry : rules(list).ordered()) found[entry->value.sequence()] = entry->key;
    return found;
  }
  const Acl::RuleMap<Acl::IpRuleConfig>& rules(const char* list = "A") {
    return source_->config(AclType::ip)->acl(list)->currCfg()->ipRuleById();
  }

  const Kelp::Ptr<Acl::Input::Config> source_ = MemSlab::make<Acl::Input::Config>("source");
  const Kelp::Ptr<Acl::IntfConfig> bindings_ = MemSlab::make<Acl::IntfConfig>("bindings");
};

TEST_F(ApplyTest, ARuleThatDoesNotChangeKeepsItsId) {
  lists("ip access-list A\n 10 permit tcp any any\n 20 deny udp any any\n 30 permit ip any any\n");
  const auto before = ids();
  lists("ip access-list A\n 5 permit icmp any any\n 10 permit tcp any any\n 20 deny udp any any eq 53\n");
  const auto after = ids();
  ASSERT_EQ(after.size(), 3u);
  EXPECT_EQ(after.at(10), before.at(10)) << "nothing of this rule changed";
  EXPECT_NE(after.at(20), before.at(20)) << "another rule took the number";
  EXPECT_NE(after.at(5), before.at(30)) << "the id of a rule that went is not given to another";
}

TEST_F(ApplyTest, RemarkAndSpellingAreWrittenUnderTheSameId) {
  lists("ip access-list A\n remark old\n 10 permit tcp any host 192.0.2.1 eq 80\n");
  const auto before = ids();
  lists("ip access-list A\n remark new\n 10 permit 6 any 192.0.2.1/32 eq www\n");
  EXPECT_EQ(ids(), before);
  EXPECT_EQ(rules().ordered().front()->value.remark(), "new");
  EXPECT_EQ(rules().ordered().front()->value.text(), "permit 6 any 192.0.2.1/32 eq www");
}

TEST_F(ApplyTest, EverythingButRemarkAndSpellingMakesAnotherRule) {
  struct Row {
    const char* why;
    const char* rule;
  };
  for (const Row& row :
       {Row{"the action", "10 deny tcp any any"}, Row{"logging", "10 permit tcp any any log"},
        Row{"mirroring", "10 permit tcp any any mirror session S"},
        Row{"the filter", "10 permit tcp any any syn"}}) {
    lists("ip access-list A\n 10 permit tcp any any\n");
    const auto before = ids();
    lists((std::string("ip access-list A\n ") + row.rule + "\n").c_str());
    EXPECT_NE(ids().at(10), before.at(10)) << row.why;
  }
}

TEST_F(ApplyTest, ARuleThatTakesAnotherNumberKeepsItsId) {
  lists("ip access-list A\n 10 permit tcp any any\n 20 permit udp any any\n");
  const auto before = ids();
  lists("ip access-list A\n 10 deny ip any any\n 20 permit tcp any any\n 30 permit udp any any\n");
  const auto after = ids();
  ASSERT_EQ(after.size(), 3u);
  EXPECT_EQ(after.at(20), before.at(10));
  EXPECT_EQ(after.at(30), before.at(20));
  EXPECT_EQ(rules().atSequence(30)->value.text(), "permit udp any any");
}

TEST_F(ApplyTest, ApplyingTheSameAgainWritesNothing) {
  const char* text =
      "ip access-list A\n 10 permit tcp any any\nipv6 access-list B\n 10 permit ipv6 any any\nmac "
      "access-list C\n";
  lists(text);
  bindings("interface eth1\n ip access-group A in\n");
  ChangeCount changes;
  const auto list = source_->config(AclType::ip)->acl("A");
  source_->publisher().subscribe(changes);
  list->publisher().subscribe(changes);
  list->currCfg()->publisher().subscribe(changes);
  bindings_->config(AclType::ip)->intf(Acl::AclDirection::in)->publisher().subscribe(changes);
  lists(text);
  bindings("interface eth1\n ip access-group A in\n");
  EXPECT_EQ(changes.count, 0);
}

TEST_F(ApplyTest, ANewListIsCompleteBeforeItIsShown) {
  class FirstSight final : public Zeb::Notifiee {
   public:
    explicit FirstSight(const Kelp::Ptr<Acl::AclTypeConfig>& lists) : lists_(lists) {
      lists->publisher().subscribe(*this);
    }
    void handleChange(const Zeb::Change&) override {
      const auto list = lists_->acl("NEW");
      if (list && list->currCfg()) rulesSeen = list->currCfg()->ipRuleById().size();
    }
    size_t rulesSeen = 0;

   private:
    const Kelp::Ptr<Acl::AclTypeConfig> lists_;
  };
  lists("ip access-list A\n");
  const auto type = source_->config(AclType::ip);
  {
    FirstSight sight(type);
    lists("ip access-list A\nip access-list NEW\n permit tcp any any\n permit udp any any\n");
    EXPECT_TRUE(sight.rulesSeen == 0 || sight.rulesSeen == 2) << sight.rulesSeen;
  }
  EXPECT_EQ(rules("NEW").size(), 2u);
}

TEST_F(ApplyTest, AListThatIsNotNamedAnyMoreGoes) {
  lists("ip access-list A\n permit ip any any\nip access-list B\nmac access-list A\n");
  lists("ip access-list B\n");
  EXPECT_FALSE(source_->config(AclType::ip)->acl("A"));
  EXPECT_TRUE(source_->config(AclType::ip)->acl("B"));
  EXPECT_FALSE(source_->config(AclType::mac)) << "a kind without lists goes, too";
  lists("");
  EXPECT_TRUE(source_->config().empty());
}

TEST_F(ApplyTest, AListThatLosesItsRulesStaysDefined) {
  lists("ip access-list A\n permit ip any any\n");
  lists("ip access-list A\n");
  ASSERT_TRUE(source_->config(AclType::ip)->acl("A")->currCfg());
  EXPECT_TRUE(rules().empty());
}

TEST_F(ApplyTest, BindingsAreReplacedAndTakenBack) {
  const auto bound = [this](AclType type, Acl::AclDirection direction, const char* intf) -> std::string {
    const auto types = bindings_->config(type);
    const auto directions = types ? types->intf(direction) : nullptr;
    const Kelp::String* name = directions ? directions->intf(Nimnet::IntfId(intf)) : nullptr;
    return name ? name->str() : "none";
  };
  bindings(
      "interface eth1\n ip access-group A in\n ip access-group A out\ninterface eth2\n mac access-group M "
      "in\n");
  EXPECT_EQ(bound(AclType::ip, Acl::AclDirection::in, "eth1"), "A");
  bindings("interface eth1\n ip access-group B in\ninterface eth3\n ip access-group A out\n");
  EXPECT_EQ(bound(AclType::ip, Acl::AclDirection::in, "eth1"), "B") << "replaced";
  EXPECT_EQ(bound(AclType::ip, Acl::AclDirection::out, "eth1"), "none") << "taken back";
  EXPECT_EQ(bound(AclType::ip, Acl::AclDirection::out, "eth3"), "A") << "new";
  EXPECT_EQ(bound(AclType::mac, Acl::AclDirection::in, "eth2"), "none");
  EXPECT_FALSE(bindings_->config(AclType::mac)) << "a kind without bindings goes";
  bindings("");
  EXPECT_TRUE(bindings_->config().empty());
}

}  // namespace
