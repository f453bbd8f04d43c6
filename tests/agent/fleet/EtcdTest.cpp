#include <agent/fleet/Etcd.h>
#include <agent/fleet/FleetKeys.h>
#include <agent/fleet/FleetSight.h>
#include <fmt/format.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "Gateway.h"

#include <algorithm>
#include <optional>
#include <string>
#include <vector>

namespace {

using Agent::Etcd;
using testing::ElementsAre;
using testing::HasSubstr;
using TestSupport::Gateway;

std::vector<std::string> pathsOf(const std::vector<Gateway::Asked>& asked) {
  std::vector<std::string> paths;
  for (const auto& one : asked) paths.push_back(one.path.substr(one.path.rfind('/') + 1));
  return paths;
}

class EtcdTest : public testing::Test {
 protected:
  void SetUp() override {
    if (!Agent::Http::whyNot().empty()) GTEST_SKIP() << Agent::Http::whyNot();
  }
  /// Answers the first questions so.
  static void fails(Gateway& gateway, int times, int status, const char* message) {
    gateway.faultIs(
        [times, status, message](const Gateway::Asked& asked) mutable -> std::optional<Gateway::Answer> {
          if (asked.path != "/v3/kv/txn" || times-- <= 0) return std::nullopt;
          return Gateway::Answer{status, Gateway::Json({{"message", message}}).dump()};
        });
  }

  Gateway first_, second_;
  Agent::Http http_{{}};
};

TEST_F(EtcdTest, GetsAnotherTokenWhenTheOldOneHasEnded) {
  for (const char* why : {"etcdserver: invalid auth token", "auth: revision of auth store is old"}) {
    Etcd etcd(http_, {.endpoints = {first_.url()}, .user = "u", .password = "p"});
    ASSERT_TRUE(etcd.read({{.key = "a"}}));
    EXPECT_THAT(pathsOf(first_.taken()), ElementsAre("authenticate", "txn"));
    fails(first_, 1, 400, why);
    EXPECT_TRUE(etcd.read({{.key = "a"}})) << why;
    EXPECT_THAT(pathsOf(first_.taken()), ElementsAre("txn", "authenticate", "txn")) << why;
  }
}

TEST_F(EtcdTest, AsksTheNextEndpointWhenItOnlyReads) {
  Etcd etcd(http_, {.endpoints = {first_.url(), second_.url()}});
  fails(first_, 1, 503, "none");
  EXPECT_TRUE(etcd.read({{.key = "a"}}));
  EXPECT_EQ(etcd.endpoint(), second_.url());
  fails(second_, 1, 503, "none");
  first_.taken();
  const auto put = etcd.txn({.puts = {{"a", "1"}}});
  EXPECT_FALSE(put);
  EXPECT_TRUE(put.isUnknown) << "what may have been carried out is not asked for again";
  EXPECT_TRUE(first_.taken().empty());
  EXPECT_TRUE(etcd.txn({.puts = {{"a", "1"}}})) << "the next question is for the next endpoint";
  EXPECT_EQ(first_.value("a"), "1");
}

TEST_F(EtcdTest, ReadsAlsoWhenAComparisonDoesNotHold) {
  first_.write({{"a", "1"}});
  Etcd etcd(http_, {.endpoints = {first_.url()}});
  const auto answer = etcd.txn({.compares = {{"a", 0}}, .puts = {{"a", "2"}}, .reads = {{.key = "a"}}});
  ASSERT_TRUE(answer);
  EXPECT_FALSE(answer.value->succeeded);
  EXPECT_EQ(answer.value->reads.at(0).at(0).value, "1");
  EXPECT_EQ(first_.value("a"), "1");
}

/// Three places; two are asked for, one of which has more than is read.
TEST_F(EtcdTest, FleetReadTakesOnlyWhatIsAskedFor) {
  const std::string x = "/velo/v1/config/x/", y = "/velo/v1/config/y/", z = "/velo/v1/config/z/";
  std::map<std::string, std::string> all = {{y + "t", "of y"}, {z + "t", std::string(2000, 'z')}};
  for (int i = 0; i < 70; ++i) all[x + fmt::format("t{}", i)] = "of x";
  first_.write(all);
  Etcd etcd(http_, {.endpoints = {first_.url()}});
  auto sight = Agent::fleetSight(etcd);
  ASSERT_TRUE(sight);
  EXPECT_EQ(sight.value->texts.size(), 72u);
  EXPECT_EQ(sight.value->texts.at(x + "t0").value, "") << "the key alone";
  first_.taken();
  EXPECT_EQ(Agent::readTexts(etcd, *sight.value, {x, z}, 1000), "");
  for (int i = 0; i < 70; ++i) EXPECT_EQ(sight.value->texts.at(x + fmt::format("t{}", i)).value, "of x");
  EXPECT_EQ(sight.value->texts.at(y + "t").value, "");
  EXPECT_EQ(sight.value->texts.at(z + "t").value, "") << "more than is read";
  EXPECT_THAT(sight.value->tooMuch, ElementsAre(z));
  sight.value->agents["a"].groups = {"x", "z"};
  EXPECT_THAT(sight.value->contentOf("a").wrong, ElementsAre(HasSubstr("more text than is read")));
  for (const auto& one : first_.taken()) {
    for (const auto& range : one.body.at("success"))
      EXPECT_EQ(range.at("request_range").at("revision"), std::to_string(sight.value->revision));
  }
}

}  // namespace
