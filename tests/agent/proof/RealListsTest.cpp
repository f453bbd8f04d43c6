#include <agent/config/Reader.h>
#include <agent/proof/Boxes.h>
#include <agent/proof/Comparison.h>
#include <agent/proof/Condition.h>
#include <agent/proof/ListAnalysis.h>
#include <agent/proof/Simplify.h>
#include <gtest/gtest.h>

#include "ProofSupport.h"

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <set>
#include <sstream>

// What is said of lists that others wrote, against their rules in order, where the lists are at hand.

namespace {

using namespace TestSupport;
using Differential::Fields;
namespace fs = std::filesystem;

fs::path foldersOf(const char* name) {
  if (const char* place = std::getenv("VELO_LISTS")) return fs::path(place) / name;
  return fs::path(VELO_SOURCE_DIR) / "../shared/data" / name;
}

std::string textIn(const fs::path& path) {
  std::ostringstream all;
  all << std::ifstream(path).rdbuf();
  return all.str();
}

/// A text without the lines that are reported.
Config::Model modelIn(const fs::path& path) {
  std::set<int> reported;
  for (const auto& mistake : Config::read({{"t", textIn(path)}}).mistakes) reported.insert(mistake.line);
  std::istringstream lines(textIn(path));
  std::string text, line;
  for (int number = 1; std::getline(lines, line); ++number)
    text += reported.contains(number) ? "\n" : line + "\n";
  auto result = Config::read({{path.filename().string(), text}});
  for (const auto& mistake : result.mistakes) ADD_FAILURE() << mistake.str();
  return std::move(result.model).value_or(Config::Model());
}

std::string portsOf(const std::string& field, bool hasPorts) {
  unsigned low = 0, high = 0;
  if (std::sscanf(field.c_str(), "%u : %u", &low, &high) != 2) throw std::runtime_error("no ports: " + field);
  if (!hasPorts || (low == 0 && high == 65535)) return "";
  return low == high ? fmt::format(" eq {}", low) : fmt::format(" range {} {}", low, high);
}

/// A file of rules of five fields, every one of so many; every third of them denies.
Config::Model rulesIn(const fs::path& path, size_t every) {
  std::ifstream in(path);
  std::string text = "ip access-list " + path.stem().string() + "\n", line;
  for (size_t number = 0; std::getline(in, line); ++number) {
    if (number % every != 0) continue;
    std::istringstream fields(line.substr(1));
    std::string source, destination, sourcePorts, destinationPorts, protocol;
    for (auto* field : {&source, &destination, &sourcePorts, &destinationPorts, &protocol})
      std::getline(fields, *field, '\t');
    const unsigned long value = std::stoul(protocol, nullptr, 16);
    const bool any = protocol.ends_with("/0x00"), ports = !any && (value == 6 || value == 17);
    text += fmt::format(" {} {} {} {}{} {}{}\n", number + 1, number / every % 3 == 2 ? "deny" : "permit",
                        any ? "ip" : std::to_string(value), source, portsOf(sourcePorts, ports), destination,
                        portsOf(destinationPorts, ports));
  }
  auto result = Config::read({{"t", text}});
  for (const auto& mistake : result.mistakes) ADD_FAILURE() << mistake.str();
  return std::move(result.model).value_or(Config::Model());
}

template <class Rule>
class Comparer {
 public:
  explicit Comparer(const Config::List& list)
      : list_(list),
        simpler_(Proof::simplify(list, sets_).list),
        permitted_(Proof::permitted(&list, all(), sets_)) {
    add(list, rules_);
    add(simpler_, simplerRules_);
    for (const auto& finding : Proof::analyse(list, sets_).rules) {
      if (finding.oddity != Proof::Oddity::redundant) never_.insert(finding.sequence);
    }
    loose_.add(list);
  }

  void run(size_t packetsOfABox) {
    for (const auto& [set, passes] : {std::pair(permitted_, true), {all() - permitted_, false}}) {
      constexpr size_t mostBoxes = 15;
      for (const auto& box : Proof::boxesOf(set, sets_, loose_, mostBoxes).all) {
        std::string wrong;
        const auto condition = Proof::readCondition(list_.type, box.words, &wrong);
        ASSERT_TRUE(condition) << box.words << ": " << wrong;
        const auto packets = setOf(*condition, sets_);
        for (size_t i = 0; i < packetsOfABox; ++i) {
          Proof::Bits bits = sets_.sets().anyOf(packets, random_);
          expectSame(bits, box.words, passes);
          atTheEdge(bits);
          if (sets_.sets().contains(all(), bits)) expectSame(bits, box.words, std::nullopt);
        }
      }
    }
  }
  size_t packets() const { return packets_; }

 private:
  using Oracle = Differential::Oracle<Rule>;

  const Proof::PacketSet& all() const { return sets_.packets(); }
  static void add(const Config::List& list, Oracle& oracle) {
    for (const auto& [sequence, rule] : list.rules)
      oracle.ruleIs(Kiv::UniqueId(sequence + 1), std::get<Rule>(rule));
  }
  /// Another value of one bit, or the next value of a field.
  void atTheEdge(Proof::Bits& bits) {
    const auto bit = static_cast<unsigned>(random_() % Proof::variablesOf(list_.type));
    bits.set(bit, !bits.get(bit));
    for (const Proof::Field port : {Proof::Field::sourcePort, Proof::Field::destinationPort}) {
      if (list_.type == Acl::AclType::mac || random_() % 3 != 0) continue;
      Proof::Packet packet = sets_.packetOf(bits);
      packet[port].low = (packet[port].low + (random_() % 2 ? 1 : 0xffff)) & 0xffff;
      bits = sets_.bitsOf(packet);
    }
  }
  static bool passes(const Rule* rule) { return rule && rule->action == Acl::Action::permit; }
  void expectSame(const Proof::Bits& bits, const std::string& box, std::optional<bool> expected) {
    Fields fields = fieldsOf(sets_.packetOf(bits));
    isReal<Rule>(fields);
    const Rule* met = rules_.first(fields).rule;
    const bool really = passes(met);
    if (expected) {
      EXPECT_EQ(*expected, really) << box << ": " << fields.str();
    }
    EXPECT_EQ(sets_.sets().contains(permitted_, bits), really) << box << ": " << fields.str();
    EXPECT_EQ(passes(simplerRules_.first(fields).rule), really) << "simpler, " << box << ": " << fields.str();
    EXPECT_FALSE(met && never_.contains(met->sequence)) << met->sequence << ": " << fields.str();
    ++packets_;
  }

  const Proof::RuleSets sets_{typeOf<Rule>, {Kelp::Duration(3600), size_t{4} << 30}};
  const Config::List& list_;
  const Config::List simpler_;
  const Proof::PacketSet permitted_;
  Oracle rules_, simplerRules_;
  std::set<uint32_t> never_;
  Proof::LooseBits loose_;
  std::mt19937_64 random_;
  size_t packets_ = 0;
};

size_t compared(const Config::Model& model, size_t packetsOfABox) {
  size_t packets = 0;
  for (const auto& [key, list] : model.lists) {
    SCOPED_TRACE(key.second);
    const auto of = [&, &list = list](auto rule) {
      Comparer<decltype(rule)> comparer(list);
      comparer.run(packetsOfABox);
      packets += comparer.packets();
    };
    list.type == Acl::AclType::ip     ? of(Acl::IpRule())
    : list.type == Acl::AclType::ipv6 ? of(Acl::Ip6Rule())
                                      : of(Acl::MacRule());
  }
  return packets;
}

std::vector<fs::path> filesIn(const char* folder, const char* extension) {
  std::vector<fs::path> files;
  std::error_code error;
  for (const auto& entry : fs::directory_iterator(foldersOf(folder), error)) {
    if (entry.path().extension() == extension) files.push_back(entry.path());
  }
  std::sort(files.begin(), files.end());
  return files;
}

TEST(RealLists, TextsDoWhatTheirBoxesSay) {
  const auto files = filesIn("configs", ".txt");
  if (files.empty()) GTEST_SKIP() << "no texts at " << foldersOf("configs");
  size_t packets = 0;
  for (const fs::path& file : files) {
    SCOPED_TRACE(file);
    packets += compared(modelIn(file), 60 * proofTimes());
  }
  RecordProperty("packets", fmt::format("{}", packets));
  EXPECT_GT(packets, 10000u);
}

TEST(RealLists, RuleSetsDoWhatTheirBoxesSay) {
  const auto files = filesIn("classbench", ".rules");
  if (files.empty()) GTEST_SKIP() << "no rules at " << foldersOf("classbench");
  size_t packets = 0;
  for (const fs::path& file : files) {
    SCOPED_TRACE(file);
    // In the ordinary tests a few hundred rules of each.
    const size_t few = fs::file_size(file) > 200000 ? 50 : fs::file_size(file) > 20000 ? 5 : 1;
    packets += compared(rulesIn(file, proofTimes() == 1 ? few : 1), 60 * proofTimes());
  }
  RecordProperty("packets", fmt::format("{}", packets));
  EXPECT_GT(packets, 10000u);
}

}  // namespace
