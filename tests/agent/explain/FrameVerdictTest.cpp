#include <agent/config/Reader.h>
#include <agent/explain/FrameText.h>
#include <agent/show/PacketText.h>

#include <array>

#include "../../Acl/MatchSupport.h"
#include "../../support/RandomFrames.h"
#include "../config/RandomText.h"

// What lists say of a frame is what they say of the frame that its line makes.

namespace {

using namespace TestSupport;

std::string textOfFrame(const Bytes& octets) {
  const ParsedFrame frame(octets);
  return Agent::packetText(frame.pkt, frame.parsed, {frame.parsed.fault()});
}

/// A kind of list, and forms of rules that ask for all there is.
struct ListForms {
  const char* head;
  std::array<const char*, 5> rules;
};
constexpr ListForms ipForms{
    "ip access-list L\n",
    {"{action} {vlan}ip {ip address} {ip address}{ip more}",
     "{action} {vlan}{ported} any{ports} any{ports}{ip more}", "{action} tcp any any{flags}{ip more}",
     "{action} icmp any any{message}", "{action} {protocol} any any{ip more}"}};
constexpr ListForms ip6Forms{
    "ipv6 access-list L\n",
    {"{action} {vlan}ipv6 {ipv6 address} {ipv6 address}{ipv6 more}",
     "{action} {vlan}{ported} any{ports} any{ports}{ipv6 more}", "{action} tcp any any{flags}{ipv6 more}",
     "{action} icmpv6 any any{message6}", "{action} {protocol} any any{ipv6 more}"}};
constexpr ListForms macForms{"mac access-list L\n",
                             {"{action} {vlan}{mac address} {mac address}{type}", "{action} host {mac} any",
                              "{action} any host {mac}", "{action} {vlan}any any", "{action} any any{type}"}};

/// A few rules of the forms, without those that ask for what cannot be asked for together.
template <class Rule>
Kelp::Ptr<Acl::AclConfig> someList(const ListForms& forms, Dice& dice) {
  std::vector<Rule> rules;
  for (uint64_t left = 1 + dice.below(6); left > 0; --left) {
    auto read = Config::read({{"t", forms.head + Config::randomForm(dice.of(forms.rules), dice) + "\n"}});
    if (!read.mistakes.empty()) continue;
    rules.push_back(std::get<Rule>(read.model->lists.begin()->second.rules.begin()->second));
    rules.back().sequence = static_cast<uint32_t>(10 * rules.size());
  }
  return TestSupport::listOf(rules);
}

/// Returns how many frames met a rule.
template <class Rule>
int holdAgainstTheirLines(const ListForms& forms, Bytes (*some)(Dice&), uint64_t seed) {
  Dice dice(seed);
  int met = 0;
  for (int lists = 0; lists < 400 && !testing::Test::HasFailure(); ++lists) {
    const auto list = someList<Rule>(forms, dice);
    for (int frames = 0; frames < 20; ++frames) {
      const Bytes octets = some(dice);
      const std::string line = textOfFrame(octets);
      std::string wrong;
      const auto made = Agent::readFrameText(line, &wrong);
      if (!made) {
        ADD_FAILURE() << line << ": " << wrong;
        continue;
      }
      const auto rule = hit<Rule>(octets, list);
      EXPECT_EQ(hit<Rule>(made->octets, list), rule) << line;
      if (rule) ++met;
    }
  }
  return met;
}

TEST(FrameVerdict, TheFrameOfALineMeetsTheSameRules) {
  EXPECT_GT(holdAgainstTheirLines<Acl::IpRule>(ipForms, randomIp4Frame, 1), 500);
  EXPECT_GT(holdAgainstTheirLines<Acl::Ip6Rule>(ip6Forms, randomIp6Frame, 2), 500);
  EXPECT_GT(holdAgainstTheirLines<Acl::MacRule>(macForms, randomFrame, 3), 500);
}

}  // namespace
