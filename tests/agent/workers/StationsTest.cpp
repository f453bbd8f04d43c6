#include <agent/core/EventLoop.h>
#include <agent/workers/Stations.h>
#include <gtest/gtest.h>

#include <string>
#include <utility>
#include <vector>

namespace {

using namespace Agent;

constexpr uint64_t wanderer = 0x02005e000001;

/// Two processes with a bridge each, as far as it matters here.
class StationsTest : public testing::Test {
 protected:
  void hear(Forwarder& at, size_t end) {
    Bridge& bridge = *at.bridges().front();
    bridge.learn(*bridge.ends()[end - 1], Nimnet::EthAddr::fromValue(wanderer), 7);
  }
  /// Where a frame to the station goes; empty: to all ends.
  std::string goesTo(const Forwarder& at) {
    const auto heard = at.bridges().front()->heardOf(Nimnet::EthAddr::fromValue(wanderer), 7);
    return heard ? heard->end->id.name().str() : "";
  }
  /// Lets time pass, and tells what there is to tell. How many messages these were.
  size_t passes(double seconds) {
    clock_.advance(Kelp::Duration(seconds));
    for (int turn = 0; turn < 200; ++turn) loop_.turn(0);
    size_t told = 0;
    for (const auto& text : std::exchange(toOther_, {})) stationsOfOther_.learn(text), ++told;
    for (const auto& text : std::exchange(toOne_, {})) stationsOfOne_.learn(text), ++told;
    return told;
  }

  /// The link of an end has gone and come back.
  static void flap(const Forwarder& at, size_t end) {
    Bridge& bridge = *at.bridges().front();
    bridge.forget(*bridge.ends()[end - 1]);
  }

  Kiv::ManualClock clock_;
  EventLoop loop_{clock_};
  Core core_;
  Forwarder one_{core_, Velo::MalformedPolicy::drop}, other_{core_, Velo::MalformedPolicy::drop};
  std::vector<std::string> toOne_, toOther_;
  // They look at the bridges that there are: these are made before.
  bool joined_ = [this] {
    for (Forwarder* forwarder : {&one_, &other_}) (void)forwarder->bridgeIs({"eth1", "eth2", "eth3"}, clock_);
    return true;
  }();
  Stations stationsOfOne_{one_, clock_, [this](const std::string& text) { toOther_.push_back(text); }};
  Stations stationsOfOther_{other_, clock_, [this](const std::string& text) { toOne_.push_back(text); },
                            "StationsOfOther"};
};

TEST_F(StationsTest, OneLearnsWhatTheOtherHasHeard) {
  hear(one_, 2);
  EXPECT_EQ(goesTo(other_), "");
  EXPECT_EQ(passes(0.3), 1u);
  EXPECT_EQ(goesTo(other_), "eth2");
  hear(one_, 3);
  EXPECT_EQ(passes(0.3), 1u) << "it has moved";
  EXPECT_EQ(goesTo(other_), "eth3");
}

TEST_F(StationsTest, OneThatBeginsIsToldAllThatIsKnown) {
  hear(one_, 2);
  stationsOfOther_.learn(Stations::all(one_));
  EXPECT_EQ(goesTo(other_), "eth2");
  EXPECT_EQ(passes(0.3), 1u) << "that was not told, and the one that was told tells nothing back";
}

TEST_F(StationsTest, NothingIsToldBack) {
  hear(one_, 2);
  EXPECT_EQ(passes(0.3), 1u);
  for (int i = 0; i < 20; ++i) EXPECT_EQ(passes(10), 0u);
}

TEST_F(StationsTest, AStationThatGoesOnToSpeakIsToldAgainBeforeOthersForgetIt) {
  hear(one_, 2);
  size_t told = passes(0.3);
  for (double seconds = 0; seconds < 600; seconds += 10) {
    hear(one_, 2);
    told += passes(10);
    EXPECT_EQ(goesTo(other_), "eth2") << seconds;
  }
  EXPECT_GT(told, 5u);
  EXPECT_LT(told, 12u) << "and not more often than that takes";
  passes(Bridge::ageingTime.seconds() + Stations::tellAgain.seconds());
  EXPECT_EQ(goesTo(other_), "") << "it is forgotten when it is silent";
}

TEST_F(StationsTest, WhenALinkIsBackStationsAreToldAtOnce) {
  hear(one_, 2);
  passes(0.3);
  for (Forwarder* each : {&one_, &other_}) flap(*each, 2);
  EXPECT_EQ(goesTo(other_), "");
  hear(one_, 2);
  EXPECT_EQ(passes(0.3), 1u);
  EXPECT_EQ(goesTo(other_), "eth2");
  flap(other_, 2);  // who is told of the link a moment later
  EXPECT_EQ(passes(0.1), 0u) << "nobody has heard of it since";
  hear(one_, 2);
  EXPECT_EQ(passes(0.3), 1u);
  EXPECT_EQ(goesTo(other_), "eth2");
  for (int i = 0; i < 20; ++i) EXPECT_EQ(passes(0.3), 0u) << "nobody has heard of it since";
  hear(one_, 2);
  EXPECT_EQ(passes(0.3), 1u) << "once more, when all have forgotten for sure";
  hear(one_, 2);
  EXPECT_EQ(passes(0.3), 0u) << "and everybody knows";
}

TEST_F(StationsTest, TheLinkOfOneEndIsNothingToStationsAtOthers) {
  hear(one_, 2);
  passes(0.3);
  for (Forwarder* each : {&one_, &other_}) flap(*each, 3);
  hear(one_, 2);
  EXPECT_EQ(passes(0.3), 0u);
  EXPECT_EQ(goesTo(other_), "eth2");
}

}  // namespace
