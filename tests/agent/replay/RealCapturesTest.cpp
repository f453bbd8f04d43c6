#include "../../support/Sanitizers.h"
#include "../../support/SharedData.h"
#include "../support/CaptureBytes.h"
#include "../support/Run.h"

#include <agent/ports/Captures.h>
#include <gmock/gmock.h>

#include <filesystem>
#include <nlohmann/json.hpp>

namespace {

using namespace TestSupport;
using Json = nlohmann::ordered_json;
namespace fs = std::filesystem;

/// What a capture may hold at most, in octets: five of 226 are larger, and take five times as long as the
/// rest.
constexpr uintmax_t largest = sanitizers ? 50'000 : UINTMAX_MAX;
/// Of so many captures one is replayed. To start the program is most of it where it is watched.
constexpr int oneOf = sanitizers ? 4 : 1;

// Lists of all kinds on every interface; some rules deny, some mirror, and much reaches the implicit drops.
const char* const config = R"(mac access-list M
   10 deny any 01:80:c2:00:00:00 00:00:00:00:00:0f
   20 permit any any ip
   30 permit any any ipv6 mirror session S
   40 permit any any arp
   50 permit any any
ip access-list IN
   10 permit tcp any any established
   20 deny tcp any any eq telnet mirror session S
   30 permit udp any any neq 53
   40 permit icmp any any
   50 permit ip any any fragments
   60 permit sctp any any
ip access-list OUT
   10 deny ip any any ttl lt 2
   20 permit tcp any any gt 1023
   30 permit udp any any mirror session S
   40 permit ip any any dscp 0
ipv6 access-list SIX
   10 permit icmpv6 any any
   20 permit udp any any
   30 permit tcp any any neq 80
   40 permit ipv6 any any fragments
port-channel po1 members eth2 eth3
interface eth1
   mac access-group M in
   ip access-group IN in
   ipv6 access-group SIX in
   ip access-group NOWHERE out
interface po1
   mac access-group M out
   ip access-group OUT out
   ipv6 access-group SIX out
interface eth2
   ip access-group OUT out
mirror session S destination eth9 po1
)";

/// Every sum that has to hold, of a document and its verdicts.
void expectSums(const Json& report, const std::string& verdicts) {
  const uint64_t frames = report["frames"], passed = report["passed"], dropped = report["dropped"];
  EXPECT_EQ(frames, passed + dropped);

  uint64_t hits = 0, lines = 0, linesPassed = 0, droppedIn = 0;
  std::istringstream text(verdicts);
  for (std::string line; std::getline(text, line); ++lines) {
    const Json verdict = Json::parse(line);
    hits += verdict["hits"].size();
    linesPassed += verdict["verdict"] == "pass";
    droppedIn += verdict["verdict"] == "drop" && verdict["direction"] == "in";
  }
  EXPECT_EQ(lines, frames);
  EXPECT_EQ(linesPassed, passed);

  uint64_t received = 0, sent = 0, copies = 0, portIn = 0, portOut = 0;
  for (const auto& [name, port] : report["ports"].items()) {
    received += port["received"].get<uint64_t>();
    sent += port["sent"].get<uint64_t>();
    copies += port["mirrored"].get<uint64_t>();
    portIn += port["dropped"]["in"].get<uint64_t>();
    portOut += port["dropped"]["out"].get<uint64_t>();
  }
  EXPECT_EQ(received, frames);
  EXPECT_EQ(portIn, droppedIn);
  EXPECT_EQ(portIn + portOut, dropped);
  EXPECT_EQ(sent, passed + copies) << "the one port is patched, so what passes leaves";

  uint64_t matches = 0, denied = 0;
  bool implicitIds = false;
  const auto sum = [](const Json& counts) {
    return counts["in"].get<uint64_t>() + counts["out"].get<uint64_t>();
  };
  for (const Json& list : report["lists"]) {
    for (const Json& rule : list["rules"]) {
      matches += sum(rule["matches"]);
      if (rule["text"].get<std::string>().starts_with("deny")) denied += sum(rule["matches"]);
    }
    if (list["implicitDrop"].is_null()) continue;
    implicitIds = true;
    matches += sum(list["implicitDrop"]["matches"]);
  }
  EXPECT_EQ(matches, hits);

  uint64_t named = 0, noMatch = 0, denies = 0;
  const Json drops = report["drops"].value("Drop", Json::object());
  for (const auto& [facility, reasons] : drops.items()) {
    for (const auto& [reason, count] : reasons.items()) {
      named += count.get<uint64_t>();
      if (reason.starts_with("No match on intf")) noMatch += count.get<uint64_t>();
      if (reason == "dropping pkt") denies += count.get<uint64_t>();
      EXPECT_THAT(reason, testing::Not(testing::HasSubstr("exception")));
    }
  }
  EXPECT_EQ(named, dropped) << "every drop has its reason";
  EXPECT_EQ(denies, denied);
  if (implicitIds) {
    uint64_t implicit = 0;
    for (const Json& list : report["lists"]) implicit += sum(list["implicitDrop"]["matches"]);
    EXPECT_EQ(implicit, noMatch);
  }
}

TEST(RealCaptures, EveryCaptureReplaysAndTheSumsHold) {
  if (!fs::is_directory(captureFolder())) GTEST_SKIP() << "no captures at " << captureFolder();
  const TempDir dir;
  writeFile(dir / "c.acl", config);
  uint64_t whole = 0, frames = 0;
  int files = 0;
  for (const auto& entry : fs::recursive_directory_iterator(captureFolder())) {
    const std::string path = entry.path().string();
    if (!entry.is_regular_file() || path.ends_with(".md") || path.ends_with(".tsv")) continue;
    if (entry.file_size() > largest || ++files % oneOf != 0) continue;
    Agent::CaptureReader reader(path);
    uint64_t inFile = 0, bytes = 0;
    while (reader.next()) {
      ++inFile;
      bytes += std::max<uint64_t>(reader.wireLength(), reader.frame().size());
    }
    frames += inFile;
    for (const char* policy : {"drop", "pass"}) {
      if (sanitizers && (inFile % 2 == 0) != (policy == std::string_view("drop"))) continue;
      SCOPED_TRACE(path + " " + policy);
      const Ran ran = runVelo({"replay", "--config", dir / "c.acl", "--port", "eth1=" + path, "--patch",
                               "eth1,po1", "--verdicts", dir / "v", "--json", "--malformed", policy});
      if (reader.wrong().empty()) {
        ++whole;
        EXPECT_EQ(ran.status, 0) << ran.err;
        EXPECT_EQ(withoutOpenings(ran.err), "");
      } else {
        EXPECT_EQ(ran.status, reader.refused() ? 2 : 1);
        EXPECT_THAT(ran.err, testing::HasSubstr(path));
        EXPECT_TRUE(!ran.out.empty() || inFile == 0) << "whole frames were not replayed";
      }
      if (ran.out.empty()) continue;
      const Json report = Json::parse(ran.out);
      EXPECT_EQ(report["frames"], inFile);
      EXPECT_EQ(report["bytes"], bytes);
      expectSums(report, readFile(dir / "v"));
    }
  }
  EXPECT_GT(whole, 0u);
  EXPECT_GT(frames, 0u);
  RecordProperty("frames", std::to_string(frames));
}

}  // namespace
