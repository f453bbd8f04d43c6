#include <agent/config/Writer.h>

#include "../../support/Sanitizers.h"
#include "RandomText.h"
#include "Support.h"

#include <filesystem>
#include <fstream>
#include <sstream>

namespace Config {
namespace {

/// A text that is written as it was read, so that the eye can compare.
constexpr const char* everything =
    "object-group network HOSTS\n"
    "   host 192.0.2.1\n"
    "   198.51.100.0/24\n"
    "object-group network MORE\n"
    "   group-object HOSTS\n"
    "object-group service WEB\n"
    "   tcp eq 80 https\n"
    "ip access-list standard 10\n"
    "   5 permit host 192.0.2.1\n"
    "ip access-list EDGE\n"
    "   remark partners first\n"
    "   remark and then   the others\n"
    "   10 permit tcp 192.0.2.0/24 any eq www log\n"
    "   20 permit object-group WEB object-group MORE any\n"
    "   remark behind the last rule\n"
    "ipv6 access-list EDGE\n"
    "mac access-list EDGE\n"
    "   10 deny vlan 200 0x00f any any mirror session WATCH\n"
    "port-channel po1 members eth2 eth3\n"
    "interface eth1\n"
    "   description uplink,  to the left\n"
    "   shutdown\n"
    "   ip access-group EDGE in\n"
    "   ip access-group EDGE out\n"
    "   mac access-group EDGE in\n"
    "interface eth4\n"
    "   ipv6 access-group EDGE in\n"
    "mirror session WATCH destination eth9 eth8\n";

TEST(Writer, WritesEverythingAsItWasTyped) { EXPECT_EQ(textOf(modelOf(everything)), everything); }

TEST(Writer, OfNothingIsNothing) { EXPECT_EQ(textOf(Model()), ""); }

/// Pieces of every size, down to a statement each, are the whole.
TEST(Writer, WritesInPiecesWhatItWritesAtOnce) {
  const Model model = modelOf(everything);
  for (const size_t octets : {size_t{1}, size_t{40}, size_t{200}, size_t{10000}}) {
    Writer writer;
    std::string text;
    int made = 0;
    for (bool more = true; more; ++made) {
      const size_t before = text.size();
      more = writer.next(model, Choice(), text, octets);
      EXPECT_LT(text.size() - before, octets + 200)
          << "a piece is no longer than one group or interface more";
    }
    EXPECT_EQ(text, everything) << octets;
    if (octets == 1) {
      EXPECT_GT(made, 15);
    }
  }
}

TEST(Writer, GoesOnInAModelThatChanges) {
  Writer writer;
  std::string text;
  Model model =
      modelOf("ip access-list A\n 10 permit tcp any any\n 20 permit udp any any\nip access-list B\n");
  ASSERT_TRUE(writer.next(model, Choice(), text, 1));
  ASSERT_TRUE(writer.next(model, Choice(), text, 1));
  EXPECT_EQ(text, "ip access-list A\n   10 permit tcp any any\n");
  model = modelOf("ip access-list A\n 15 permit sctp any any\n 20 deny udp any any\nip access-list C\n");
  ASSERT_TRUE(writer.next(model, Choice(), text, 1));
  model = modelOf("mac access-list D\n");
  while (writer.next(model, Choice(), text, 1)) {
  }
  EXPECT_EQ(text,
            "ip access-list A\n   10 permit tcp any any\n   15 permit sctp any any\nmac access-list D\n");
}

/// Leaves out what the first letter says, and gives groups other names.
class OddChoice final : public Choice {
 public:
  bool hasGroup(const std::string& name) const override { return name != "HOSTS"; }
  bool hasList(const Model::ListKey& key) const override { return key.first != Acl::AclType::ipv6; }
  bool hasPortChannel(const std::string&) const override { return false; }
  bool hasNotes(const std::string&) const override { return false; }
  bool hasBinding(const BindingKey& key) const override { return key.type == Acl::AclType::mac; }
  bool hasMirrorSession(const std::string&) const override { return false; }
  std::string groupName(const std::string& name) const override { return name + ".x"; }
};

TEST(Writer, WritesWhatIsChosen) {
  Writer writer;
  std::string text;
  while (writer.next(modelOf(everything), OddChoice(), text, 1000)) {
  }
  EXPECT_EQ(text,
            "object-group network MORE.x\n"
            "   group-object HOSTS.x\n"
            "object-group service WEB.x\n"
            "   tcp eq 80 https\n"
            "ip access-list standard 10\n"
            "   5 permit host 192.0.2.1\n"
            "ip access-list EDGE\n"
            "   remark partners first\n"
            "   remark and then   the others\n"
            "   10 permit tcp 192.0.2.0/24 any eq www log\n"
            "   20 permit object-group WEB.x object-group MORE.x any\n"
            "   remark behind the last rule\n"
            "mac access-list EDGE\n"
            "   10 deny vlan 200 0x00f any any mirror session WATCH\n"
            "interface eth1\n"
            "   mac access-group EDGE in\n");
}

TEST(Writer, MakesATextThatReadsBackAsTheModel) {
  size_t rules = 0, groupCount = 0, notes = 0;
  TestSupport::Dice dice(3);
  for (int round = 0; round < TestSupport::casesOf(3000); ++round) {
    const auto result = readText(randomText(dice, false));
    if (!result.model) continue;
    const std::string text = textOf(*result.model);
    ASSERT_EQ(mistakesOf(text), "") << text;
    ASSERT_EQ(readText(text).model, result.model) << text;
    for (const auto& [key, list] : result.model->lists) rules += list.rules.size();
    groupCount += result.model->objectGroups.size();
    notes += result.model->interfaceNotes.size();
  }
  EXPECT_GT(rules, 200u);
  EXPECT_GT(groupCount, 20u);
  EXPECT_GT(notes, 20u);
}

/// The lines of a text that are no mistake.
std::string withoutMistakes(const std::string& text) {
  std::vector<std::string> lines;
  std::istringstream in(text);
  for (std::string line; std::getline(in, line);) lines.push_back(line);
  for (const auto& mistake : read({{"t", text}}).mistakes) lines.at(mistake.line - 1).clear();
  std::string left;
  for (const auto& line : lines) left += line + "\n";
  return left;
}

TEST(Writer, MakesATextOfRealOnesThatReadsBack) {
  namespace fs = std::filesystem;
  const char* told = std::getenv("VELO_CONFIG_TEXTS");
  const fs::path texts = told ? fs::path(told) : fs::path(VELO_SOURCE_DIR) / "../shared/data/configs";
  std::error_code error;
  if (!fs::is_directory(texts, error)) GTEST_SKIP() << "no texts at " << texts;
  size_t rules = 0, whole = 0, inPart = 0;
  for (const auto& entry : fs::directory_iterator(texts)) {
    if (entry.path().extension() != ".txt") continue;
    const auto name = entry.path().filename().string();
    std::ifstream in(entry.path());
    std::ostringstream content;
    content << in.rdbuf();
    std::string text = content.str();
    const bool isWhole = readText(text).mistakes.empty();
    // These have lines that no reader takes.
    EXPECT_EQ(isWhole, !name.starts_with("parser-")) << name;
    ++(isWhole ? whole : inPart);
    // What is no statement is left out, which may make another line one more mistake.
    while (!readText(text).mistakes.empty()) text = withoutMistakes(text);
    const Model model = modelOf(text);
    ASSERT_EQ(readText(textOf(model)).model, model) << name;
    size_t here = 0;
    for (const auto& [key, list] : model.lists) here += list.rules.size();
    EXPECT_GT(here, 0u) << name;
    rules += here;
  }
  EXPECT_GT(rules, 100u);
  EXPECT_GE(whole, 5u);
  EXPECT_GE(inPart, 3u);
}

}  // namespace
}  // namespace Config
