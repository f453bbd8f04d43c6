#include <agent/study/PacketSearch.h>
#include <gmock/gmock.h>

#include "../../support/Dice.h"
#include "../support/CaptureBytes.h"
#include "../support/ModelOf.h"
#include "../support/Run.h"

#include <map>

// velo find on a way with lists of several kinds, frame by frame.

namespace {

using namespace TestSupport;
using Agent::PacketQuestion;
using What = PacketQuestion::What;

/// All that the rules below can tell of a frame.
struct Told {
  bool fromOne, ip, tcp, toOne;
  int vlan;
};

struct Fields {
  const char* text;
  bool (*has)(const Told&);
};
constexpr Fields macFields[] = {
    {"any any", [](const Told&) { return true; }},
    {"host 02:00:00:00:00:01 any", [](const Told& f) { return f.fromOne; }},
    {"vlan 5 any any", [](const Told& f) { return f.vlan == 5; }},
    {"vlan 5 host 02:00:00:00:00:01 any", [](const Told& f) { return f.vlan == 5 && f.fromOne; }},
    {"any any 0x0800", [](const Told& f) { return f.ip; }},
    {"vlan 6 any any 0x0806", [](const Told& f) { return f.vlan == 6 && !f.ip; }},
};
constexpr Fields ipFields[] = {
    {"ip any any", [](const Told& f) { return f.ip; }},
    {"tcp any any", [](const Told& f) { return f.ip && f.tcp; }},
    {"vlan 5 ip any any", [](const Told& f) { return f.ip && f.vlan == 5; }},
    {"vlan 6 tcp any any", [](const Told& f) { return f.ip && f.tcp && f.vlan == 6; }},
    {"ip any host 10.0.0.1", [](const Told& f) { return f.ip && f.toOne; }},
};

struct MadeList {
  struct Rule {
    bool permits;
    const Fields* fields;
  };
  std::vector<Rule> rules;
  bool mac = false;

  /// The number of the rule that a frame meets, from 1; 0: none.
  size_t met(const Told& frame) const {
    for (size_t i = 0; i < rules.size(); ++i) {
      if (rules[i].fields->has(frame)) return i + 1;
    }
    return 0;
  }
  bool passes(const Told& frame) const {
    const size_t rule = met(frame);
    return rule > 0 && rules[rule - 1].permits;
  }
};

/// A way through a port-channel and two ports, with lists at some of its places.
class MadeWay {
 public:
  explicit MadeWay(Dice& dice) {
    const char* places[] = {"po1", "eth1", "eth2"};
    text_ = "port-channel po1 members eth1\n";
    std::map<std::string, std::string> blocks;
    for (size_t place = 0; place < 3; ++place) {
      for (const bool ofFrames : {true, false}) {
        if (dice.once(2)) continue;
        MadeList list{{}, ofFrames};
        const std::string name = fmt::format("L{}", lists_.size());
        text_ += fmt::format("{} access-list {}\n", ofFrames ? "mac" : "ip", name);
        for (uint64_t count = dice.below(3) + 1; count > 0; --count) {
          const Fields& fields = ofFrames ? dice.of(macFields) : dice.of(ipFields);
          list.rules.push_back({!dice.once(3), &fields});
          text_ += fmt::format(" {} {} {}\n", list.rules.size(),
                               list.rules.back().permits ? "permit" : "deny", fields.text);
        }
        blocks[places[place]] +=
            fmt::format(" {} access-group {} {}\n", ofFrames ? "mac" : "ip", name, place == 2 ? "out" : "in");
        lists_.push_back(std::move(list));
      }
    }
    for (const char* place : places) text_ += fmt::format("interface {}\n{}", place, blocks[place]);
  }

  const std::string& text() const { return text_; }
  const std::vector<MadeList>& lists() const { return lists_; }
  /// Whether a frame comes to a list, or with their number through all of them.
  bool comesTo(size_t list, const Told& frame) const {
    for (size_t i = 0; i < list; ++i) {
      if ((lists_[i].mac || frame.ip) && !lists_[i].passes(frame)) return false;
    }
    return true;
  }

 private:
  std::string text_;
  std::vector<MadeList> lists_;  // in the order in which frames meet them
};

std::vector<Told> allFrames() {
  std::vector<Told> all;
  for (const int vlan : {0, 5, 6}) {
    for (unsigned bits = 0; bits < 16; ++bits)
      all.push_back({(bits & 1) != 0, (bits & 2) != 0, (bits & 4) != 0, (bits & 8) != 0, vlan});
  }
  return all;
}

class PacketWays : public testing::Test {
 protected:
  /// The example that is found; empty: there is none.
  static std::string found(const MadeWay& way, PacketQuestion question) {
    const auto model = modelOf(way.text());
    question.from = "eth1";
    question.to = "eth2";
    std::string wrong, example;
    bool some = false;
    for (const bool all : {false, true}) {
      question.all = all;
      const auto document = Agent::packetSearch(question, {{"t", &model}}, &wrong);
      if (!document) {
        ADD_FAILURE() << wrong;
        return "";
      }
      EXPECT_EQ(document->at("unchecked").size(), 0u);
      EXPECT_TRUE(!all || document->at("found") == some) << "all of them, and one";
      some = document->at("found") == true;
      if (some) example = document->at("kinds").at(0).at("example").get<std::string>();
    }
    return example;
  }
  /// Of the frames that lists of a kind are asked about.
  template <class Is>
  static bool any(Acl::AclType type, const Is& is) {
    const auto frames = allFrames();
    return std::any_of(frames.begin(), frames.end(), [&](const Told& frame) {
      return (type == Acl::AclType::mac || frame.ip) && is(frame);
    });
  }
};

TEST_F(PacketWays, HaveAPacketWhereOneOfAllFramesIsSo) {
  size_t answers[2] = {}, explained = 0;
  const TempDir dir;
  for (uint64_t seed = 0; seed < 150 && !HasFailure(); ++seed) {
    Dice dice(seed);
    const MadeWay way(dice);
    SCOPED_TRACE(fmt::format("seed {}\n{}", seed, way.text()));
    writeFile(dir / "way.acl", way.text());
    for (const Acl::AclType type : {Acl::AclType::ip, Acl::AclType::mac}) {
      for (const bool passes : {true, false}) {
        const std::string example = found(way, {.what = passes ? What::permit : What::deny, .type = type});
        EXPECT_EQ(!example.empty(), any(type, [&](const Told& frame) {
          return way.comesTo(way.lists().size(), frame) == passes;
        }));
        ++answers[example.empty()];
        if (example.empty() || seed >= 20) continue;
        const Ran ran = runVelo({"explain", "--config", dir / "way.acl", "--port", "eth1", "--out", "eth2",
                                 "--in", example, "--json"});
        EXPECT_EQ(nlohmann::ordered_json::parse(ran.out).at("verdict"), passes ? "pass" : "drop")
            << example << ran.err;
        ++explained;
      }
    }
  }
  EXPECT_GT(answers[0], 100u);
  EXPECT_GT(answers[1], 100u);
  EXPECT_GT(explained, 30u);
}

TEST_F(PacketWays, BringThoseToARuleThatNothingBeforeItDrops) {
  size_t answers[2] = {};
  for (uint64_t seed = 0; seed < 150 && !HasFailure(); ++seed) {
    Dice dice(seed);
    const MadeWay way(dice);
    SCOPED_TRACE(fmt::format("seed {}\n{}", seed, way.text()));
    for (size_t i = 0; i < way.lists().size(); ++i) {
      const MadeList& list = way.lists()[i];
      const auto type = list.mac ? Acl::AclType::mac : Acl::AclType::ip;
      for (uint32_t rule = 1; rule <= list.rules.size(); ++rule) {
        const std::string example =
            found(way, {.what = What::match, .list = fmt::format("L{}", i), .rule = rule, .type = type});
        EXPECT_EQ(
            !example.empty(),
            any(type, [&](const Told& frame) { return list.met(frame) == rule && way.comesTo(i, frame); }))
            << i << " " << rule;
        ++answers[example.empty()];
      }
    }
  }
  EXPECT_GT(answers[0], 100u);
  EXPECT_GT(answers[1], 100u);
}

TEST_F(PacketWays, HaveAnExampleInAFrameThatShowsIt) {
  struct Row {
    std::string mac, ip, what, type, example;  // no example: there is none
  };
  const std::string all = " 10 permit ip any any\n", none = " 10 deny ip any any\n",
                    some = " 10 permit tcp any any\n", one = " 10 permit host 02:00:00:00:00:01 any\n";
  const std::string tcp = "tcp 0.0.0.0:1024 > 0.0.0.0:80 syn", udp = "udp 0.0.0.0:1024 > 0.0.0.0:80",
                    fromOne = " from 02:00:00:00:00:01 to 00:00:00:00:00:00",
                    fromZero = " from 00:00:00:00:00:00 to 00:00:00:00:00:00";
  const TempDir dir;
  const std::string config = dir / "both.acl";
  for (const Row& row : std::vector<Row>{
           {" 10 permit any any\n", all, "permit", "ip", tcp},
           {" 10 permit any any\n", none, "permit", "ip", ""},
           {" 10 permit any any\n", some, "deny", "ip", udp},
           {" 10 permit any any\n", all, "deny", "ip", ""},
           {" 10 deny any any\n", all, "permit", "ip", ""},
           {" 10 deny any any\n", all, "deny", "ip", tcp},
           {" 10 permit any any 0x0806\n", all, "permit", "ip", ""},
           {" 10 permit any any 0x0800\n", all, "permit", "ip", tcp},
           {one, all, "permit", "ip", tcp + fromOne},
           {one, none, "permit", "ip", ""},
           {one, some, "deny", "ip", udp},
           {one, all, "deny", "ip", tcp + fromZero},
           {" 10 permit vlan 5 any any\n", all, "permit", "ip", tcp + " vlan 5"},
           {" 10 permit vlan 5 any any\n", " 10 permit vlan 6 ip any any\n", "permit", "ip", ""},
           {" 10 permit vlan 5 any any\n", " 10 permit vlan 6 ip any any\n", "permit", "mac",
            "eth 00:00:00:00:00:00 > 00:00:00:00:00:00 0x88b5 vlan 5"},
           {" 10 permit any any\n", none, "permit", "mac",
            "eth 00:00:00:00:00:00 > 00:00:00:00:00:00 0x88b5"},
           {" 10 permit any any 0x0800\n", none, "permit", "mac", ""},
           {" 10 permit any any 0x0800\n", some, "permit", "mac", tcp + fromZero},
           {" 10 permit any any\n", all, "deny", "mac", ""},
           {" 10 permit any any\n", some, "deny", "mac", udp + fromZero},
           {" 10 deny any any\n", all, "permit", "mac", ""},
       }) {
    writeFile(config, "mac access-list M\n" + row.mac + "ip access-list A\n" + row.ip +
                          "interface eth1\n mac access-group M in\n ip access-group A in\ninterface eth2\n");
    const Ran ran =
        runVelo({"find", row.what, "--port", "eth1", "--to", "eth2", "--type", row.type, "--config", config});
    EXPECT_EQ(ran.err, "") << "an empty block names a port, too";
    EXPECT_EQ(ran.status, row.example.empty() ? 1 : 0) << row.mac << row.ip << row.what << " " << row.type;
    EXPECT_EQ(ran.out, row.example.empty() ? "no such packet\n" : row.example + "\n")
        << row.mac << row.ip << row.what << " " << row.type;
    if (row.example.empty()) continue;
    const Ran explained = runVelo(
        {"explain", "--config", config, "--port", "eth1", "--out", "eth2", "--in", row.example, "--json"});
    EXPECT_EQ(nlohmann::ordered_json::parse(explained.out).at("verdict"),
              row.what == "permit" ? "pass" : "drop")
        << row.example;
  }
}

}  // namespace
