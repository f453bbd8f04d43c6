#include <agent/change/SourceEntities.h>
#include <agent/config/Writer.h>
#include <agent/workers/Handover.h>
#include <gtest/gtest.h>

#include "../../support/Dice.h"
#include "../config/RandomText.h"
#include "../support/ModelOf.h"

#include <string>

namespace {

using namespace Agent;
using namespace TestSupport;

/// What is to be written, with the ids that are known.
std::string wordsOf(const SourceChange& change) {
  std::string text;
  for (const ListChange& list : change.lists) {
    text += fmt::format("{} {}:", static_cast<int>(list.key.first), list.key.second);
    for (const uint32_t gone : list.gone) text += fmt::format(" -{}", gone);
    for (const auto& [rule, from, id] : list.written)
      text += fmt::format(" {}<{}={}", Config::common(*rule).sequence, from, id);
    text += "\n";
  }
  for (const auto& [key, list] : change.bindings) text += key.interface + "=" + list + "\n";
  return text;
}

/// A change as Commit hands it to partners.
SourceChange ordered(const Sources& sources, const std::string& source, const Config::Model* now) {
  SourceChange change = sourceChange(sources, source, now);
  if (now) change.text = std::make_shared<const std::string>(Config::textOf(*now));
  for (ListChange& list : change.lists) {
    for (auto& written : list.written) {
      if (written.from == ListChange::Written::fresh) written.id = Kiv::UniqueId::generateUniqueId();
    }
  }
  return change;
}

/// The same sources as a worker has them: read again from what was written.
Sources again(const Sources& sources) {
  Sources copy;
  sources.forEach([&](const std::string& name, const Config::Model& model) {
    copy.exchange(name, modelOf(Config::textOf(model)));
  });
  return copy;
}

std::optional<Config::Model> randomModel(Dice& dice) {
  auto read = Config::read({{"", Config::randomText(dice, false)}});
  return std::move(read.model);
}

TEST(Handover, AWorkerWritesWhatTheFirstProcessWrites) {
  int changes = 0, fresh = 0;
  for (uint64_t seed = 1; seed <= 300; ++seed) {
    SCOPED_TRACE(seed);
    Dice dice(seed);
    Sources sources;
    Sources theirs;
    for (int step = 0; step < 4; ++step) {
      const std::string source = dice.once(2) ? "" : "file";
      auto now = randomModel(dice);
      if (!now) continue;
      const bool goes = !source.empty() && sources.find(source) && dice.once(3);
      const SourceChange change = ordered(sources, source, goes ? nullptr : &*now);
      std::string wrong;
      auto order = readChangeOrder(changeOrderText(change), theirs, wrong);
      ASSERT_TRUE(order) << wrong;
      EXPECT_EQ(wordsOf(order->writes), wordsOf(change));
      EXPECT_EQ(order->content.source, source);
      EXPECT_EQ(order->content.model.has_value(), !goes);
      ++changes;
      for (const ListChange& list : change.lists) fresh += list.written.empty() ? 0 : 1;
      sources.exchange(source, goes ? std::nullopt : std::move(now));
      theirs.exchange(source, std::move(order->content.model));
    }
    EXPECT_EQ(Config::textOf(theirs.commandLine), Config::textOf(again(sources).commandLine));
  }
  EXPECT_GT(changes, 500);
  EXPECT_GT(fresh, 300);
}

TEST(Handover, AChangeOfAnotherConfigurationIsRefused) {
  const Config::Model now = modelOf("ip access-list A\n 10 permit ip any any\n 20 deny udp any any\n");
  const Sources sources{modelOf("ip access-list A\n 10 permit ip any any\n"), {}};
  const std::string text = changeOrderText(ordered(sources, "", &now));
  for (const char* other : {"", "ip access-list A\n 10 deny ip any any\n", "ip access-list B\n",
                            "ip access-list A\n 10 permit ip any any\n 20 deny udp any any\n"}) {
    std::string wrong;
    EXPECT_FALSE(readChangeOrder(text, {modelOf(other), {}}, wrong)) << other;
    EXPECT_EQ(wrong, "it has not the same configuration in force") << other;
  }
  std::string wrong;
  EXPECT_TRUE(readChangeOrder(text, again(sources), wrong)) << wrong;
}

TEST(Handover, AWorkerBeginsWithTheIdsThatRulesHave) {
  const Config::Model first = modelOf("ip access-list A\n 10 permit ip any any\n 20 deny ip any any\n");
  const Config::Model second = modelOf("mac access-list A\n 7 permit any any\nipv6 access-list E\n");
  Core core;
  const Sources sources{first, {{"more", second}}};
  ASSERT_FALSE(putInForce(core, sources));
  const auto read = readHandover(handoverText(core, sources));
  ASSERT_TRUE(read);
  EXPECT_EQ(Config::textOf(read->sources.commandLine), Config::textOf(first));
  EXPECT_EQ(Config::textOf(read->sources.inputs.at("more")), Config::textOf(second));
  const auto idsOf = [&](const char* source, const Config::Model& model, Acl::AclType type,
                         const char* name) {
    return read->idsOf(source, model.lists.at({type, name}));
  };
  const auto ids = idsOf("cli", first, Acl::AclType::ip, "A");
  const ListRules rules = rulesOf(*core.sourceIs("").lists, {Acl::AclType::ip, "A"});
  EXPECT_EQ(ids, (std::vector{rules.idAt(10), rules.idAt(20)}));
  EXPECT_EQ(idsOf("input/more", second, Acl::AclType::mac, "A").size(), 1u);
  EXPECT_TRUE(idsOf("input/more", second, Acl::AclType::ipv6, "E").empty());
  EXPECT_TRUE(idsOf("input/other", second, Acl::AclType::mac, "A").empty());
}

}  // namespace
