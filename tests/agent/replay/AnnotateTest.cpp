#include <agent/ports/Captures.h>
#include <fmt/format.h>
#include <gmock/gmock.h>

#include "../../support/Sanitizers.h"
#include "../../support/SharedData.h"
#include "../support/CaptureBytes.h"
#include "../support/PcapngBytes.h"
#include "../support/Run.h"

#include <cstdio>
#include <filesystem>
#include <map>
#include <nlohmann/json.hpp>
#include <sstream>

namespace {

using namespace TestSupport;
using Json = nlohmann::ordered_json;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::StartsWith;
namespace fs = std::filesystem;

class Annotate : public testing::Test {
 protected:
  Annotate() {
    writeFile(dir_ / "acl",
              "ip access-list IN\n 10 permit udp any any eq 1\n 20 deny udp any any eq 2\n"
              " 30 permit udp any any eq 3\n"
              "ip access-list OUT\n 10 deny udp any any eq 3\n 20 permit ip any any\n"
              "interface eth1\n ip access-group IN in\ninterface eth2\n ip access-group OUT out\n");
  }

  Ran replay(std::vector<std::string> more) {
    more.insert(more.begin(), {"replay", "--config", dir_ / "acl", "--annotate", annotated_});
    return runVelo(more);
  }
  static Bytes udp(uint16_t port) { return frame().eth().ip4("192.0.2.1", "192.0.2.2").udp(1024, port); }

  const TempDir dir_;
  const std::string annotated_ = dir_ / "annotated.pcapng";
};

TEST_F(Annotate, EveryReceivedFrameHasItsVerdict) {
  writeFile(dir_ / "1.pcap", pcapBytes({{100, 5, udp(1), 42},
                                        {101, 0, udp(2), 42},
                                        {103, 999999999, udp(3), 1500},
                                        {104, 0, udp(4), 42},
                                        {105, 0, Bytes(13), 13}}));
  writeFile(dir_ / "2.pcap", pcapBytes({{100, 6, udp(9), 42}, {102, 0, udp(9), 42}}));
  const Ran ran = replay({"--port", "eth1=" + (dir_ / "1.pcap"), "--port", "eth2=" + (dir_ / "2.pcap"),
                          "--patch", "eth1,eth2", "--out", "eth2=" + (dir_ / "out.pcap")});
  ASSERT_EQ(ran.status, 0) << ran.err;
  const CommentedFile file = readPcapng(annotated_);
  EXPECT_THAT(file.interfaces, ElementsAre("eth1", "eth2"));
  const std::string back = "passes, no list is asked, and leaves by eth1";
  const CommentedBlock rows[] = {
      {"eth1", 100000000005, udp(1), 42,
       "passes by rule 10 of IN on eth1 and by rule 20 of OUT on eth2, and leaves by eth2", 1},
      {"eth2", 100000000006, udp(9), 42, back, 1},
      {"eth1", 101000000000, udp(2), 42, "dropped on its way in by rule 20 of IN on eth1", 1},
      {"eth2", 102000000000, udp(9), 42, back, 1},
      {"eth1", 103999999999, udp(3), 1500, "dropped on its way out by rule 10 of OUT on eth2", 1},
      {"eth1", 104000000000, udp(4), 42, "dropped on its way in because no rule of IN on eth1 matches", 1},
      {"eth1", 105000000000, Bytes(13), 13, "dropped on its way in on eth1: ethernet header cut short", 1}};
  ASSERT_EQ(file.frames.size(), std::size(rows));
  for (size_t i = 0; i < std::size(rows); ++i) EXPECT_EQ(file.frames[i], rows[i]) << file.frames[i].comment;
}

TEST_F(Annotate, APacketWithoutAnEthernetHeaderGetsOne) {
  const Bytes whole = udp(2), packet(whole.begin() + 14, whole.end());
  writeFile(dir_ / "raw.pcap", pcapBytes({{100, 0, packet, 500}}, {.linkType = 101}));
  ASSERT_EQ(replay({"--port", "eth1=" + (dir_ / "raw.pcap")}).status, 0);
  const CommentedFile file = readPcapng(annotated_);
  ASSERT_EQ(file.frames.size(), 1u);
  Bytes expected(12);
  expected.insert(expected.end(), whole.begin() + 12, whole.end());
  EXPECT_EQ(file.frames[0].frame, expected);
  EXPECT_EQ(file.frames[0].wire, 514u);
}

TEST_F(Annotate, WhatCannotBeWrittenIsSaid) {
  writeFile(dir_ / "1.pcap", pcapBytes({{100, 5, udp(1), 42}}));
  const std::vector<std::string> usual = {"replay", "--config", dir_ / "acl", "--port",
                                          "eth1=" + (dir_ / "1.pcap")};
  const auto annotatedTo = [&usual](const std::string& path) {
    auto arguments = usual;
    arguments.insert(arguments.end(), {"--annotate", path});
    return runVelo(arguments);
  };
  EXPECT_EQ(annotatedTo(dir_ / "1.pcap").status, 2);
  EXPECT_THAT(annotatedTo(dir_ / "1.pcap").err, HasSubstr("would be written over"));
  EXPECT_EQ(annotatedTo(dir_ / "none/x").status, 1);
  EXPECT_THAT(annotatedTo(dir_ / "none/x").err, HasSubstr("none/x: No such file"));
  if (!fs::exists("/dev/full")) return;
  const Ran full = annotatedTo("/dev/full");
  EXPECT_EQ(full.status, 1);
  EXPECT_THAT(full.err, HasSubstr("/dev/full: could not be written to its end"));
}

/// What a command prints; nothing when it cannot be run.
std::optional<std::string> printed(const std::string& command) {
  FILE* pipe = popen((command + " 2>/dev/null").c_str(), "r");
  if (!pipe) return std::nullopt;
  std::string text;
  char piece[4096];
  for (size_t got; (got = fread(piece, 1, sizeof piece, pipe)) > 0;) text.append(piece, got);
  return pclose(pipe) == 0 ? std::optional(text) : std::nullopt;
}

TEST_F(Annotate, IsReadByWhoeverReadsSuchFiles) {
  if (!printed("tshark --version")) GTEST_SKIP() << "tshark is not installed";
  writeFile(dir_ / "1.pcap",
            pcapBytes({{100, 5, udp(1), 42}, {101, 0, udp(2), 1500}, {102, 0, Bytes(13), 13}}));
  writeFile(dir_ / "2.pcap", pcapBytes({{101, 6, udp(9), 42}}));
  ASSERT_EQ(replay({"--port", "eth1=" + (dir_ / "1.pcap"), "--port", "eth2=" + (dir_ / "2.pcap")}).status, 0);
  const auto told = printed(fmt::format(
      "tshark -r {} -T fields -E separator='|' -e frame.number -e frame.time_epoch -e frame.interface_name "
      "-e frame.len -e frame.cap_len -e frame.packet_flags_direction -e frame.comment",
      annotated_));
  ASSERT_TRUE(told);
  const std::string passes = "passes by rule 10 of IN on eth1, and leaves by no port";
  // Versions of the program write the flags in several ways.
  std::string text = *told;
  for (size_t at; (at = text.find("|0x00000001|")) != text.npos;) text.replace(at, 12, "|1|");
  EXPECT_EQ(text,
            "1|100.000000005|eth1|42|42|1|" + passes +
                "\n2|101.000000000|eth1|1500|42|1|dropped on its way in by rule 20 of IN on eth1\n"
                "3|101.000000006|eth2|42|42|1|passes, no list is asked, and leaves by no port\n"
                "4|102.000000000|eth1|13|13|1|dropped on its way in on eth1: ethernet header cut short\n");
}

/// Every capture that there is: all its frames, with sentences that say what the verdicts say.
TEST_F(Annotate, SaysOfRealCapturesWhatTheVerdictsSay) {
  const fs::path captures = captureFolder();
  if (!fs::exists(captures)) GTEST_SKIP() << "there are no captures";
  uint64_t frames = 0;
  int files = 0;
  std::map<std::string, uint64_t> kinds;
  for (const auto& entry : fs::recursive_directory_iterator(captures)) {
    if (!entry.is_regular_file() || entry.file_size() > 30'000) continue;
    if (sanitizers && ++files % 4 != 0) continue;  // to start the program is most of it then
    const std::string verdicts = dir_ / "verdicts";
    fs::remove(verdicts);
    replay({"--port", "eth1=" + entry.path().string(), "--patch", "eth1,eth2", "--verdicts", verdicts});
    if (!fs::exists(verdicts)) continue;  // it is no capture, or one of another kind
    const CommentedFile file = readPcapng(annotated_);
    Agent::CaptureReader reader(entry.path());
    std::istringstream lines(readFile(verdicts));
    size_t at = 0;
    for (std::string line; std::getline(lines, line); ++at) {
      ASSERT_LT(at, file.frames.size()) << entry.path();
      ASSERT_TRUE(reader.next()) << entry.path();
      const CommentedBlock& block = file.frames[at];
      const size_t header = reader.typeBefore() ? 14 : 0;
      ASSERT_EQ(Bytes(block.frame.begin() + static_cast<long>(header), block.frame.end()),
                Bytes(reader.frame().begin(), reader.frame().end()))
          << entry.path() << " frame " << at + 1;
      const Json verdict = Json::parse(line);
      std::string sentence = "passes";
      if (verdict.at("verdict") == "drop") {
        sentence = "dropped on its way " + verdict.at("direction").get<std::string>() + " ";
        if (!verdict.at("hits").empty()) {
          const Json& last = verdict.at("hits").back();
          const std::string list = fmt::format("{} on {}", last.at("list").get<std::string>(),
                                               last.at("interface").get<std::string>());
          sentence += last.at("rule").is_string()
                          ? fmt::format("because no rule of {} matches", list)
                          : fmt::format("by rule {} of {}", last.at("rule").get<int>(), list);
        }
      }
      ASSERT_THAT(block.comment, StartsWith(sentence)) << entry.path() << " frame " << at + 1;
      ++kinds[sentence];
    }
    EXPECT_EQ(at, file.frames.size()) << entry.path();
    frames += at;
  }
  EXPECT_GT(frames, sanitizers ? 100u : 1000u);
  EXPECT_GT(kinds.size(), 2u);
}

}  // namespace
