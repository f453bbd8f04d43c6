#include <agent/client/Command.h>
#include <agent/manual/Completion.h>
#include <agent/manual/Manual.h>
#include <gmock/gmock.h>

#include <CLI/CLI.hpp>

namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using Words = std::vector<std::string>;

class CompletionTest : public testing::Test {
 protected:
  CompletionTest() {
    commands_.push_back(Agent::showCommand(program_));
    commands_.push_back(Agent::explainCommand(program_));
    commands_.push_back(Agent::traceCommand(program_));
    commands_.push_back(Agent::applyCommand(program_));
    commands_.push_back(Agent::convertCommand(program_));
    commands_.push_back(Agent::findCommand(program_));
    program_.add_subcommand("hidden", "For shells.")->group("");
  }
  Words completions(const Words& words) { return Agent::completions(program_, words, live_); }

  CLI::App program_{"A program.", "velo"};
  std::vector<std::unique_ptr<Agent::Command>> commands_;
  const Agent::LiveNames live_{[] {
                                 return Words{"EDGE-OUT", "EDGE-IN", "WEB"};
                               },
                               [] {
                                 return Words{"eth1", "eth2"};
                               },
                               [] {
                                 return Words{"Velo::Acl", "Acl/Compiled"};
                               }};
};

TEST_F(CompletionTest, WhatCanBeTypedNext) {
  struct Case {
    Words words;
    Words expected;
  };
  const Case cases[] = {
      {{""}, {"apply", "convert", "explain", "find", "show", "trace"}},
      {{"s"}, {"show"}},
      {{"hid"}, {}},
      {{"show", "tr"}, {"trace", "trace-facilities"}},
      {{"show", "access-lists", ""}, {"EDGE-IN", "EDGE-OUT", "WEB"}},
      {{"show", "--json", "access-lists", "EDGE"}, {"EDGE-IN", "EDGE-OUT"}},
      {{"show", "access-lists", "A", ""}, {}},
      {{"show", "--interface", ""}, {"eth1", "eth2"}},
      {{"show", "--interface", "eth1", "access-lists", "W"}, {"WEB"}},
      {{"show", "--sort", "h"}, {"hits"}},
      {{"show", "history", ""}, {}},
      {{"convert", "--to", "o"}, {"openconfig"}},
      {{"find", ""}, {"deny", "match", "permit"}},
      {{"find", "deny", "W"}, {"WEB"}},
      {{"find", "deny", "WEB", ""}, {}},
      {{"show", "--js"}, {"--json"}},
      {{"explain", "--port", "eth2"}, {"eth2"}},
      {{"explain", "--config", "x"}, {Agent::filesMark}},
      {{"trace", "Velo"}, {"Velo::Acl"}},
      {{"trace", "--fast", "A"}, {"Acl/Compiled"}},
      {{"apply", "a", "b", "c"}, {Agent::filesMark}},
      {{"nonsense", ""}, {}},
      {{}, {}},
  };
  for (const Case& one : cases)
    EXPECT_EQ(completions(one.words), one.expected) << testing::PrintToString(one.words);
}

TEST_F(CompletionTest, AnAgentIsAskedOnlyForWhatIsTyped) {
  const Agent::LiveNames silent{};
  EXPECT_EQ(Agent::completions(program_, Words{"show", "por"}, silent), Words{"ports"});
}

TEST_F(CompletionTest, AManualPageSaysWhatTheHelpSays) {
  const std::string page = Agent::manualPage(program_, commands_[0]->app());
  EXPECT_THAT(page, HasSubstr(".SH NAME\nvelo\\-show \\- Show what a running agent knows\n"));
  EXPECT_THAT(page, HasSubstr("\\fBvelo\\fR \\fBshow\\fR [\\fIOPTIONS\\fR] \\fIWHAT\\fR [\\fINAME\\fR]\n"));
  EXPECT_THAT(page, HasSubstr(".TP\n\\fB\\-\\-json\\fR\none JSON document instead of text\n"));
  EXPECT_THAT(page, HasSubstr(".TP\n\\fB\\-\\-interface\\fR \\fINAME\\fR\n"));
  EXPECT_THAT(page, HasSubstr("Exit status: 0 done"));
  for (const CLI::Option* option : commands_[0]->app().get_options()) {
    std::string what;
    for (const char c : option->get_description()) what += c == '-' ? std::string("\\-") : std::string(1, c);
    EXPECT_THAT(page, HasSubstr("\n" + what + "\n"));
  }
}

TEST_F(CompletionTest, ThePageOfTheProgramListsTheCommands) {
  const std::string page = Agent::manualPage(program_, program_);
  EXPECT_THAT(page, HasSubstr(".TP\n\\fBvelo\\-show\\fR(1)\nShow what a running agent knows.\n"));
  EXPECT_THAT(page, testing::Not(HasSubstr("hidden")));
}

}  // namespace
