#pragma once

#include <agent/change/History.h>

#include "../support/CaptureBytes.h"
#include "../support/ModelOf.h"
#include "../support/RunningAgent.h"

#include <filesystem>

namespace TestSupport {

using Agent::Change;
using Agent::ChangeJournal;
using Agent::Past;

inline Agent::SharedText shared(std::string text) {
  return std::make_shared<const std::string>(std::move(text));
}

inline Change changeOf(const std::string& source, const std::string& text) {
  Change change;
  change.source = source;
  change.text = shared(text);
  change.difference = shared("{}");
  return change;
}

/// Keeps the past in memory, when it is told to.
class TestJournal final : public ChangeJournal {
 public:
  void keep(Past past) override { given = std::move(past), state_ = State::writing; }
  State state() const override { return now ? kept() : state_; }
  State kept() const {
    state_ = *now;
    return state_;
  }
  Past given;
  std::optional<State> now = State::kept;

 private:
  mutable State state_ = State::kept;
};

inline constexpr const char* oneText =
    "ip access-list A\n   10 permit udp any any\ninterface eth1\n   ip access-group A in\n";
inline constexpr const char* otherText =
    "ip access-list A\n   10 deny udp any any\ninterface eth1\n   ip access-group A in\n";
inline constexpr const char* thirdText =
    "ip access-list A\n   10 deny ip any any\ninterface eth1\n   ip access-group A in\n";

class TakingBackTest : public testing::Test {
 protected:
  std::string inForce() {
    return agent_.ask({{"do", "show"}, {"what", "configuration"}, {"source", "cli"}}).at("text");
  }
  Json applyToBeConfirmed(const std::string& text, uint32_t seconds) {
    agent_.ask({{"do", "text"}, {"name", "t"}, {"text", text}});
    return agent_.ask({{"do", "apply"}, {"confirm", seconds}});
  }
  /// Numbers with what was done.
  std::string history() {
    std::string text;
    const Json shown = agent_.show("history");
    for (const Json& change : shown.at("changes"))
      text += fmt::format("{}{} {}", text.empty() ? "" : ", ", change.at("number").get<uint64_t>(),
                          change.at("what").get<std::string>());
    return text;
  }
  std::string errorOf(const Json& answer) {
    if (!answer.contains("error")) return "none";
    const Json& error = answer.at("error");
    return error.contains("mistakes") ? error.at("mistakes").at(0) : error.at("text");
  }
  void settle() {
    agent_.turnsUntil([this] { return !agent_.plane().configuration().busy(); });
  }

  TestJournal journal_;
  RunningAgent agent_;
};

/// A list in the directory that only the text has bound that waits to come back.
class ListOfWhatComesBackTest : public TakingBackTest {
 protected:
  static constexpr const char* bound = "interface eth1\n ip access-group X in\n";
  static constexpr const char* list = "ip access-list X\n permit tcp any any\n";

  /// Begins with the list bound, and has a text without it wait to be confirmed for a minute.
  void begin(bool mayOpen) {
    agent_.leaveIs({.openings = mayOpen});
    const std::map<std::string, std::string> files = {{"x", list}};
    agent_.start(bound, &files);
    ASSERT_EQ(applyToBeConfirmed(otherText, 60).at("applied"), true);
  }
  void untilFilesAre(const std::function<bool()>& done) {
    agent_.turns();
    agent_.advance(1.1);  // a look comes once a second
    const auto& files = agent_.plane().configuration();
    agent_.turnsUntil([&] { return !files.directory().looking() && !files.busy() && done(); });
  }
  Json bad() { return agent_.show("status").at("configuration").at("bad"); }
  bool isDefined(const char* name = "X") { return !agent_.show("access-lists", name).contains("error"); }
};

}  // namespace TestSupport
