#include <gmock/gmock.h>

#include "../support/CaptureBytes.h"
#include "../support/RunningAgent.h"

#include <cstdlib>
#include <filesystem>
#include <future>

// What was counted, as the operational tree of other models.

namespace {

using namespace TestSupport;
using testing::HasSubstr;

const std::string yangModules = VELO_SOURCE_DIR "/../shared/data/models/yang";

/// A is bound in one place in and in two places out, B in one, and C nowhere.
constexpr const char* boundLists =
    "ip access-list A\n 10 deny udp any any eq 10\n 20 permit udp any any eq 20\n"
    "ip access-list B\n 7 permit ip any any\n"
    "ipv6 access-list C\n 10 permit ipv6 any any\n"
    "interface eth1\n ip access-group A in\n ip access-group A out\n"
    "interface eth2\n ip access-group A out\n"
    "interface eth3\n ip access-group B in\n";

class StateTreeTest : public testing::Test {
 protected:
  StateTreeTest() {
    agent_.start(boundLists, nullptr, unhurriedLimits());
    agent_.patch("eth1", "eth4");
    agent_.patch("eth3", "eth2");
    for (const uint16_t port : {10, 20, 20, 30}) agent_.receive("eth1", udpTo(port));
    agent_.receive("eth3", udpTo(20));
  }

  Ran shown(std::vector<std::string> words) {
    words.insert(words.begin(), {"show", "access-lists"});
    words.insert(words.end(), {"--control", agent_.socketPath()});
    auto ran = std::async(std::launch::async, [&words] { return runVelo(words); });
    while (ran.wait_for(std::chrono::milliseconds(1)) != std::future_status::ready) agent_.turns(5);
    return ran.get();
  }
  Json tree(const char* format) {
    const Ran ran = shown({"--format", format});
    EXPECT_EQ(ran.status, 0) << ran.err;
    return ran.out.empty() ? Json() : Json::parse(ran.out);
  }

  /// What yanglint says of a document; empty when it is valid, or cannot be looked at here.
  std::string whyInvalid(const Json& document, const std::string& arguments) {
    if (std::system("command -v yanglint >/dev/null 2>&1") != 0 ||
        !std::filesystem::is_directory(yangModules))
      return "";
    writeFile(
        dir_ / "velo-test-type.yang",
        std::string_view(
            "module velo-test-type { namespace \"urn:velo-test-type\"; prefix t; import ietf-interfaces "
            "{ prefix if; } identity any { base if:interface-type; } }\n"));
    writeFile(dir_ / "document.json", document.dump());
    const std::string command =
        fmt::format("yanglint -p {0} {1} {2}/velo-test-type.yang -t data {2}/document.json >{2}/out 2>&1",
                    yangModules, arguments, dir_.path());
    return std::system(command.c_str()) == 0 ? "" : readFile(dir_ / "out") + "invalid";
  }

  RunningAgent agent_;
  const TempDir dir_;
};

/// Of each entry, by its key: "PACKETS/OCTETS".
std::string countsOf(const Json& entries, const char* key, const char* member) {
  std::string text;
  for (const Json& entry : entries) {
    const Json& counts = member ? entry.at(member) : entry;
    text += fmt::format(
        "{} {}/{}; ", entry.at(key).is_string() ? entry.at(key).get<std::string>() : entry.at(key).dump(),
        counts.at("matched-packets").get<std::string>(), counts.at("matched-octets").get<std::string>());
  }
  return text;
}

TEST_F(StateTreeTest, IetfHasWhatEachEntryMatchedAndWhere) {
  Json document = tree("ietf");
  const Json& acls = document.at("ietf-access-control-list:acls");
  const auto octets = udpTo(10).size();
  EXPECT_EQ(countsOf(acls.at("acl").at(0).at("aces").at("ace"), "name", "statistics"),
            fmt::format("10 1/{}; 20 3/{}; implicit-drop 1/{}; ", octets, 3 * octets, octets));
  const Json& places = acls.at("attachment-points").at("interface");
  const auto statistics = [](const Json& place, const char* direction) {
    const Json& set = place.at(direction).at("acl-sets").at("acl-set").at(0);
    return set.contains("ace-statistics") ? countsOf(set.at("ace-statistics"), "name", nullptr) : "none";
  };
  EXPECT_EQ(statistics(places.at(0), "ingress"),
            fmt::format("10 1/{0}; 20 2/{1}; implicit-drop 1/{0}; ", octets, 2 * octets));
  EXPECT_EQ(statistics(places.at(0), "egress"), "none") << "counted for two places together";
  EXPECT_EQ(statistics(places.at(1), "egress"), "none");
  EXPECT_EQ(statistics(places.at(2), "ingress"), fmt::format("7 1/{}; implicit-drop 0/0; ", octets));

  for (const char* name : {"eth1", "eth2", "eth3"})
    document["ietf-interfaces:interfaces"]["interface"].push_back(
        {{"name", name},
         {"type", "velo-test-type:any"},
         {"oper-status", "up"},
         {"statistics", {{"discontinuity-time", "2026-01-01T00:00:00Z"}}}});
  const std::string modules =
      fmt::format("-F ietf-access-control-list:'*' {}/ietf-access-control-list@2019-03-04.yang", yangModules);
  EXPECT_EQ(whyInvalid(document, modules), "");
}

TEST_F(StateTreeTest, OpenConfigHasWhatEachEntryMatchedAndWhere) {
  Json document = tree("openconfig");
  const Json& acl = document.at("openconfig-acl:acl");
  const auto octets = udpTo(10).size();
  const Json& set = acl.at("acl-sets").at("acl-set").at(0);
  EXPECT_EQ(set.at("state"), set.at("config"));
  EXPECT_EQ(countsOf(set.at("acl-entries").at("acl-entry"), "sequence-id", "state"),
            fmt::format("10 1/{}; 20 3/{}; 4294967295 1/{}; ", octets, 3 * octets, octets));
  const Json& places = acl.at("interfaces").at("interface");
  const Json& in = places.at(0).at("ingress-acl-sets").at("ingress-acl-set").at(0);
  EXPECT_EQ(countsOf(in.at("acl-entries").at("acl-entry"), "sequence-id", "state"),
            fmt::format("10 1/{0}; 20 2/{1}; 4294967295 1/{0}; ", octets, 2 * octets));
  EXPECT_FALSE(places.at(0).at("egress-acl-sets").at("egress-acl-set").at(0).contains("acl-entries"));

  for (const char* name : {"eth1", "eth2", "eth3"})
    document["openconfig-interfaces:interfaces"]["interface"].push_back(
        {{"name", name},
         {"config", {{"name", name}, {"type", "velo-test-type:any"}}},
         {"state",
          {{"name", name}, {"type", "velo-test-type:any"}, {"admin-status", "UP"}, {"oper-status", "UP"}}}});
  const std::string modules = fmt::format(
      "{0}/openconfig-acl.yang {0}/openconfig-interfaces.yang {0}/openconfig-icmpv4-types.yang "
      "{0}/openconfig-icmpv6-types.yang {0}/openconfig-packet-match-types.yang",
      yangModules);
  EXPECT_EQ(whyInvalid(document, modules), "");
}

/// Rule 10 becomes two entries of other numbers, or of its own and the next.
TEST_F(StateTreeTest, WhereARuleIsSeveralEntriesNothingIsTold) {
  agent_.apply(
      "ip access-list D\n 10 deny udp any any eq 10 20\n 11 permit ip any any\n 20 deny ip any any\ninterface eth1\n ip access-group D in\n");
  agent_.receive("eth1", udpTo(10));
  for (const char* format : {"ietf", "openconfig"})
    EXPECT_EQ(tree(format).dump().find("matched-packets"), std::string::npos) << format;
}

TEST_F(StateTreeTest, WhatCannotBeWrittenIsRefused) {
  for (const std::vector<std::string>& words :
       std::vector<std::vector<std::string>>{{"--format", "sonic"},
                                             {"--format", "text"},
                                             {"--format", "ietf", "--hit"},
                                             {"A", "--format", "ietf"}})
    EXPECT_EQ(shown(words).status, 2) << testing::PrintToString(words);
}

}  // namespace
