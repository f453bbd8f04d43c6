#include <agent/fleet/Backoff.h>
#include <agent/fleet/Base64.h>
#include <agent/fleet/FleetKeys.h>
#include <agent/fleet/FleetMirror.h>
#include <fmt/format.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "../../support/Dice.h"
#include "FakeStore.h"

#include <algorithm>
#include <map>
#include <string>
#include <vector>

namespace {

using Agent::FleetMirror;
using Agent::SharedFleetContent;
using testing::ElementsAre;
using testing::HasSubstr;
using TestSupport::Dice;
using TestSupport::FakeStore;

/// What an agent with the name `a`, of the groups `one` and `two`, is to have, found in another way: all keys
/// of the store, looked at one by one.
std::vector<std::string> wantedOf(const FakeStore& store) {
  std::vector<std::string> wanted;
  for (const char* place : {"/velo/v1/config/agents/a/", "/velo/v1/config/one/", "/velo/v1/config/two/"}) {
    for (const auto& [key, entry] : store.entries()) {
      if (key.starts_with(place) && key.find('/', std::string(place).size()) == std::string::npos)
        wanted.push_back(key + "=" + entry.value);
    }
  }
  return wanted;
}

std::vector<std::string> shown(const SharedFleetContent& content) {
  std::vector<std::string> texts;
  for (const auto& [key, text] : content->texts) texts.push_back(key + "=" + text);
  return texts;
}

class FleetMirrorTest : public testing::Test {
 protected:
  SharedFleetContent asked() {
    const auto answer = store_.read(mirror_.question());
    if (mirror_.isAnswer(answer)) return mirror_.take(answer);
    mirror_.forget();
    return mirror_.take(store_.read(mirror_.question()));
  }

  FakeStore store_;
  FleetMirror mirror_{Agent::FleetIdentity{"a", {"one", "two"}}};
};

TEST_F(FleetMirrorTest, HasWhatTheStoreHasAfterAnyHistory) {
  const std::vector<std::string> keys = {"/velo/v1/config/agents/a/x", "/velo/v1/config/agents/b/x",
                                         "/velo/v1/config/one/x",      "/velo/v1/config/one/y",
                                         "/velo/v1/config/two/x",      "/velo/v1/config/two/x/y",
                                         "/velo/v1/config/twofold/x",  "/velo/v1/agents/a/state"};
  Dice dice(19);
  std::vector<std::string> last;
  std::map<std::string, std::vector<std::string>> byVersion;
  for (int round = 0; round < 5000; ++round) {
    if (dice.once(200)) store_.forget();
    for (uint64_t changes = dice.below(4); changes > 0; --changes) {
      std::map<std::string, std::string> values;
      for (const std::string& key : keys) {
        if (dice.below(4) == 0) values[key] = dice.below(3) == 0 ? "" : fmt::format("{}", dice.below(100));
      }
      store_.write(values);
    }
    if (dice.once(50)) mirror_.forget();
    const auto content = asked();
    const auto wanted = wantedOf(store_);
    if (content) {
      ASSERT_EQ(shown(content), wanted) << "round " << round;
      ASSERT_LE(content->revision, store_.revision());
      last = wanted;
      // Within one store the same version is the same content.
      byVersion.emplace(content->version, wanted);
    }
    ASSERT_EQ(last, wanted) << "what is new is told, round " << round;
    ASSERT_EQ(asked(), nullptr) << "what is not new is not told again";
  }
  EXPECT_GT(byVersion.size(), 1000u);
}

/// When the agent asks again, the store has a higher number than the agent knows, but texts from before it.
TEST_F(FleetMirrorTest, SeesAStoreThatWasSetUpAnewOrTakenBackAndThenWrittenTo) {
  const std::string x = "/velo/v1/config/one/x", y = "/velo/v1/config/one/y",
                    none = "/velo/v1/config/one/a/b";
  struct Row {
    const char* why;
    bool isAnew;       // otherwise an earlier state of the same store
    int writesBefore;  // of y, before x is written
  };
  for (const Row& row : {Row{"set up anew, x at the same number", true, 0}, Row{"set up anew", true, 3},
                         Row{"taken back, x at a later number that is known by now", false, 2}}) {
    SCOPED_TRACE(row.why);
    store_ = {};
    mirror_.forget();
    const FakeStore earlier = store_;
    store_.write({{x, "old"}, {none, "not read"}});
    ASSERT_TRUE(asked());
    for (int i = 0; i < 5; ++i) store_.write({{y, fmt::format("{}", i)}});
    ASSERT_TRUE(asked());
    ASSERT_EQ(asked(), nullptr);
    if (row.isAnew)
      store_.forget();
    else
      store_ = earlier;
    for (int i = 0; i < row.writesBefore; ++i) store_.write({{y, "other"}});
    store_.write({{x, "new"}});
    while (mirror_.revision() + 1 >= store_.revision()) store_.write({{y, "last"}});
    const auto content = asked();
    ASSERT_TRUE(content);
    EXPECT_EQ(shown(content), wantedOf(store_));
    EXPECT_EQ(asked(), nullptr);
  }
}

TEST_F(FleetMirrorTest, TellsOfAnEmptyStoreOnce) {
  const auto content = asked();
  ASSERT_TRUE(content);
  EXPECT_TRUE(content->texts.empty());
  EXPECT_EQ(asked(), nullptr);
}

TEST_F(FleetMirrorTest, TakesNothingOfAPlaceWithTooMuchAndAllWhenThereIsLess) {
  store_.write({{"/velo/v1/config/one/x", "1"}, {"/velo/v1/config/two/x", "2"}});
  ASSERT_TRUE(asked());
  std::map<std::string, std::string> many;
  for (int64_t i = 0; i < FleetMirror::mostTexts; ++i) many[fmt::format("/velo/v1/config/two/n{}", i)] = "n";
  store_.write(many);
  auto content = asked();
  ASSERT_TRUE(content);
  EXPECT_THAT(content->wrong, ElementsAre("/velo/v1/config/two/: more than 1000 texts"));
  EXPECT_TRUE(content->texts.empty());
  EXPECT_EQ(asked(), nullptr) << "what stays wrong is told once";
  for (auto& [key, value] : many) value.clear();
  store_.write(many);
  content = asked();
  ASSERT_TRUE(content);
  EXPECT_EQ(shown(content), wantedOf(store_));
}

TEST_F(FleetMirrorTest, NamesKeysThatAreNotOfTheLayout) {
  store_.write({{"/velo/v1/config/one/x", "1"},
                {"/velo/v1/config/one/a/b", "2"},
                {"/velo/v1/config/one/", "3"},
                {"/velo/v1/config/one/\x01", "4"}});
  const auto content = asked();
  ASSERT_TRUE(content);
  EXPECT_THAT(shown(content), ElementsAre("/velo/v1/config/one/x=1"));
  EXPECT_THAT(mirror_.ignored(),
              ElementsAre("/velo/v1/config/one/", "/velo/v1/config/one/?", "/velo/v1/config/one/a/b"));
}

TEST(FleetVersion, IsOneForTheSameKeysAtTheSameRevisions) {
  const auto version = [](const std::vector<std::pair<const char*, int64_t>>& keys) {
    Agent::FleetVersion made;
    for (const auto& [key, revision] : keys) made.add(key, revision);
    return made.str();
  };
  EXPECT_EQ(version({{"a", 1}, {"b", 2}}), version({{"a", 1}, {"b", 2}}));
  for (const auto& other :
       {version({{"a", 1}}), version({{"a", 2}, {"b", 2}}), version({{"b", 2}, {"a", 1}}), version({})})
    EXPECT_NE(version({{"a", 1}, {"b", 2}}), other);
  EXPECT_EQ(version({}).size(), 16u);
}

TEST(FleetKeys, AreThoseOfTheContract) {
  EXPECT_EQ(Agent::groupPrefix("edge"), "/velo/v1/config/edge/");
  EXPECT_EQ(Agent::ownPrefix("a1"), "/velo/v1/config/agents/a1/");
  EXPECT_EQ(Agent::stateKey("a1"), "/velo/v1/agents/a1/state");
  EXPECT_EQ(Agent::knownKey("a1"), "/velo/v1/known/a1");
  EXPECT_EQ(Agent::counterKey("a1", "ip", "IN/1 %"), "/velo/v1/counters/a1/ip/IN%2F1%20%25");
  EXPECT_EQ(Agent::prefixEnd("/a/"), "/a0");
  for (const char* name : {"a", "A-1_b.c", "..."}) EXPECT_FALSE(Agent::whyNoFleetName(name)) << name;
  for (const auto& name :
       {std::string(), std::string("a/b"), std::string("a b"), std::string("."), std::string(".."),
        std::string(65, 'a'), std::string("\xc3\xa4"), std::string("a\0b", 3)})
    EXPECT_TRUE(Agent::whyNoFleetName(name)) << name;
  EXPECT_TRUE(Agent::whyNoGroup("agents"));
}

TEST(Base64, IsThatOfTheStandard) {
  const std::pair<std::string, std::string> vectors[] = {// RFC 4648, 10
                                                         {"", ""},
                                                         {"f", "Zg=="},
                                                         {"fo", "Zm8="},
                                                         {"foo", "Zm9v"},
                                                         {"foob", "Zm9vYg=="},
                                                         {"fooba", "Zm9vYmE="},
                                                         {"foobar", "Zm9vYmFy"},
                                                         {std::string("\0\xff", 2), "AP8="}};
  for (const auto& [octets, text] : vectors) {
    EXPECT_EQ(Agent::base64Of(octets), text);
    EXPECT_EQ(Agent::fromBase64(text), octets);
  }
  for (const char* none : {"Z", "Zg", "Zg=", "Zg=x", "Z===", "====", "Zm9v\n", "Zm 9"})
    EXPECT_EQ(Agent::fromBase64(none), std::nullopt) << none;
}

/// Ten thousand agents that have been connected for an hour when their store goes; it comes back after ten
/// minutes: how many of them ask it within any one second, the first ones as well.
TEST(FleetBackoff, SpreadsAgentsThatComeBack) {
  Dice dice(7);
  constexpr size_t agents = 10000;
  constexpr double gone = 600;
  std::map<int, size_t> asked;  // by second
  for (size_t i = 0; i < agents; ++i) {
    Agent::Backoff backoff;
    backoff.connected(3600);
    double now = 0;
    while (now < gone) {
      now += backoff.next(static_cast<double>(dice.below(1000)) / 1000);
      ++asked[static_cast<int>(now)];
    }
  }
  size_t first = 0, later = 0;
  for (const auto& [second, count] : asked)
    (second < 60 ? first : later) = std::max(second < 60 ? first : later, count);
  RecordProperty("first", static_cast<int>(first));
  RecordProperty("later", static_cast<int>(later));
  // A thousand a second, and some of them for the second time.
  EXPECT_LT(first, agents / 10 * 2);
  // Each asks once in 15 to 30 seconds.
  EXPECT_LT(later, agents / 15 * 3 / 2);
}

TEST(FleetBackoff, WaitsLongerEachTime) {
  Agent::Backoff backoff;
  for (const double most : {1.0, 2.0, 4.0, 8.0, 16.0, 30.0, 30.0}) EXPECT_EQ(backoff.next(0), most / 2);
}

/// What a connection that lasted does to the pauses behind it; each is the longest that may be.
TEST(FleetBackoff, BeginsAnewBehindAConnectionThatWasGood) {
  constexpr double always = 0.999999;
  const struct {
    const char* sentence;
    int failures;
    double seconds;
    double first, second;
  } cases[] = {
      {"it is ended again and again at once", 3, 0.1, 8, 16},
      {"it was no longer than the next pause", 4, 12, 16, 30},
      {"it was longer", 3, 12, 2, 2},
      {"a minute", 6, 60, 10, 10},
      {"an hour", 6, 3600, 10, 10},
      {"the first one is ended at once", 0, 0.1, 1, 2},
  };
  for (const auto& one : cases) {
    Agent::Backoff backoff;
    for (int i = 0; i < one.failures; ++i) backoff.next(0);
    backoff.connected(one.seconds);
    EXPECT_NEAR(backoff.next(always), one.first, 0.001) << one.sentence;
    EXPECT_NEAR(backoff.next(always), one.second, 0.001) << one.sentence;
  }
}

}  // namespace
