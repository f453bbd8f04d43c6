#include <Acl/Workshop.h>
#include <Zeb/TraceHandle.h>
#include <agent/change/ChangeReport.h>
#include <agent/explain/Explain.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cstdlib>
#include <new>

#include "../../support/FailingMemory.h"
#include "../../support/Sanitizers.h"
#include "Rules.h"

// Every allocation of a change, of a request and of a connection fails once. The old configuration stays or
// the new one is in force whole, and the agent goes on.

namespace {

using namespace TestSupport;

/// What a configuration comes to: lists with the texts of their rules, bindings, port-channels.
Json shapeOf(RunningAgent& agent) {
  Json shape = Json::array();
  const Json shown = agent.show("access-lists");
  for (const Json& list : shown.at("lists")) {
    Json texts = Json::array();
    for (const Json& rule : list.at("rules")) texts.push_back(rule.at("text"));
    shape.push_back({{"name", list.at("name")},
                     {"published", list.at("published")},
                     {"bindings", list.at("bindings")},
                     {"rules", std::move(texts)}});
  }
  for (const auto& [id, members] : agent.core().portChannels().all()) shape.push_back(id.name().str());
  return shape;
}

/// Lists that change, come and go, and what else a change may change. Which of two it is can be told by any
/// of it.
std::string configuration(const char* which, const char* action, int count) {
  return fmt::format(
      "{0}ip access-list {1}\n permit ip any any\nmac access-list {1}\n deny any any\n"
      "interface eth2\n ip access-group {1} out\nport-channel {1} members eth8\nmirror session {1} "
      "destination eth9\n",
      rules(count, action), which);
}

class Memory : public testing::Test {
 protected:
  /// Begins with the old configuration; `size`: the rules of its largest list.
  void start(int size) {
    old_ = configuration("OLD", "permit", size);
    now_ = configuration("NEW", "deny", size);
    agent_.start(old_, nullptr, unhurriedLimits());
    oldShape_ = shapeOf(agent_);
    isApplied(now_);
    newShape_ = shapeOf(agent_);
    ASSERT_NE(oldShape_, newShape_);
    isApplied(old_);
    ASSERT_EQ(shapeOf(agent_), oldShape_);
  }
  void isApplied(const std::string& text) {
    const Json answer = agent_.apply(text);
    ASSERT_TRUE(answer.contains("applied")) << answer;
    agent_.turns();
  }
  /// What a client gets that asks for these; the last answer, or nothing where the connection was closed.
  Json ask(SocketClient& client, const std::vector<Json>& requests) {
    Json answer;
    for (const Json& request : requests) {
      std::string line = Agent::lineOf(request) + "\n";
      while (!line.empty() && !client.closed()) line.erase(0, client.send(line));
      const std::string got = client.line();
      if (got.empty()) {
        EXPECT_TRUE(client.closed()) << "neither answered nor closed: " << request;
        return {};
      }
      answer = Json::parse(got);
    }
    return answer;
  }
  /// The new configuration is applied by a client while memory runs out as `shortage` has it. True when it is
  /// in force.
  bool applyDuring(const std::function<void()>& shortage, const std::function<void()>& plenty) {
    bool applied = false;
    {
      SocketClient client(agent_);
      EXPECT_FALSE(client.closed());
      shortage();
      const Json answer = ask(client, {{{"do", "text"}, {"name", "new.acl"}, {"text", now_}},
                                       {{"do", "apply"}, {"dryRun", false}}});
      plenty();
      agent_.turnsUntil([this] { return !agent_.plane().configuration().busy(); });
      agent_.turns();
      applied = wholeAfter(answer);
    }
    EXPECT_FALSE(agent_.core().inForce().unpublished());
    if (applied) isApplied(old_);
    return applied;
  }
  bool wholeAfter(const Json& answer) {
    const Json shape = shapeOf(agent_);
    const bool isNew = shape == newShape_;
    EXPECT_TRUE(isNew || shape == oldShape_) << shape;
    EXPECT_EQ(agent_.receive("eth1", udpTo(2)).passed(), !isNew);
    if (answer.is_object()) {
      EXPECT_EQ(answer.at("ok"), isNew) << answer;
    }
    return isNew;
  }
  /// Has every allocation fail once of the threads that apply the new configuration.
  void failEverywhere(Threads threads) {
    int refused = 0, applied = 0;
    int64_t left = -1;
    for (int64_t count = 0; left < 0 && !HasFailure(); count += 1 + count / (sanitizers ? 8 : 16)) {
      SCOPED_TRACE(count);
      const bool isNew = applyDuring([&] { failAt(threads, count); }, [&] { left = stopFailing(threads); });
      if (left < 0) ++(isNew ? applied : refused);
    }
    constexpr int many = sanitizers ? 4 : 10;
    EXPECT_GT(refused, many);
    // What is prepared can be refused throughout; from the switch on nothing is.
    EXPECT_EQ(applied > many, threads == Threads::first);
  }

  RunningAgent agent_;
  std::string old_, now_;
  Json oldShape_, newShape_;
};

TEST_F(Memory, AChangeInOneGoIsWholeWhereverItRunsOutOnTheLoop) {
  start(20);
  failEverywhere(Threads::first);
}

TEST_F(Memory, AChangeInPiecesIsWholeWhereverItRunsOutOnTheLoop) {
  start(200);
  failEverywhere(Threads::first);
}

TEST_F(Memory, AChangeForWhichItRunsOutWhileItIsPreparedIsRefused) {
  start(20);
  failEverywhere(Threads::others);
}

/// With so much left and no more, whoever needs it.
TEST_F(Memory, AChangeIsWholeHoweverLittleIsLeft) {
  start(400);
  int refused = 0, applied = 0;
  constexpr size_t step = 64 << 10;
  for (size_t left = 0; applied < 3 && !HasFailure(); left += step) {
    SCOPED_TRACE(left);
    ++(applyDuring([&] { memoryLeftIs(left); }, &memoryIsUnlimited) ? applied : refused);
    ASSERT_LT(left, size_t{64} << 20);
  }
  EXPECT_GT(refused, 5);
}

/// Even if nothing would change by the one that is refused.
TEST_F(Memory, AChangeWaitsToBeConfirmedAlsoWhenAnotherOneIsRefused) {
  start(3);
  const auto apply = [this] {
    SocketClient client(agent_);
    return ask(client, {{{"do", "text"}, {"name", "new.acl"}, {"text", now_}},
                        {{"do", "apply"}, {"dryRun", false}, {"confirm", 600}}});
  };
  ASSERT_EQ(apply().at("ok"), true);
  int64_t left = -1;
  for (int64_t count = 0; left < 0 && !HasFailure(); ++count) {
    SCOPED_TRACE(count);
    failAt(Threads::first, count);
    apply();
    left = stopFailing(Threads::first);
    agent_.turnsUntil([this] { return !agent_.plane().configuration().busy(); });
    EXPECT_TRUE(agent_.plane().configuration().history().unconfirmed());
    EXPECT_TRUE(agent_.plane().configuration().confirmation().within());
  }
}

/// What is held back for a change is as much as it takes with what follows from it, the new model included.
TEST_F(Memory, AChangeTakesNoMoreThanIsHeldBackForIt) {
  agent_.start("");
  for (const int size : {20, 200, 2000}) {
    SCOPED_TRACE(size);
    isApplied(rules(size, "permit"));
    const auto before = Config::read({{"a", rules(size, "permit")}});
    const auto now = Config::read({{"a", rules(size, "deny")}});
    const std::map<std::string, Config::Model> none;
    const auto heldBack = Agent::sourceChange({*before.model, none}, "", &*now.model).memory();
    mostAllocatedIsNow();
    const size_t from = mostAllocated();
    isApplied(rules(size, "deny"));
    const size_t took = mostAllocated() - from;
    EXPECT_GE(took, heldBack);
    EXPECT_LE(took - heldBack, heldBack);
    RecordProperty(fmt::format("octets_a_rule_of_{}", size), std::to_string((took - heldBack) / size));
  }
}

TEST_F(Memory, WhatWasHeldBackIsGivenBackWhenAllHasFollowed) {
  start(200);
  const size_t before = allocatedOctets();
  isApplied(now_);
  isApplied(old_);
  agent_.advance(5);
  EXPECT_LT(allocatedOctets(), before + (100 << 10));
}

TEST_F(Memory, WorkIsNotBegunForWhoIsRefused) {
  agent_.start("");
  Agent::Background background(agent_.loop());
  const Agent::Refusable refusable;
  failAt(Threads::first, 0);
  ::operator delete(::operator new(1));
  EXPECT_THROW(background.run([] { ADD_FAILURE(); }, [](const auto&) { ADD_FAILURE(); }), std::bad_alloc);
  EXPECT_FALSE(background.busy());
}

TEST_F(Memory, AnAnswerIsWholeOrTheConnectionClosed) {
  start(200);
  agent_.patch("eth1", "eth2");
  for (const Json& request :
       {Json{{"do", "show"}, {"what", "access-lists"}}, Json{{"do", "show"}, {"what", "status"}},
        Json{{"do", "show"}, {"what", "nonsense"}}, Json{{"do", "clear"}},
        Json{{"do", "explain"}, {"port", "eth1"}, {"frame", "udp 192.0.2.1:5 > 198.51.100.7:2"}}}) {
    SCOPED_TRACE(request);
    SocketClient patient(agent_);
    const Json wanted = ask(patient, {request});
    ASSERT_TRUE(wanted.is_object());
    int closed = 0;
    int64_t left = -1;
    for (int64_t count = 0; left < 0 && !HasFailure(); count += 1 + count / 8) {
      SCOPED_TRACE(count);
      SocketClient client(agent_);
      EXPECT_FALSE(client.closed());
      failAt(Threads::first, count);
      const Json answer = ask(client, {request});
      left = stopFailing(Threads::first);
      closed += answer.is_null();
      EXPECT_TRUE(answer.is_null() || answer.at("ok") == wanted.at("ok")) << answer;
      EXPECT_EQ(ask(patient, {request}).at("ok"), wanted.at("ok")) << "others go on";
    }
    EXPECT_GT(closed, 5);
    EXPECT_EQ(shapeOf(agent_), oldShape_);
  }
}

/// With so much left and no more, however large the answer is.
TEST_F(Memory, AnAnswerIsWholeOrTheConnectionClosedHoweverLittleIsLeft) {
  start(200);
  std::string text = now_;
  for (int i = 0; i < 1500; ++i) text += fmt::format("interface e{}\n ip access-group A in\n", i);
  isApplied(text);
  agent_.patch("eth1", "eth2");
  for (const char* traces : {"DpAclStatusVelo/9", "Velo::Acl/9"})
    ASSERT_FALSE(Zeb::TraceHandle::enable(traces));
  isApplied(text + rules(1000, "permit"));
  Zeb::TraceHandle::disableAll();
  for (const Json& request :
       {Json{{"do", "show"}, {"what", "trace"}}, Json{{"do", "show"}, {"what", "interfaces"}},
        Json{{"do", "show"}, {"what", "access-lists"}}}) {
    SCOPED_TRACE(request);
    int whole = 0, closed = 0;
    for (size_t left = 0; whole < 2 && !HasFailure(); left += 1 + (sanitizers ? left : left / 2)) {
      SCOPED_TRACE(left);
      SocketClient client(agent_);
      EXPECT_FALSE(client.closed());
      memoryLeftIs(left);
      const Json answer = ask(client, {request});
      memoryIsUnlimited();
      ++(answer.is_null() ? closed : whole);
      EXPECT_TRUE(answer.is_null() || answer.at("ok")) << answer;
      agent_.turns();
    }
    EXPECT_GT(closed, 5);
  }
}

TEST_F(Memory, AChangeThatIsTracedIsWholeWhereverItRunsOut) {
  start(20);
  ASSERT_FALSE(Zeb::TraceHandle::enable("DpAclStatusVelo/9,Velo::Acl/9,Acl::Compiled/9"));
  failEverywhere(Threads::first);
  Zeb::TraceHandle::disableAll();
}

TEST_F(Memory, AConnectionForWhichItRunsOutIsClosed) {
  agent_.start("");
  auto& server = agent_.plane().server();
  int refused = 0;
  for (int64_t count = 0; count < 100; ++count) {
    int ends[2];
    ASSERT_EQ(socketpair(AF_UNIX, SOCK_STREAM, 0, ends), 0);
    failAt(Threads::first, count);
    bool taken = true;
    try {
      server.take(ends[0], true);
    } catch (const std::bad_alloc&) {
      taken = false;
    }
    stopFailing(Threads::first);
    EXPECT_EQ(server.clientCount(), taken ? 1u : 0u);
    char none;
    EXPECT_EQ(recv(ends[1], &none, 1, MSG_DONTWAIT), taken ? -1 : 0) << "closed if it was not taken";
    close(ends[1]);
    agent_.turns();
    if (taken) break;
    ++refused;
  }
  EXPECT_GT(refused, 1);
  EXPECT_EQ(server.clientCount(), 0u);
}

TEST_F(Memory, AFileForWhichItRunsOutIsTriedAgain) {
  RunningAgent& agent = agent_;
  const std::map<std::string, std::string> files = {{"a.acl", "ip access-list B\n permit ip any any\n"}};
  agent.start("", &files);
  // Not the status: that is shown by a thread of its own, in which it could run out, too.
  const auto bad = [&] { return configurationReport(agent.plane().configuration()).at("bad"); };
  const auto looking = [&] { return agent.plane().configuration().directory().looking(); };
  // No time passes while it looks: the next look would begin where this one ends, and mend it all.
  const auto looked = [&](const std::function<bool()>& so) {
    agent.advance(1.1);
    agent.turnsUntil([&] {
      if (looking()) return false;
      agent.pass(0.1);
      return !agent.plane().configuration().busy() && so();
    });
  };
  agent.advance(1.1);
  for (const int64_t count : {0, 3, 10, 30, 100}) {
    SCOPED_TRACE(count);
    agent.turnsUntil([&] { return !looking(); });  // it runs out for what is put there, not before
    failAt(Threads::others, count);
    agent.putFile("a.acl", fmt::format("ip access-list B\n permit ip any any\n{}", rules(60, "deny")));
    looked([&] { return !bad().empty(); });
    EXPECT_EQ(ruleCount(agent, "A"), 0u);
    EXPECT_EQ(ruleCount(agent, "B"), 1u) << "the old content is in force";
    const std::string wrong = bad().at(0).at("mistakes").at(0);
    EXPECT_TRUE(wrong.starts_with(agent.dirPath()) && wrong.ends_with(": memory ran out")) << wrong;
    stopFailing(Threads::others);
    looked([&] { return bad().empty() && ruleCount(agent, "A") == 60; });
    agent.putFile("a.acl", "ip access-list B\n permit ip any any\n");
    looked([&] { return ruleCount(agent, "A") == 0; });
  }
}

/// There is the memory to read it, and none to put it in force.
TEST_F(Memory, AFileForWhoseChangeThereIsNoneIsTriedAgain) {
  const std::map<std::string, std::string> files = {{"a.acl", rules(3, "permit")}};
  agent_.start("", &files);
  const auto bad = [&] { return configurationReport(agent_.plane().configuration()).at("bad"); };
  const auto looked = [&](const std::function<bool()>& so) {
    agent_.advance(1.1);
    agent_.turnsUntil([&] {
      agent_.pass(0.1);
      return !agent_.plane().configuration().busy() && so();
    });
  };
  agent_.putFile("a.acl", rules(1000, "deny"));
  memoryLeftIs(size_t{1500} << 10);
  looked([&] { return !bad().empty(); });
  EXPECT_EQ(bad().at(0).at("mistakes").at(0), agent_.dirPath() + "/a.acl: memory ran out");
  EXPECT_EQ(ruleCount(agent_, "A"), 3u);
  memoryIsUnlimited();
  looked([&] { return bad().empty() && ruleCount(agent_, "A") == 1000; });
}

/// Whoever may ask may name any interface; what is only asked about is not kept.
TEST_F(Memory, ADryRunLeavesNothing) {
  agent_.start("ip access-list A\n permit ip any any\n");
  int runs = 0;
  const auto dryRun = [&] {
    const Json answer = agent_.apply(
        fmt::format("port-channel po{0} members in{0} out{0}\nmirror session M{0} destination seen{0}\n"
                    "interface on{0}\n ip access-group L{0} in\n",
                    ++runs),
        true);
    ASSERT_TRUE(answer.contains("difference")) << answer;
  };
  constexpr int measured = sanitizers ? 500 : 4000;
  while (runs < 1000 && !HasFailure()) dryRun();
  const size_t before = allocatedOctets();
  while (runs < 1000 + measured && !HasFailure()) dryRun();
  EXPECT_LT(allocatedOctets(), before + measured) << "an octet a run";
  for (int i = 1; i <= runs; ++i) {
    for (const char* name : {"po", "in", "out", "seen", "on"})
      ASSERT_TRUE(Nimnet::IntfId::known(fmt::format("{}{}", name, i)).empty());
  }
}

TEST_F(Memory, AnExplanationDoesNotKeepTheNameOfAPortThatThereIsNot) {
  agent_.start(rules(3, "permit"));
  Agent::Explainer explainer(agent_.core(), agent_.forwarder());
  const Bytes octets = udpTo(2);
  const auto explained = [&](const char* port) {
    return explainer.explain(port, Agent::Frame{octets, static_cast<uint32_t>(octets.size())});
  };
  EXPECT_EQ(explained("eth1").at("asked").size(), 1u);
  const Json nowhere = explained("nowhere");
  EXPECT_EQ(nowhere.at("port"), "nowhere");
  EXPECT_EQ(nowhere.at("asked").size(), 0u);
  EXPECT_EQ(nowhere.at("verdict"), "pass");
  EXPECT_TRUE(Nimnet::IntfId::known("nowhere").empty());
  EXPECT_FALSE(Nimnet::IntfId::known("eth1").empty());
}

/// Freeing what was made for a large change takes longer than packets should wait.
TEST_F(Memory, WhatWasMadeInVainIsNotFreedOnTheLoop) {
  constexpr int size = 20000;
  const std::string large = rules(size, "deny");
  int64_t allocations = 0;  // of all but the very end of the preparation, what is to be written
  size_t octets = 0;
  struct Row {
    const char* what;
    std::function<void()> shortage;
    std::string text;
    std::string error;
  };
  const Row rowsOfAll[] = {
      {"at the end of the preparation", [&] { failAt(Threads::others, allocations + 5); }, large,
       "memory ran out"},
      {"what the change takes", [&] { memoryLeftIs(octets + (8 << 20)); }, large, "memory ran out"},
      {"nothing, interfaces cannot be", [] {}, large + "port-channel po1 members eth5\n", "eth5"},
  };
  const std::map<std::string, std::string> files = {{"a.acl", "port-channel po2 members eth5\n"}};
  agent_.start("", &files);
  Acl::Workshop::singleton().threadIs(true);
  constexpr int64_t plenty = int64_t{1} << 40;
  failAt(Threads::others, plenty);
  mostAllocatedIsNow();
  octets = allocatedOctets();
  ASSERT_TRUE(agent_.apply(large, true).contains("difference"));
  octets = mostAllocated() - octets;
  allocations = plenty - stopFailing(Threads::others);
  for (const Row& row : rowsOfAll) {
    SCOPED_TRACE(std::string("what is short: ") + row.what);
    agent_.turnsUntil([&] {
      const uint64_t before = freesOfFirst();
      agent_.turns(1);
      return freesOfFirst() < before + 100;  // what the last row left is gone
    });
    row.shortage();
    const uint64_t before = freesOfFirst();
    const Json answer = agent_.apply(row.text);
    const uint64_t freed = freesOfFirst() - before;
    stopFailing(Threads::others);
    memoryIsUnlimited();
    EXPECT_NE(answer.dump().find(row.error), std::string::npos) << answer;
    EXPECT_LT(freed, uint64_t{size} / 2) << "of some texts, and what the answer took";
  }
  Acl::Workshop::singleton().threadIs(false);
}

}  // namespace
