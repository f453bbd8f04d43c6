#include "../support/CaptureBytes.h"
#include "../support/Run.h"

#include <fcntl.h>
#include <gmock/gmock.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <filesystem>
#include <nlohmann/json.hpp>

namespace {

using namespace TestSupport;
using Json = nlohmann::ordered_json;
using testing::AllOf;
using testing::HasSubstr;
using testing::Not;
using testing::StartsWith;
namespace fs = std::filesystem;

/// A directory with a configuration and a capture of three frames.
class CommandLine : public testing::Test {
 protected:
  CommandLine() {
    writeFile(acl_, "ip access-list A\n   10 permit udp any any\ninterface eth1\n   ip access-group A in\n");
    writeFile(pcap_, pcapBytes(frames_));
  }

  Ran replay(std::vector<std::string> more, const std::map<std::string, std::string>& environment = {}) {
    more.insert(more.begin(), "replay");
    return runVelo(more, environment);
  }
  /// With the usual configuration and capture.
  Ran usual(std::vector<std::string> more, const std::map<std::string, std::string>& environment = {}) {
    more.insert(more.begin(), {"--config", acl_, "--port", "eth1=" + pcap_});
    return replay(more, environment);
  }
  Json document(const Ran& ran) {
    EXPECT_EQ(ran.status, 0) << ran.err;
    return Json::parse(ran.out);
  }

  const TempDir dir_;
  const std::string acl_ = dir_ / "a.acl";
  const std::string pcap_ = dir_ / "in.pcap";
  const std::vector<Captured> frames_ = [] {
    const Bytes udp = frame().eth().ip4("192.0.2.1", "192.0.2.2").udp(1, 2).payload(10);
    const Bytes tcp = frame().eth().ip4("192.0.2.1", "192.0.2.2").tcp(1, 2);
    return std::vector<Captured>{{1700000000, 123456789, udp, 52},
                                 {1700000001, 1, tcp, 1514},  // its payload was cut off by the snap length
                                 {1700000002, 999999999, udp, 52}};
  }();
};

TEST_F(CommandLine, HelpMentionsEverythingAndEndsWell) {
  const Ran ran = replay({"--help"});
  EXPECT_EQ(ran.status, 0);
  EXPECT_EQ(ran.err, "");
  for (const char* option :
       {"--config ", "--config-dir ", "--port ", "--patch ", "--out ", "--verdicts ", "--annotate ",
        "--malformed ", "--json", "--plugin ", "--trace ", "VELO_TRACE", "Exit status: 0", "Example:"}) {
    EXPECT_THAT(ran.out, HasSubstr(option));
  }
}

TEST_F(CommandLine, BadUsageEndsWithTwoAndSaysWhat) {
  struct Row {
    const char* why;
    std::vector<std::string> arguments;
    const char* message;
  };
  const std::string port = "eth1=" + pcap_;
  const auto usually = [&](std::vector<std::string> more) {
    more.insert(more.begin(), {"replay", "--config", acl_, "--port", port});
    return more;
  };
  const Row rows[] = {
      {"no configuration", {"replay", "--port", port}, "--config"},
      {"no port", {"replay", "--config", acl_}, "--port"},
      {"a port without a file",
       {"replay", "--config", acl_, "--port", "eth1"},
       "\"eth1\" is not of the form NAME=FILE"},
      {"a port without a name",
       {"replay", "--config", acl_, "--port", "=" + pcap_},
       "is not of the form NAME=FILE"},
      {"a port whose file is empty",
       {"replay", "--config", acl_, "--port", "eth1="},
       "is not of the form NAME=FILE"},
      {"a port whose name no text can have",
       {"replay", "--config", acl_, "--port", "eth 1=" + pcap_},
       "is no name for a port"},
      {"a port named twice", usually({"--port", port}), "port eth1 is named twice"},
      {"an out named twice", usually({"--out", "a=" + (dir_ / "x"), "--out", "a=" + (dir_ / "y")}),
       "port a is named twice"},
      {"a patch of one end", usually({"--patch", "eth1"}), "\"eth1\" is not of the form A,B"},
      {"a patch to itself", usually({"--patch", "eth1,eth1"}), "eth1 cannot be patched to itself"},
      {"a port patched twice", usually({"--patch", "eth1,eth2", "--patch", "eth3,eth1"}),
       "eth1 is patched to eth2 already"},
      {"a policy that is none", usually({"--malformed", "keep"}), "--malformed"},
      {"a capture that would be overwritten",
       usually({"--out", "eth2=" + (dir_ / "../" + fs::path(dir_.path()).filename().string() + "/in.pcap")}),
       "would be written over"},
      {"verdicts on standard output", usually({"--verdicts", "-"}), "--verdicts: - is no file to write to"},
      {"an annotated capture on standard output", usually({"--annotate", "-"}),
       "--annotate: - is no file to"},
      {"one file for two outputs", usually({"--out", "eth2=" + (dir_ / "x"), "--verdicts", dir_ / "x"}),
       "would be written over"},
  };
  for (const Row& row : rows) {
    const Ran ran = runVelo(row.arguments);
    EXPECT_EQ(ran.status, 2) << row.why << ": " << ran.err;
    EXPECT_THAT(ran.err, HasSubstr(row.message)) << row.why;
    EXPECT_EQ(ran.out, "") << row.why;
  }
  EXPECT_EQ(document(usual({"--json"}))["frames"], 3) << "the capture is whole";
}

TEST_F(CommandLine, APortChannelReceivesNothingItself) {
  writeFile(acl_, "port-channel po1 members eth1 eth2\n");
  for (const auto& [option, file] : {std::pair("--port", pcap_), std::pair("--out", dir_ / "x.pcap")}) {
    const Ran ran = usual({option, "po1=" + file});
    EXPECT_EQ(ran.status, 2) << option;
    EXPECT_THAT(ran.err, HasSubstr("po1 is a port-channel")) << option;
  }
}

TEST_F(CommandLine, EveryMistakeOfEveryTextIsReportedWithItsPlace) {
  writeFile(dir_ / "one.acl",
            "ip access-list A\n   10 permit tpc any any\n   20 permit tcp any any eq 70000\n");
  writeFile(dir_ / "two.acl", "interfaces eth1\n");
  fs::create_directory(dir_ / "d");
  writeFile(dir_ / "d/b", "\n\nno nothing\n");
  writeFile(dir_ / "d/a", "mac access-list standard\n");
  const Ran ran =
      replay({"--config", dir_ / "one.acl", dir_ / "two.acl", dir_ / "missing.acl", "--config-dir",
              dir_ / "d", "--port", "eth1=" + pcap_, "--out", "eth2=" + (dir_ / "out.pcap")});
  EXPECT_EQ(ran.status, 2);
  EXPECT_EQ(ran.out, "");
  EXPECT_FALSE(fs::exists(dir_ / "out.pcap")) << "nothing was begun";
  EXPECT_THAT(ran.err, AllOf(HasSubstr(dir_ / "one.acl:2:14: "), HasSubstr(dir_ / "one.acl:3:29: "),
                             HasSubstr(dir_ / "two.acl:1:1: "), HasSubstr(dir_ / "d/a:1:17: "),
                             HasSubstr(dir_ / "d/b:3:4: "),
                             HasSubstr(dir_ / "missing.acl: No such file or directory")));
  EXPECT_LT(ran.err.find("d/a:1"), ran.err.find("d/b:3")) << "in the order of the names";
}

TEST_F(CommandLine, ADirectoryAloneIsAConfiguration) {
  fs::create_directory(dir_ / "d");
  fs::copy(acl_, dir_ / "d/a");
  const Json lists =
      document(replay({"--config-dir", dir_ / "d", "--port", "eth1=" + pcap_, "--json"})).at("lists");
  ASSERT_EQ(lists.size(), 1u);
  EXPECT_EQ(lists.at(0).at("name"), "A");
}

TEST_F(CommandLine, ADirectoryThatCannotBeReadIsReported) {
  Ran ran = usual({"--config-dir", dir_ / "none"});
  EXPECT_EQ(ran.status, 2);
  EXPECT_THAT(ran.err, HasSubstr("none: No such file or directory"));
  ran = usual({"--config", dir_.path()});
  EXPECT_EQ(ran.status, 2);
  EXPECT_THAT(ran.err, HasSubstr(": is a directory"));
}

TEST_F(CommandLine, PortChannelsOfTwoSourcesThatCannotBeTogetherAreRefused) {
  writeFile(acl_, "port-channel po1 members eth1\n");
  fs::create_directory(dir_ / "d");
  writeFile(dir_ / "d/x", "port-channel po2 members eth1\n");
  const Ran ran = usual({"--config-dir", dir_ / "d"});
  EXPECT_EQ(ran.status, 2);
  EXPECT_THAT(ran.err, HasSubstr("port-channel po2: eth1 is a member of po1 already"));
}

TEST_F(CommandLine, ACaptureThatCannotBeOpenedEndsWithOne) {
  writeFile(dir_ / "empty", "");
  struct Row {
    const char* why;
    std::string path;
    const char* message;
  };
  for (const Row& row : {Row{"missing", dir_ / "none.pcap", "none.pcap: No such file"},
                         Row{"empty", dir_ / "empty", "empty: "}, Row{"a text", acl_, "a.acl: "},
                         Row{"a directory", dir_.path(), "is a directory, not a capture"}}) {
    const Ran ran = replay({"--config", acl_, "--port", "eth1=" + row.path});
    EXPECT_EQ(ran.status, 1) << row.why;
    EXPECT_THAT(ran.err, HasSubstr(row.message)) << row.why;
    EXPECT_EQ(ran.out, "") << row.why;
  }
}

TEST_F(CommandLine, ACutOffCaptureGivesItsWholeFramesAndSaysWhereItEnds) {
  const Bytes whole = pcapBytes(frames_);
  struct Row {
    const char* why;
    size_t lost;
  };
  for (const Row& row : {Row{"in the last frame", 1}, Row{"in the last frame's header", 60}}) {
    writeFile(pcap_, cut(whole, whole.size() - row.lost));
    const Ran ran = usual({"--json"});
    EXPECT_EQ(ran.status, 1) << row.why;
    EXPECT_THAT(ran.err, AllOf(HasSubstr("in.pcap: "), HasSubstr("behind frame 2"))) << row.why;
    EXPECT_EQ(Json::parse(ran.out)["frames"], 2) << row.why;
  }
  writeFile(pcap_, cut(whole, 24));
  EXPECT_EQ(document(usual({"--json"}))["frames"], 0) << "a capture without frames is whole";
}

TEST_F(CommandLine, OtherPortsGoOnWhenOneCaptureEndsEarly) {
  const Bytes whole = pcapBytes(frames_);
  writeFile(dir_ / "cut.pcap", cut(whole, whole.size() - 1));
  const Ran ran = usual({"--port", "eth2=" + (dir_ / "cut.pcap"), "--json"});
  EXPECT_EQ(ran.status, 1);
  const Json ports = Json::parse(ran.out)["ports"];
  EXPECT_EQ(ports["eth1"]["received"], 3);
  EXPECT_EQ(ports["eth2"]["received"], 2);
}

TEST_F(CommandLine, OtherLinkTypesAreRefusedByName) {
  struct Row {
    uint32_t linkType;
    const char* name;
  };
  for (const Row& row :
       {Row{0, "NULL"}, Row{105, "IEEE802_11"}, Row{192, "PPI"}, Row{4242, "link type 4242"}}) {
    writeFile(pcap_, pcapBytes(frames_, {false, true, row.linkType}));
    const Ran ran = usual({});
    EXPECT_EQ(ran.status, 2) << row.name;
    EXPECT_THAT(ran.err, AllOf(HasSubstr(row.name),
                               HasSubstr("only Ethernet, Linux cooked and raw IP can be replayed")));
  }
}

TEST_F(CommandLine, EveryKindOfCaptureGivesTheSameFramesToTheNanosecond) {
  struct Row {
    const char* why;
    Bytes file;
    bool nano;
  };
  const Row rows[] = {{"little-endian nanoseconds", pcapBytes(frames_), true},
                      {"big-endian nanoseconds", pcapBytes(frames_, {true, true, 1}), true},
                      {"little-endian microseconds", pcapBytes(frames_, {false, false, 1}), false},
                      {"big-endian microseconds", pcapBytes(frames_, {true, false, 1}), false},
                      {"pcapng", pcapngBytes(frames_), true}};
  for (const Row& row : rows) {
    writeFile(pcap_, row.file);
    writeFile(acl_, "");
    EXPECT_EQ(
        document(usual({"--json", "--patch", "eth1,eth2", "--out", "eth2=" + (dir_ / "out.pcap")}))["passed"],
        3)
        << row.why;
    auto expected = frames_;
    if (!row.nano) {
      for (Captured& each : expected) each.nanoseconds -= each.nanoseconds % 1000;
    }
    EXPECT_EQ(readPcap(dir_ / "out.pcap"), expected) << row.why;
  }
}

TEST_F(CommandLine, FractionsOfMoreThanASecondCarryOver) {
  writeFile(pcap_, pcapBytes({{5, 2100000001u, frames_[0].frame, 52}}));
  document(usual({"--json", "--patch", "eth1,eth2", "--out", "eth2=" + (dir_ / "out.pcap")}));
  const auto sent = readPcap(dir_ / "out.pcap");
  ASSERT_EQ(sent.size(), 1u);
  EXPECT_EQ(sent[0].seconds, 7u);
  EXPECT_EQ(sent[0].nanoseconds, 100000001u);
}

TEST_F(CommandLine, EveryTimeIsReplayedOrRefusedWithItsPlace) {
  struct Row {
    const char* why;
    bool classic;  ///< a pcap file, otherwise pcapng
    uint64_t seconds;
    bool replayed;
  };
  constexpr uint64_t one = 1;
  const Row rows[] = {
      {"the first there is", true, 0, true},
      {"no sign in a pcap file", true, one << 31, true},
      {"the last of a pcap file", true, (one << 32) - 1, true},
      {"no sign in a pcapng file", false, one << 31, true},
      {"beyond what a pcap file can tell", false, one << 33, true},
      {"the last second of 9999", false, 253402300799, true},
      {"the first beyond", false, 253402300800, false},
      {"where a second is the least of a real number", false, one << 53, false},
      {"where a second more is no more", false, one << 54, false},
      {"where numbers with a sign turn over", false, one << 63, false},
      {"a second before 1970, for those who see a sign", false, ~uint64_t{0}, false},
  };
  for (const Row& row : rows) {
    const std::vector<Captured> frames = {{row.seconds, 0, frames_[0].frame, 52}};
    writeFile(pcap_, row.classic ? pcapBytes(frames) : pcapngBytes(frames, false));
    const Ran ran = usual({"--json"});
    const Json json = Json::parse(ran.out);
    EXPECT_EQ(ran.status, row.replayed ? 0 : 1) << row.why << ": " << ran.err;
    EXPECT_EQ(json["frames"], row.replayed ? 1 : 0) << row.why;
    if (!row.replayed) {
      EXPECT_THAT(ran.err, HasSubstr("in.pcap: frame 1: its time stamp is not in the years 1970 to 9999"))
          << row.why;
      continue;
    }
    EXPECT_EQ(json["lists"][0]["rules"][0]["lastMatch"], row.seconds) << row.why;
    EXPECT_EQ(json["status"]["status"]["ip"]["acl"]["A"]["counterUpdateTime"], row.seconds + 1)
        << row.why << ": the last poll is a second behind the frame";
  }
}

TEST_F(CommandLine, WhatComesBeforeAFrameThatIsRefusedIsReplayed) {
  writeFile(pcap_, pcapngBytes({{1700000000, 0, frames_[0].frame, 52},
                                {1700000001, 0, frames_[0].frame, 52},
                                {uint64_t{1} << 54, 0, frames_[0].frame, 52},
                                {1700000002, 0, frames_[0].frame, 52}},
                               false));
  const Ran ran = usual({"--json"});
  EXPECT_EQ(ran.status, 1);
  EXPECT_THAT(ran.err, HasSubstr("in.pcap: frame 3: "));
  EXPECT_EQ(Json::parse(ran.out)["frames"], 2);
}

TEST_F(CommandLine, TimeThatGoesBackLeavesTheAgentsClockAndTheFramesStamps) {
  const std::vector<Captured> frames = {
      {2000, 0, frames_[0].frame, 52}, {1000, 7, frames_[0].frame, 52}, {1500, 0, frames_[0].frame, 52}};
  writeFile(pcap_, pcapBytes(frames));
  const Json json =
      document(usual({"--json", "--patch", "eth1,eth2", "--out", "eth2=" + (dir_ / "out.pcap")}));
  EXPECT_EQ(json["lists"][0]["rules"][0]["lastMatch"], 2000);
  EXPECT_EQ(json["status"]["status"]["ip"]["acl"]["A"]["counterUpdateTime"], 2001);
  EXPECT_EQ(readPcap(dir_ / "out.pcap"), frames);
}

TEST_F(CommandLine, ATimeThatTheOutputCannotHoldEndsTheFileAndIsSaid) {
  const Captured early{1700000000, 0, frames_[0].frame, 52};
  writeFile(pcap_, pcapngBytes({early, {uint64_t{1} << 32, 0, frames_[0].frame, 52}}, false));
  const Ran ran = usual({"--json", "--patch", "eth1,eth2", "--out", "eth2=" + (dir_ / "out.pcap")});
  EXPECT_EQ(ran.status, 1);
  EXPECT_THAT(ran.err, HasSubstr("out.pcap: ends before a frame of a time that a pcap file cannot hold"));
  EXPECT_EQ(Json::parse(ran.out)["passed"], 2);
  EXPECT_EQ(readPcap(dir_ / "out.pcap"), std::vector{early});
}

TEST_F(CommandLine, AnOutputThatCannotBeWrittenEndsWithOne) {
  for (const char* option : {"--out", "--verdicts"}) {
    const std::string prefix = std::string(option) == "--out" ? "eth2=" : "";
    const Ran ran = usual({option, prefix + (dir_ / "no/such/place")});
    EXPECT_EQ(ran.status, 1) << option;
    EXPECT_THAT(ran.err, AllOf(HasSubstr("no/such/place"), HasSubstr("No such file or directory"))) << option;
    EXPECT_EQ(ran.out, "") << option;
  }
  if (!fs::exists("/dev/full")) GTEST_SKIP() << "no /dev/full here";
  EXPECT_THAT(usual({"--verdicts", "/dev/full"}).err,
              HasSubstr("/dev/full: could not be written to its end"));
  EXPECT_THAT(usual({"--patch", "eth1,eth2", "--out", "eth2=/dev/full"}).err,
              HasSubstr("/dev/full: could not be written to its end"));
  const Ran full = runVelo({"replay", "--config", acl_, "--port", "eth1=" + pcap_}, {}, "/dev/full");
  EXPECT_EQ(full.status, 1);
  EXPECT_THAT(full.err, HasSubstr("standard output could not be written"));
}

TEST_F(CommandLine, TheTableIsPlainTextInTheShapeOfTheLists) {
  writeFile(acl_,
            "ip access-list A\n   remark our own\n   10 permit udp any any\n   20 deny tcp any any eq 80 443 "
            "8080 log\n"
            "interface eth1\n   ip access-group A in\n   mac access-group GONE out\n");
  const Ran ran = usual({});
  EXPECT_EQ(ran.status, 0);
  EXPECT_EQ(withoutOpenings(ran.err), "") << "no progress but on a terminal";
  EXPECT_EQ(
      ran.err,
      acl_ +
          ":7:21: opening: interface eth1: mac access-list GONE is bound out but not defined: everything "
          "passes it\n");
  EXPECT_THAT(ran.out, Not(HasSubstr("\x1b")));
  EXPECT_THAT(
      ran.out,
      AllOf(HasSubstr("ip access-list A  (eth1 in)  from cli\n"), HasSubstr(" remark our own\n"),
            HasSubstr("mac access-list GONE is bound (eth1 out) but not defined: everything passes it\n"),
            HasSubstr("3 frames, 1618 bytes: 2 passed, 1 dropped\n")));
  EXPECT_THAT(ran.out, testing::ContainsRegex(
                           "\n +10 permit udp any any +2 +0 +104  2023-11-14 22:13:2[23]\\.[0-9]{6}\n"));
  EXPECT_THAT(ran.out, testing::ContainsRegex("\n +20 deny tcp any any eq 80 443 8080 log +0 +0 +0  -\n"));
}

TEST_F(CommandLine, TheDocumentHasItsMembers) {
  writeFile(acl_,
            "ip access-list A\n   10 permit udp any any\nipv6 access-list B\nmac access-list C\ninterface "
            "eth1\n   ip access-group A in\n");
  const Json json = document(usual({"--json"}));
  EXPECT_EQ(json["frames"], 3);
  EXPECT_EQ(json["bytes"], 52 + 1514 + 52) << "on the wire";
  EXPECT_EQ(json["passed"], 2);
  EXPECT_EQ(json["dropped"], 1);
  ASSERT_EQ(json["lists"].size(), 3u);
  EXPECT_EQ(json["lists"][0]["type"], "ip");
  EXPECT_EQ(json["lists"][1]["type"], "ipv6");
  EXPECT_EQ(json["lists"][2]["type"], "mac");
  const Json& list = json["lists"][0];
  EXPECT_EQ(list["name"], "A");
  EXPECT_EQ(list["source"], "cli");
  EXPECT_EQ(list["bindings"],
            Json::parse(R"([{"interface": "eth1", "direction": "in", "source": "cli", "overridden": []}])"));
  EXPECT_TRUE(list.contains("implicitDrop"));
  const Json& rule = list["rules"][0];
  EXPECT_EQ(rule["sequence"], 10);
  EXPECT_EQ(rule["text"], "permit udp any any");
  EXPECT_TRUE(rule["id"].is_string());
  EXPECT_EQ(rule["matches"], Json::parse(R"({"in": 2, "out": 0})"));
  EXPECT_NEAR(rule["lastMatch"].get<double>(), 1700000002.999999999, 1e-6);
  EXPECT_EQ(json["drops"]["Drop"]["Velo::Acl"]["No match on intf %s, default action is drop"], 1);
  EXPECT_EQ(json["ports"]["eth1"],
            Json::parse(R"({"received": 3, "sent": 0, "dropped": {"in": 1, "out": 0}, "mirrored": 0})"));
}

TEST_F(CommandLine, AVerdictIsALineWithItsMembers) {
  const Ran ran = usual({"--verdicts", dir_ / "v"});
  EXPECT_EQ(ran.status, 0);
  std::istringstream lines(readFile(dir_ / "v"));
  std::string line;
  std::getline(lines, line);
  EXPECT_EQ(Json::parse(line),
            Json::parse(R"({"port": "eth1", "frame": 1, "verdict": "pass", "hits": [{"direction": "in",
      "interface": "eth1", "type": "ip", "list": "A", "rule": 10, "action": "permit"}], "mirrored": []})"));
  std::getline(lines, line);
  const Json drop = Json::parse(line);
  EXPECT_EQ(drop["frame"], 2);
  EXPECT_EQ(drop["verdict"], "drop");
  EXPECT_EQ(drop["direction"], "in");
  EXPECT_EQ(drop["reason"], "No match on intf %s, default action is drop");
}

TEST_F(CommandLine, WatchingTheVerdictsChangesNothing) {
  const Json with = document(usual({"--json", "--verdicts", dir_ / "v"}));
  Json without = document(usual({"--json"}));
  for (Json* document : {&without}) {
    for (Json& list : (*document)["lists"]) {
      for (size_t i = 0; i < list["rules"].size(); ++i)
        list["rules"][i]["id"] = with["lists"][0]["rules"][i]["id"];
    }
  }
  EXPECT_EQ(with, without);
}

TEST_F(CommandLine, TextsThatAreTooLargeAreRefusedAtOnce) {
  writeFile(dir_ / "large.acl", "");
  fs::resize_file(dir_ / "large.acl", uintmax_t{200} << 20);
  const std::string larger = "large.acl: is larger than the 64 MiB that a configuration text may have";
  const std::string large = dir_ / "large.acl";
  for (const std::vector<std::string>& command :
       {std::vector<std::string>{"check", large},
        {"apply", large},
        {"run", "--config", large, "--port", "eth1=none"},
        {"explain", "--config", large, "--port", "eth1", "--in", "udp 192.0.2.1:1 > 192.0.2.2:2"},
        {"replay", "--config", large, "--port", "eth1=" + pcap_}}) {
    const Ran ran = runVelo(command);
    EXPECT_EQ(ran.status, 2) << command.front();
    EXPECT_THAT(ran.err, HasSubstr(larger)) << command.front();
  }
  writeFile(dir_ / "two.acl", std::string(2 << 20, '\n'));
  EXPECT_EQ(runVelo({"check", dir_ / "two.acl"}).status, 0);
  EXPECT_THAT(runVelo({"check", "--text-limit", "1", dir_ / "two.acl"}).err,
              HasSubstr("than the 1 MiB that a"));
  EXPECT_THAT(runVelo({"check", "--texts-limit", "3", dir_ / "two.acl", dir_ / "two.acl"}).err,
              HasSubstr("two.acl: with the texts before it is more than the 3 MiB"));
  EXPECT_THAT(replay({"--config", dir_ / "two.acl", "--port", "eth1=" + pcap_, "--text-limit", "1"}).err,
              HasSubstr("than the 1 MiB that a"));
}

TEST_F(CommandLine, WhatThereIsNoMemoryForIsRefused) {
  if (!memoryCanBeLimited) GTEST_SKIP() << "sanitizers take more than a limit would allow";
  std::string rules = "ip access-list A\n";
  for (int i = 0; i < 200000; ++i) rules += fmt::format("deny tcp host 10.0.{}.{} any\n", i / 250, i % 250);
  writeFile(acl_, rules);
  const rlim_t limit = rlim_t{300} << 20;
  for (const std::vector<std::string>& command : {std::vector<std::string>{"check", acl_},
                                                  {"apply", "--control", dir_ / "none", acl_},
                                                  {"run", "--config", acl_, "--port", "eth1=none"},
                                                  {"replay", "--config", acl_, "--port", "eth1=" + pcap_}}) {
    const Ran ran = runVelo(command, {}, {}, {{RLIMIT_AS, limit}});
    EXPECT_EQ(ran.status, 2) << command.front();
    EXPECT_THAT(ran.err, HasSubstr("a.acl: its 200001 lines would take 0.")) << command.front();
  }
}

TEST_F(CommandLine, AnApplyTellsTheFirstMistakesOfMany) {
  std::string text;
  for (int i = 0; i < 500; ++i) text += "nonsense\n";
  writeFile(acl_, text);
  const Ran ran = runVelo({"apply", "--control", dir_ / "none", acl_});
  EXPECT_EQ(ran.status, 2);
  EXPECT_EQ(std::count(ran.err.begin(), ran.err.end(), '\n'), 100);
}

TEST_F(CommandLine, TooFewDescriptorsAreSaidAtTheStart) {
  const Ran ran = runVelo({"run", "--config", acl_, "--port", "eth1=none"}, {}, {}, {{RLIMIT_NOFILE, 30}});
  EXPECT_EQ(ran.status, 1);
  EXPECT_THAT(ran.err, AllOf(HasSubstr("velo: 66 file descriptors are needed, and "),
                             HasSubstr("can be had: Too many open files")));
}

TEST_F(CommandLine, ARunThatIsStillReadingEndsBySignal) {
  const std::string pipe = dir_ / "pipe";
  ASSERT_EQ(mkfifo(pipe.c_str(), 0600), 0);
  const pid_t child = fork();
  if (child == 0) {
    const std::string program = std::string(VELO_BIN_DIR) + "/velo";
    execl(program.c_str(), program.c_str(), "run", "--config", pipe.c_str(), "--port", "eth1=none", nullptr);
    _exit(127);
  }
  // Opened for writing when the other end reads: then it waits for a text that does not come.
  const int writer = open(pipe.c_str(), O_WRONLY);
  kill(child, SIGTERM);
  int status = 0;
  waitpid(child, &status, 0);
  EXPECT_TRUE(WIFSIGNALED(status) && WTERMSIG(status) == SIGTERM) << status;
  close(writer);
}

}  // namespace
