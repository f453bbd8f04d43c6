#include <agent/fleet/Base64.h>
#include <agent/fleet/FleetKeys.h>
#include <agent/fleet/Http.h>
#include <agent/fleet/RolloutHelper.h>
#include <fmt/format.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "Gateway.h"

#include <algorithm>
#include <memory>
#include <string>
#include <vector>

namespace {

using Agent::RolloutHelper;
using TestSupport::Gateway;

const std::string placeOfG = "/velo/v1/config/g/";

/// A store with a rollout that nobody sees to, and agents that hear of it.
class RolloutHelperTest : public testing::Test {
 protected:
  void SetUp() override {
    if (!Agent::Http::whyNot().empty()) GTEST_SKIP() << Agent::Http::whyNot();
    Agent::Rollout rollout;
    std::string wrong;
    rollout.id = "x";
    rollout.steps = *Agent::readSteps("1", &wrong);
    rollout.wait = 1000;
    Agent::RolloutView view;
    view.agents["a"] = {.isThere = true};
    view.texts = Agent::FleetPlace::versionOf({});
    gateway_.write({{Agent::rolloutKey(placeOfG), begunRollout(rollout, view).json()},
                    {placeOfG + "rollout/texts/t", "new"},
                    {Agent::stateKey("a"), R"({"groups": ["g"]})"}});
    gateway_.taken();
  }
  RolloutHelper& helper(uint64_t agents = 1) {
    helpers_.push_back(std::make_unique<RolloutHelper>(Agent::EtcdPlace{{gateway_.url()}}, "me", nullptr));
    helpers_.back()->undrivenIs({{"g", agents}});
    return *helpers_.back();
  }
  std::string driver() const { return gateway_.value(Agent::driverKey(placeOfG)); }
  /// How many questions have read all that there is below the texts of all groups.
  static int64_t looksIn(const std::vector<Gateway::Asked>& asked) {
    return std::count_if(asked.begin(), asked.end(), [](const Gateway::Asked& one) {
      return one.body.dump().find("L3ZlbG8vdjEvY29uZmlnLw==") != std::string::npos;  // its key in base64
    });
  }

  Gateway gateway_;
  std::vector<std::unique_ptr<RolloutHelper>> helpers_;
};

TEST_F(RolloutHelperTest, OneHasTheKeyAndOnlyThatOneLooksAtTheFleet) {
  for (int i = 0; i < 8; ++i) helper();
  ASSERT_TRUE(gateway_.until([this] { return !driver().empty(); }));
  const std::string first = driver();
  // The others do not hear of it here, so each tries, and sees by two small keys that there is one.
  std::vector<Gateway::Asked> asked;
  const auto count = [&asked](bool withLease) {
    return std::count_if(asked.begin(), asked.end(), [withLease](const Gateway::Asked& one) {
      return one.body.dump().find(Agent::base64Of(Agent::driverKey(placeOfG))) != std::string::npos &&
             one.body.at("compare").empty() == !withLease;
    });
  };
  ASSERT_TRUE(gateway_.until([&] {
    for (auto& one : gateway_.taken()) asked.push_back(std::move(one));
    return count(false) >= 8 && looksIn(asked) > 0;
  }));
  EXPECT_EQ(driver(), first);
  EXPECT_LE(looksIn(asked), count(true)) << "only who has the key looks";
  // Two may ask in the same moment.
  EXPECT_LE(std::count_if(asked.begin(), asked.end(),
                          [](const Gateway::Asked& one) { return one.path == "/v3/lease/grant"; }),
            3)
      << "who cannot have the key asks for no lease";
}

TEST_F(RolloutHelperTest, AnotherOneFollowsWhenItsLeaseHasEnded) {
  helper();
  ASSERT_TRUE(gateway_.until([this] { return !driver().empty(); }));
  const std::string first = driver();
  helpers_.clear();
  ASSERT_TRUE(gateway_.until([this] { return driver().empty(); })) << "who goes in order leaves the key";
  helper();
  ASSERT_TRUE(gateway_.until([this] { return !driver().empty(); }));
  EXPECT_NE(driver(), first);
  gateway_.endLeases();
  ASSERT_TRUE(gateway_.until([this] { return !driver().empty(); })) << "it takes it again with another lease";
}

TEST_F(RolloutHelperTest, WhoMayNotLeavesItToOthers) {
  gateway_.faultIs([](const Gateway::Asked& asked) -> std::optional<Gateway::Answer> {
    if (asked.body.dump().find("request_put") == std::string::npos) return std::nullopt;
    return Gateway::Answer{400, R"({"code": 7, "message": "etcdserver: permission denied"})"};
  });
  helper();
  ASSERT_TRUE(gateway_.until([this] {
    const auto asked = gateway_.taken();
    return std::any_of(asked.begin(), asked.end(), [](const Gateway::Asked& one) {
      return one.body.dump().find("request_put") != std::string::npos;
    });
  }));
  usleep(1500000);
  const auto asked = gateway_.taken();
  EXPECT_EQ(looksIn(asked), 0);
  EXPECT_LE(asked.size(), 1u) << "its lease is taken back, and then it asks no more";
}

/// A store that does not answer any more is asked less and less often, also by who has the key.
TEST_F(RolloutHelperTest, AsksLessOftenWithoutAnAnswer) {
  helper();
  ASSERT_TRUE(gateway_.until([this] { return !driver().empty(); }));
  gateway_.faultIs([](const Gateway::Asked&) { return Gateway::Answer{503, R"({"message": "none"})"}; });
  usleep(600000);
  gateway_.taken();
  usleep(3500000);
  EXPECT_LE(gateway_.taken().size(), 4u) << "after a half, one and two seconds, each by chance";
}

TEST(RolloutHelper, AgentsOfLargeGroupsWaitLonger) {
  EXPECT_EQ(RolloutHelper::window(1), 3);
  EXPECT_EQ(RolloutHelper::window(3000), 10);
  EXPECT_EQ(RolloutHelper::window(10000), 30);
}

}  // namespace
