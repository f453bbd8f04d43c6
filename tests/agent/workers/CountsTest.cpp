#include <agent/ports/PortDevice.h>
#include <agent/workers/Counts.h>
#include <agent/workers/Packed.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "../support/RunningAgent.h"

#include <string>
#include <vector>

namespace {

using namespace Agent;
using namespace TestSupport;

/// An agent that is its own worker: what it tells is added to what it has.
class CountsTest : public testing::Test {
 protected:
  CountsTest() {
    agent_.start(
        "ip access-list A\n 10 permit udp any any eq 10\n 20 deny udp any any eq 20\ninterface eth1\n"
        " ip access-group A in\n");
    agent_.patch("eth1", "eth2");
    sums_ = std::make_unique<CountSums>(agent_.core(), agent_.forwarder());
    teller_ = std::make_unique<CountTeller>(
        CountTeller::From{agent_.core(), agent_.forwarder(), [this] { return states_; },
                          [this] { return totals_; }},
        [this](const std::string& text) { told_.push_back(text); });
  }
  void receive(uint16_t port, int times) {
    for (int i = 0; i < times; ++i) agent_.receive("eth1", udpTo(port));
  }
  void addAll() {
    for (const std::string& text : std::exchange(told_, {})) sums_->add(text, worker_);
  }
  /// Matches of the rules 10 and 20, and of the implicit drop.
  std::vector<uint64_t> matches() {
    const Json list = agent_.show("access-lists", "A").at("lists").at(0);
    return {list.at("rules").at(0).at("matches").at("in"), list.at("rules").at(1).at("matches").at("in"),
            list.at("implicitDrop").at("matches").at("in")};
  }

  RunningAgent agent_;
  std::vector<PortState> states_;
  FrameTotals totals_;
  std::vector<std::string> told_;
  CountSums::Worker worker_;
  std::unique_ptr<CountSums> sums_;
  std::unique_ptr<CountTeller> teller_;
};

TEST_F(CountsTest, WhatIsToldIsAdded) {
  receive(10, 3);
  receive(20, 2);
  receive(30, 5);
  teller_->tellAll();
  addAll();
  EXPECT_EQ(matches(), (std::vector<uint64_t>{6, 4, 10})) << "all of it, the implicit drop, too";
  teller_->tellAll();
  addAll();
  EXPECT_EQ(matches(), (std::vector<uint64_t>{9, 6, 15})) << "only what is new since then";
  EXPECT_EQ(agent_.forwarder().portIs("eth1").received, 10u + 10u + 10u);
}

TEST_F(CountsTest, WhatMatchesNoRuleIsToldWithoutAnIdBecauseEachProcessHasItsOwn) {
  receive(20, 2);
  receive(30, 5);
  teller_->tellAll();
  std::vector<std::pair<bool, uint64_t>> seen;  // whether it has an id, and how many
  for (const std::string& text : told_) {
    const auto message = unpacked(text);
    if (!message.contains("rows")) continue;
    for (const auto& row : message.at("rows")) seen.emplace_back(row.at(3) != 0, row.at(4).get<uint64_t>());
  }
  EXPECT_THAT(seen, testing::UnorderedElementsAre(std::pair(true, 2), std::pair(false, 5)));
}

TEST_F(CountsTest, ItTellsByItselfSomeTimesASecond) {
  receive(10, 3);
  agent_.turns();
  EXPECT_TRUE(told_.empty());
  agent_.advance(CountTeller::tellEvery.seconds());
  agent_.turns();
  addAll();
  EXPECT_EQ(matches().front(), 6u);
}

TEST_F(CountsTest, WhoAsksIsAnsweredWhenAllIsTold) {
  std::vector<uint64_t> whenTold;
  receive(10, 3);
  teller_->gather([&] {
    addAll();
    whenTold = matches();
  });
  EXPECT_TRUE(whenTold.empty());
  agent_.turnsUntil([&] { return !whenTold.empty(); });
  EXPECT_EQ(whenTold.front(), 6u);
}

TEST_F(CountsTest, PortsAndTotalsAreSumsOfThoseThatAreThereAndThoseThatHaveGone) {
  PortState state;
  state.name = "eth1";
  state.present = state.up = true;
  state.mtu = 1400;
  state.rxFrames = 5;
  state.kernelDrops = 1;
  states_ = {state};
  totals_ = {.frames = 5, .bytes = 300, .passed = 4, .dropped = 1};
  teller_->tellAll();
  addAll();
  teller_->tellAll();
  addAll();
  EXPECT_EQ(sums_->totals().frames, 5u) << "told twice, counted once";
  sums_->keep(worker_);
  worker_ = {};
  PortState shown;
  shown.name = "eth1";
  shown.present = shown.up = true;
  shown.mtu = anySize;
  std::vector<PortState> gone{shown};
  sums_->addTo(gone, {});
  EXPECT_EQ(gone.front().rxFrames, 5u) << "of one that has gone";
  EXPECT_FALSE(gone.front().present) << "nobody has it now";
  totals_.frames = 7;
  teller_->tellAll();
  addAll();
  std::vector<PortState> both{shown};
  sums_->addTo(both, {&worker_});
  EXPECT_EQ(both.front().rxFrames, 10u);
  EXPECT_EQ(both.front().kernelDrops, 2u);
  EXPECT_TRUE(both.front().present);
  EXPECT_TRUE(both.front().up);
  EXPECT_EQ(both.front().mtu, 1400u) << "this process does not know it of all kinds";
  states_.front().up = false;
  teller_->tellAll();
  addAll();
  std::vector<PortState> down{shown};
  sums_->addTo(down, {&worker_});
  EXPECT_TRUE(down.front().present);
  EXPECT_FALSE(down.front().up) << "with nobody";
  EXPECT_EQ(sums_->totals().frames, 12u) << "the next one counts from its start";
}

TEST_F(CountsTest, AllWaysOfFramesAreShownAndEachOnce) {
  CountSums::Worker one, two, three;
  one.live["eth1"].how = three.live["eth1"].how = "copy, queue 10";
  two.live["eth1"].how = "copy, queue 1";
  PortState shown;
  shown.name = "eth1";
  std::vector<PortState> states{shown};
  sums_->addTo(states, {&one, &two, &three});
  EXPECT_EQ(states.front().how, "copy, queue 10; copy, queue 1");
}

}  // namespace
