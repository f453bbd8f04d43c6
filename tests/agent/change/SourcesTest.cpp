#include <agent/change/Sources.h>
#include <gmock/gmock.h>

#include "../support/ModelOf.h"

namespace {

using Agent::commandLineName;
using Agent::Sources;
using testing::HasSubstr;
using TestSupport::modelOf;

Sources sourcesOf(const std::string& commandLine, const std::map<std::string, std::string>& inputs) {
  Sources sources;
  sources.commandLine = modelOf(commandLine);
  for (const auto& [name, text] : inputs) sources.inputs[name] = modelOf(text);
  return sources;
}

using Names = std::vector<std::string>;

TEST(SourcesOfConfiguration, ComeInTheOrderOfTheirPrecedence) {
  Names names;
  sourcesOf("", {{"b", ""}, {"a", ""}}).forEach([&](const std::string& name, const Config::Model&) {
    names.push_back(name);
  });
  EXPECT_EQ(names, (Names{"", "a", "b"}));
}

TEST(SourcesOfConfiguration, TheFirstThatDefinesAnInterfaceDoes) {
  struct Row {
    const char* why;
    const char* commandLine;
    const char* a;
    const char* b;
    Names members;
  };
  for (const Row& row : {
           Row{"the command line goes first",
               "port-channel po1 members eth1\n",
               "port-channel po1 members eth2\n",
               "",
               {"eth1"}},
           Row{"then inputs by name, never a mixture",
               "",
               "port-channel po1 members eth2\n",
               "port-channel po1 members eth3 eth4\n",
               {"eth2"}},
           Row{"whoever has it", "", "", "port-channel po1 members eth3 eth4\n", {"eth3", "eth4"}},
       }) {
    const Sources sources = sourcesOf(row.commandLine, {{"a", row.a}, {"b", row.b}});
    EXPECT_EQ(sources.interfaces().portChannels.at("po1"), row.members) << row.why;
    EXPECT_EQ(sources.whyNoPort("po1"), "po1 is a port-channel: frames come in and leave by its members")
        << row.why;
    EXPECT_EQ(sources.whyNoPort("eth1"), std::nullopt) << row.why;
    EXPECT_EQ(sources.whyNot(), std::nullopt) << row.why;
  }
  EXPECT_EQ(sourcesOf("mirror session S destination eth1\n", {{"a", "mirror session S destination eth2\n"}})
                .interfaces()
                .mirrorSessions.at("S"),
            Names{"eth1"});
}

TEST(SourcesOfConfiguration, CannotBeInForceWhenTwoPortChannelsHaveOneMember) {
  const Sources sources =
      sourcesOf("port-channel po1 members eth1\n", {{"a", "port-channel po2 members eth1\n"}});
  ASSERT_TRUE(sources.whyNot());
  EXPECT_THAT(*sources.whyNot(), HasSubstr("eth1"));
}

TEST(SourcesOfConfiguration, AreExchangedOneByOne) {
  const Config::Model one = modelOf("ip access-list A\n"), other = modelOf("ip access-list B\n");
  for (const std::string& name : {commandLineName, std::string("a")}) {
    SCOPED_TRACE("source \"" + name + "\"");
    Sources sources = sourcesOf("", {{"z", ""}});
    const bool isCommandLine = name == commandLineName;
    // The command line's source is always there.
    EXPECT_EQ(sources.exchange(name, one).has_value(), isCommandLine);
    ASSERT_TRUE(sources.find(name));
    EXPECT_EQ(*sources.find(name), one);
    EXPECT_EQ(sources.exchange(name, other), one);
    EXPECT_EQ(sources.exchange(name, std::nullopt), other) << "it goes";
    EXPECT_EQ(sources.find(name) != nullptr, isCommandLine);
    EXPECT_EQ(sources.commandLine, Config::Model());
    EXPECT_EQ(sources.inputs.size(), 1u) << "others stay";
  }
}

TEST(SourcesOfConfiguration, MeetAnotherOneAtItsPlace) {
  const Sources sources = sourcesOf("", {{"b", ""}, {"d", ""}});
  const Config::Model other;
  for (const auto& [name, expected] : {std::pair<std::string, Names>{"a", {"", "a", "b", "d"}},
                                       {"c", {"", "b", "c", "d"}},
                                       {"d", {"", "b", "d"}},
                                       {"e", {"", "b", "d", "e"}},
                                       {"", {"", "b", "d"}}}) {
    Names names;
    for (const auto& [layer, model] : sources.layersWith(name, &other)) {
      names.push_back(layer);
      EXPECT_EQ(model == &other, layer == name) << name;
    }
    EXPECT_EQ(names, expected) << name;
  }
  EXPECT_EQ(sources.layersWith("b", nullptr).size(), 2u);
}

TEST(SourcesOfConfiguration, KnowTheRemarksBehindTheLastRule) {
  const Sources sources = sourcesOf("ip access-list A\n 10 permit ip any any\n remark end\n",
                                    {{"a", "ip access-list A\n remark of a file\n"}});
  EXPECT_EQ(sources.trailingRemarks(commandLineName, {Acl::AclType::ip, "A"}), Names{"end"});
  EXPECT_EQ(sources.trailingRemarks("a", {Acl::AclType::ip, "A"}), Names{"of a file"});
  EXPECT_EQ(sources.trailingRemarks("b", {Acl::AclType::ip, "A"}), Names());
  EXPECT_EQ(sources.trailingRemarks(commandLineName, {Acl::AclType::mac, "A"}), Names());
}

}  // namespace
