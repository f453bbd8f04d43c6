#include <agent/fleet/Base64.h>
#include <agent/fleet/FleetKeys.h>
#include <agent/fleet/FleetSession.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "Gateway.h"

#include <atomic>
#include <chrono>
#include <functional>
#include <mutex>
#include <string>
#include <thread>
#include <utility>
#include <vector>

namespace {

using Agent::FleetOutgoing;
using Agent::FleetSession;
using testing::HasSubstr;
using TestSupport::Gateway;

const std::string stateOfA = "/velo/v1/agents/a/state", knownA = "/velo/v1/known/a",
                  counterOfA = "/velo/v1/counters/a/ip/L", textOfG = "/velo/v1/config/g/t";

/// The conversation of an agent `a` of the group `g`, on a thread.
class FleetSessionTest : public testing::Test {
 protected:
  void SetUp() override {
    if (!Agent::Http::whyNot().empty()) GTEST_SKIP() << Agent::Http::whyNot();
  }
  void TearDown() override { end(); }

  void begin() {
    thread_ = std::thread([this] {
      while (!ending_) {
        std::string wrong = session_.run(
            {.content = [this](Agent::SharedFleetContent now) { note([&] { content_ = std::move(now); }); },
             .questions = [this](Agent::FleetQuestions now) { note([&] { questions_ = std::move(now); }); },
             .undriven = [](const Agent::UndrivenRollouts&) {},
             .tried = [](const std::string&) {},
             .connected = [this](const std::string&) { ++connected_; },
             .unwritten = [this](const std::string& why) { note([&] { unwritten_.push_back(why); }); },
             .written = [this] { ++written_; },
             .twin = [this] { ++twins_; },
             .outgoing =
                 [this] {
                   const std::lock_guard lock(mutex_);
                   return std::exchange(outgoing_, {});
                 },
             .ending = [this] { return ending_.load(); },
             .chance = [] { return 0.5; }});
        note([&] { wrong_ = std::move(wrong); });
        if (!ending_) std::this_thread::sleep_for(std::chrono::milliseconds(20));
      }
      session_.leave();
    });
  }
  void end() {
    ending_ = true;
    http_.stop();
    if (thread_.joinable()) thread_.join();
  }
  void tell(const std::string& key, const std::string& value) {
    note([&] { outgoing_.values[key] = value; });
    http_.wake();
  }
  void tellState(const std::string& value) {
    note([&] { outgoing_.state = value; });
    http_.wake();
  }
  void note(const std::function<void()>& change) {
    const std::lock_guard lock(mutex_);
    change();
  }
  bool until(const std::function<bool()>& holds) {
    return gateway_.until([&] {
      const std::lock_guard lock(mutex_);
      return holds();
    });
  }
  bool has(const std::string& key, const std::string& value) {
    return gateway_.until([&] { return gateway_.value(key) == value; });
  }
  /// Refuses whatever writes such a key; "prev_kv": and asks what was there.
  void deny(const std::string& prefix, const char* operation = "key") {
    gateway_.faultIs([prefix, operation](const Gateway::Asked& asked) -> std::optional<Gateway::Answer> {
      if (asked.path != "/v3/kv/txn") return std::nullopt;
      for (const auto& one : asked.body.at("success")) {
        if (!one.contains("request_put") || !one.at("request_put").contains(operation)) continue;
        const auto key = Agent::fromBase64(one.at("request_put").at("key").get<std::string>());
        if (key->starts_with(prefix))
          return Gateway::Answer{400, R"({"code": 7, "message": "etcdserver: permission denied"})"};
      }
      return std::nullopt;
    });
  }

  Gateway gateway_;
  Agent::Http http_{{}};
  FleetSession session_{http_, Agent::EtcdPlace{{gateway_.url()}},
                        Agent::FleetIdentity{"a", {"g"}, 90, "me"}};
  std::atomic<bool> ending_ = false;
  std::atomic<int> connected_ = 0, twins_ = 0, written_ = 0;
  std::mutex mutex_;
  Agent::SharedFleetContent content_;
  Agent::FleetQuestions questions_;
  std::vector<std::string> unwritten_;
  std::string wrong_;
  FleetOutgoing outgoing_;
  std::thread thread_;
};

TEST_F(FleetSessionTest, BringsTextsAndTakesStatus) {
  gateway_.write({{textOfG, "one"}});
  tellState("me 1");
  begin();
  ASSERT_TRUE(until([&] { return content_ && content_->texts.at(0).text == "one"; }));
  EXPECT_TRUE(has(stateOfA, "me 1"));
  EXPECT_TRUE(has(knownA, R"({"groups":["g"]})"));
  EXPECT_TRUE(until([&] { return written_ > 0; }));
  gateway_.write({{textOfG, "two"}});
  EXPECT_TRUE(until([&] { return content_->texts.at(0).text == "two"; }));
  tell(counterOfA, "17");
  EXPECT_TRUE(has(counterOfA, "17"));
  tell(counterOfA, "");
  EXPECT_TRUE(has(counterOfA, "")) << "what there is nothing of any more is taken back";
  gateway_.write({{Agent::questionPrefix("a") + "q", "?"}});
  EXPECT_TRUE(until([&] { return questions_.contains("q"); }));
  end();
  EXPECT_TRUE(has(stateOfA, "")) << "it goes in order, and its status with it";
  EXPECT_TRUE(has(knownA, R"({"groups":["g"]})"));
}

TEST_F(FleetSessionTest, WritesEverythingAgainWhenItsLeaseHasEnded) {
  tellState("me 1");
  begin();
  ASSERT_TRUE(has(stateOfA, "me 1"));
  gateway_.endLeases();
  gateway_.write({{knownA, ""}});
  ASSERT_TRUE(has(stateOfA, ""));
  tell(counterOfA, "17");
  EXPECT_TRUE(has(counterOfA, "17"));
  EXPECT_TRUE(has(stateOfA, "me 1"));
  EXPECT_TRUE(has(knownA, R"({"groups":["g"]})")) << "somebody may have forgotten it meanwhile";
}

TEST_F(FleetSessionTest, ComesBackWhenItIsToldOfNothingAnyMore) {
  gateway_.write({{textOfG, "one"}});
  begin();
  ASSERT_TRUE(until([&] { return connected_ == 1 && content_; }));
  gateway_.cancelWatches();
  ASSERT_TRUE(until([&] { return connected_ == 2; }));
  EXPECT_TRUE(until([&] { return wrong_ == "the store tells no more of what changes"; }));
  gateway_.write({{textOfG, "two"}});
  EXPECT_TRUE(until([&] { return content_->texts.at(0).text == "two"; }));
}

class FleetSessionDenied : public FleetSessionTest, public testing::WithParamInterface<std::string> {};

/// What may not be written does not keep the rest from being written.
TEST_P(FleetSessionDenied, LosesOnlyThat) {
  deny(GetParam());
  tellState("me 1");
  tell(counterOfA, "17");
  begin();
  for (const auto& [key, wanted] :
       {std::pair{stateOfA, "me 1"}, {counterOfA, "17"}, {knownA, R"({"groups":["g"]})"}})
    EXPECT_TRUE(has(key, key == GetParam() ? "" : wanted)) << key;
  EXPECT_TRUE(until([&] { return unwritten_.size() == 1; }));
  // And what comes later is not kept back by what waits.
  tellState("me 2");
  tell(counterOfA, "18");
  EXPECT_TRUE(GetParam() == stateOfA ? has(counterOfA, "18") : has(stateOfA, "me 2"));
  EXPECT_EQ(written_, 0) << "not all of it is there";
}

INSTANTIATE_TEST_SUITE_P(Kinds, FleetSessionDenied, testing::Values(stateOfA, counterOfA, knownA));

/// More text than is taken at once: that is said, and everything else goes on.
TEST_F(FleetSessionTest, SaysThatThereIsMoreThanItTakes) {
  gateway_.write({{textOfG, "one"}});
  begin();
  ASSERT_TRUE(until([&] { return connected_ == 1 && content_ && content_->wrong.empty(); }));
  const std::string version = content_->version;
  gateway_.faultIs([](const Gateway::Asked& asked) -> std::optional<Gateway::Answer> {
    // Whoever asks for texts gets more than any client takes.
    const bool isWhole = asked.body.dump().find("min_mod_revision") != std::string::npos;
    return isWhole ? std::optional(Gateway::Answer{200, std::string(size_t{97} << 20, 'x')}) : std::nullopt;
  });
  gateway_.write({{textOfG, "much"}});
  ASSERT_TRUE(until([&] { return !content_->wrong.empty(); }));
  EXPECT_THAT(content_->wrong[0], HasSubstr("more than is taken at once"));
  EXPECT_NE(content_->version, version) << "it is known which texts they are";
  tellState("me 1");
  EXPECT_TRUE(has(stateOfA, "me 1"));
  EXPECT_EQ(connected_, 1);
}

TEST_F(FleetSessionTest, NoticesAnotherAgentOfItsName) {
  gateway_.write({{stateOfA, "an earlier run of this agent"}});
  tellState("me 1");
  begin();
  ASSERT_TRUE(has(stateOfA, "me 1"));
  tellState("me 2");
  ASSERT_TRUE(has(stateOfA, "me 2"));
  EXPECT_EQ(twins_, 0) << "who was there before it began may be itself";
  gateway_.write({{stateOfA, "another"}});
  tellState("me 3");
  ASSERT_TRUE(has(stateOfA, "me 3"));
  EXPECT_TRUE(until([&] { return twins_ == 1; }));
}

TEST_F(FleetSessionTest, WithoutTheRightToLookBackItWritesAllTheSame) {
  deny(stateOfA, "prev_kv");
  tellState("me 1");
  tell(counterOfA, "17");
  begin();
  EXPECT_TRUE(has(stateOfA, "me 1"));
  EXPECT_TRUE(has(counterOfA, "17"));
  EXPECT_TRUE(unwritten_.empty());
}

}  // namespace
