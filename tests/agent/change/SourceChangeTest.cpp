#include <agent/change/SourceChange.h>
#include <fmt/format.h>

#include <gtest/gtest.h>

#include <algorithm>

#include "../support/ModelOf.h"

namespace {

using namespace Agent;
using Acl::AclType;
using TestSupport::modelOf;
using Asked = ListChange::Asked;

/// One list L of one rule, or none.
constexpr const char* has = "ip access-list L\n 10 permit ip any any\n";
constexpr const char* hasOther = "ip access-list L\n 10 permit udp any any\n";
constexpr const char* hasNone = "ip access-list M\n";
constexpr const char* binds = "interface eth1\n ip access-group L in\n";

/// A source changes while others have the same list or not; the sources are in the order of precedence.
struct Passing {
  const char* why;
  const char* commandLine;
  std::map<std::string, const char*> inputs;
  std::string source;
  const char* now;  ///< null: it goes
  bool inForce;
  bool comes;
  const char* otherSource;  ///< empty: none
};

TEST(SourceChange, KnowsWhichSourceAListPassesFromAndTo) {
  const Passing rows[] = {
      {"nobody else has it", "", {}, "b", has, true, true, ""},
      {"the command line is before every input", has, {}, "b", has, false, true, ""},
      {"an input that comes before the one that has it takes over",
       "",
       {{"b", has}},
       "a",
       has,
       true,
       true,
       "b"},
      {"one that comes behind it does not", "", {{"b", has}}, "c", has, false, true, ""},
      {"one that comes between two takes over from the second",
       "",
       {{"a", hasNone}, {"c", has}, {"d", hasOther}},
       "b",
       has,
       true,
       true,
       "c"},
      {"and not when the first has it", "", {{"a", has}, {"c", has}}, "b", has, false, true, ""},
      {"an input that is there takes over, too", "", {{"a", hasNone}, {"b", has}}, "a", has, true, true, "b"},
      {"one that goes leaves it to the next",
       "",
       {{"a", has}, {"b", hasNone}, {"c", has}},
       "a",
       nullptr,
       true,
       false,
       "c"},
      {"but not when it was not in force",
       "",
       {{"a", has}, {"b", has}, {"c", has}},
       "b",
       nullptr,
       false,
       false,
       ""},
      {"the command line takes over from the first input",
       "",
       {{"a", has}, {"b", has}},
       "",
       has,
       true,
       true,
       "a"},
      {"a change of rules takes over nothing", "", {{"a", has}, {"b", has}}, "a", hasOther, true, false, ""},
  };
  for (const Passing& row : rows) {
    SCOPED_TRACE(row.why);
    const Config::Model commandLine = modelOf(row.commandLine);
    std::map<std::string, Config::Model> inputs;
    for (const auto& [name, text] : row.inputs) inputs[name] = modelOf(text);
    const Config::Model now = row.now ? modelOf(row.now) : Config::Model();
    const SourceChange change = sourceChange({commandLine, inputs}, row.source, row.now ? &now : nullptr);
    EXPECT_EQ(change.goes, !row.now);
    const auto list = std::find_if(change.lists.begin(), change.lists.end(),
                                   [](const ListChange& each) { return each.key.second == "L"; });
    ASSERT_NE(list, change.lists.end());
    EXPECT_EQ(list->inForce, row.inForce);
    EXPECT_EQ(list->comes, row.comes);
    EXPECT_EQ(list->otherSource, row.otherSource);
    EXPECT_EQ(list->other != nullptr, !list->otherSource.empty());
  }
}

TEST(SourceChange, KnowsWhenPacketsAskAList) {
  struct Asking {
    const char* why;
    const char* before;
    const char* now;
    const char* other;  ///< of an input behind
    Asked asked;
  };
  const std::string bound = std::string(has) + binds, otherBound = std::string(hasOther) + binds;
  for (const Asking& row : {
           Asking{"bound all the time", bound.c_str(), otherBound.c_str(), "", Asked::always},
           Asking{"bound by another source", has, hasOther, binds, Asked::always},
           Asking{"bound from now on", has, otherBound.c_str(), "", Asked::notBefore},
           Asking{"bound until now", bound.c_str(), hasOther, "", Asked::notAfter},
           Asking{"bound nowhere", has, hasOther, "", Asked::notBefore},
       }) {
    SCOPED_TRACE(row.why);
    const Config::Model before = modelOf(row.before), now = modelOf(row.now);
    const std::map<std::string, Config::Model> inputs = {{"z", modelOf(row.other)}};
    const SourceChange change = sourceChange({before, inputs}, "", &now);
    ASSERT_EQ(change.lists.size(), 1u);
    EXPECT_EQ(change.lists.front().asked, row.asked);
  }
}

/// The numbers of the rules that are written, behind `<` those before.
std::string writtenOf(const ListChange& list) {
  std::string text;
  for (const auto& [rule, from, id] : list.written) {
    text += fmt::format("{}{}", text.empty() ? "" : " ", Config::common(*rule).sequence);
    if (from != ListChange::Written::fresh) text += fmt::format("<{}", from);
  }
  return text;
}

TEST(SourceChange, TellsRulesThatGoFromThoseThatAreSpelledOtherwise) {
  const Config::Model before = modelOf(
      "ip access-list L\n 10 permit ip any any\n 20 permit udp any any eq 53\n 30 deny ip any any\n 40 "
      "permit tcp any "
      "any\n");
  const Config::Model now = modelOf(
      "ip access-list L\n 5 deny udp any any\n 10 permit ip any any\n 20 permit udp any any eq domain\n 30 "
      "permit ip "
      "any any\n 50 deny tcp any any\n");
  const SourceChange change = sourceChange({before, {}}, "", &now);
  ASSERT_EQ(change.lists.size(), 1u);
  const ListChange& list = change.lists.front();
  EXPECT_EQ(list.gone, (std::vector<uint32_t>{30, 40}));
  EXPECT_EQ(writtenOf(list), "5 20<20 30 50");
}

TEST(SourceChange, KnowsByWhichNumberARuleKeepsItsId) {
  const Config::Model before =
      modelOf("ip access-list L\n 10 permit tcp any any\n 20 permit udp any any\n 30 deny ip any any\n");
  const Config::Model now = modelOf(
      "ip access-list L\n 10 permit sctp any any\n 20 permit tcp any any\n 25 permit 17 any any\n 30 deny "
      "ip any any\n");
  const SourceChange change = sourceChange({before, {}}, "", &now);
  ASSERT_EQ(change.lists.size(), 1u);
  EXPECT_EQ(change.lists.front().gone, std::vector<uint32_t>());
  EXPECT_EQ(writtenOf(change.lists.front()), "10 20<10 25<20");
}

}  // namespace
