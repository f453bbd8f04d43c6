#include <agent/change/Partners.h>

#include "../support/RunningAgent.h"

#include <string>
#include <utility>

namespace {

using namespace TestSupport;

constexpr const char* oneRule =
    "ip access-list A\n   10 permit udp any any\ninterface eth1\n   ip access-group A in\n";
constexpr const char* twoRules =
    "ip access-list A\n   10 permit udp any any\n   20 deny tcp any any\ninterface eth1\n   ip access-group A in\n";

/// Partners that answer when the test says so.
class SlowPartners final : public Agent::Partners {
 public:
  void getReady(const Agent::SourceChange& change, Heard heard) override {
    said += "getReady ";
    for (const auto& list : change.lists) {
      for (const auto& written : list.written) {
        if (written.from == Agent::ListChange::Written::fresh) ids.push_back(written.id.str());
      }
    }
    text = change.text ? *change.text : "gone";
    heard_ = std::move(heard);
  }
  void drop() override { said += "drop "; }
  void carryOut(std::function<void()> done) override {
    said += "carryOut ";
    done_ = std::move(done);
  }
  void over() override { said += "over "; }

  void answer(const std::optional<std::string>& wrong = std::nullopt) {
    std::exchange(heard_, nullptr)(wrong);
  }
  void done() { std::exchange(done_, nullptr)(); }
  bool asked() const { return heard_ != nullptr; }
  bool carries() const { return done_ != nullptr; }

  std::string said, text;
  std::vector<std::string> ids;

 private:
  Heard heard_;
  std::function<void()> done_;
};

class PartnersTest : public testing::Test {
 protected:
  void start() {
    agent_.partnersAre(partners_);
    agent_.start(oneRule);
  }
  /// Asks for the change; the answer is in `answer_` when it comes.
  void apply(const Json& members = Json::object()) {
    agent_.ask({{"do", "text"}, {"name", "t"}, {"text", twoRules}});
    Json request = {{"do", "apply"}};
    request.update(members);
    std::string wrong;
    const auto read = Agent::Request::read(request.dump(), &wrong);
    agent_.plane().operations().handle(*read, agent_.session(), true, [this](Agent::Answer answer) {
      std::string text;
      while (answer.document && answer.document->next(text)) {
      }
      answer_ = answer.document ? Json::parse(text) : answer.error;
    });
  }
  size_t rules() { return agent_.show("access-lists", "A").at("lists").at(0).at("rules").size(); }

  SlowPartners partners_;
  RunningAgent agent_;
  std::optional<Json> answer_;
};

TEST_F(PartnersTest, AChangeIsInForceWhenAllHaveIt) {
  start();
  apply();
  agent_.turnsUntil([&] { return partners_.asked(); });
  agent_.turns();
  EXPECT_EQ(rules(), 1u) << "nobody begins before all are ready";
  EXPECT_EQ(partners_.text, twoRules);
  partners_.answer();
  EXPECT_TRUE(partners_.carries());
  agent_.turns();
  EXPECT_EQ(rules(), 2u);
  EXPECT_FALSE(answer_) << "it is not in force with all";
  EXPECT_TRUE(agent_.plane().configuration().busy());
  partners_.done();
  agent_.turnsUntil([&] { return answer_.has_value(); });
  EXPECT_EQ(answer_->at("applied"), true);
  EXPECT_EQ(partners_.said, "getReady carryOut over ");
  const Json rule = agent_.show("access-lists", "A").at("lists").at(0).at("rules").at(1);
  EXPECT_EQ(partners_.ids, std::vector{rule.at("id").get<std::string>()}) << "the same id everywhere";
}

TEST_F(PartnersTest, WhatOneOfThemCannotDoNobodyDoes) {
  start();
  for (const Json& members : {Json::object(), Json{{"confirm", 60}}}) {
    partners_.said.clear();
    answer_.reset();
    apply(members);
    agent_.turnsUntil([&] { return partners_.asked(); });
    partners_.answer("worker 2: out of memory");
    agent_.turnsUntil([&] { return answer_.has_value(); });
    EXPECT_EQ(answer_->at("mistakes").at(0), "worker 2: out of memory") << *answer_;
    EXPECT_EQ(partners_.said, "getReady drop ");
    EXPECT_EQ(rules(), 1u);
    agent_.turns();
    EXPECT_FALSE(agent_.plane().configuration().busy());
    EXPECT_FALSE(agent_.plane().configuration().confirmation().waits());
  }
  apply();
  agent_.turnsUntil([&] { return partners_.asked(); });
  partners_.answer();
  partners_.done();
  agent_.turnsUntil([&] { return answer_.has_value() && answer_->contains("applied"); });
  EXPECT_EQ(rules(), 2u) << "the next one may do";
}

TEST_F(PartnersTest, AFileThatOneOfThemCannotTakeIsTriedAgain) {
  agent_.partnersAre(partners_);
  const std::map<std::string, std::string> none;
  agent_.start(oneRule, &none);
  agent_.putFile("more", "ip access-list B\n 10 permit ip any any\n");
  const auto asked = [&] {
    agent_.advance(0.2);
    return partners_.asked();
  };
  agent_.turnsUntil(asked);
  partners_.answer("worker 1: out of memory");
  agent_.turns();
  EXPECT_TRUE(agent_.show("access-lists", "B").contains("error"));
  const auto bad = [&] { return agent_.show("status").at("configuration").at("bad"); };
  ASSERT_EQ(bad().size(), 1u);
  EXPECT_NE(bad().at(0).dump().find("worker 1: out of memory"), std::string::npos) << bad();
  agent_.turnsUntil(asked);
  partners_.answer();
  partners_.done();
  agent_.turnsUntil([&] { return bad().empty(); });
  EXPECT_FALSE(agent_.show("access-lists", "B").contains("error"));
}

}  // namespace
