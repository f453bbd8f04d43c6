// Frames through the whole pipeline against a reading that says which are malformed, and a judge that asks
// every rule in order: verdict, matches and their order, copies, and in the end every counter.

#include "../tests/support/RandomFrames.h"
#include "Judge.h"
#include "Malformed.h"
#include "Target.h"

#include <Acl/RuleKinds.h>
#include <agent/change/Apply.h>
#include <agent/config/Reader.h>
#include <agent/config/Writer.h>
#include <agent/core/TaskLoop.h>
#include <agent/observe/VerdictRecorder.h>
#include <fmt/ranges.h>

#include "../tests/agent/config/RandomText.h"

namespace {

using Acl::AclDirection;
using TestSupport::Bytes;

constexpr const char* textOfEverything =
    "port-channel po1 members eth2 eth3\nmirror session S destination eth9\n"
    "mirror session WATCH destination eth9 po1\n";

/// Lists and bindings; what in it is a mistake is left out.
Config::Model someModel(Fuzz::Dice& dice) {
  std::string text = textOfEverything;
  for (auto lists = 1 + dice.below(5); lists > 0; --lists) {
    constexpr const char* kinds[] = {"ip", "ipv6", "mac"};
    const std::string kind = dice.of(kinds);
    text += Config::randomForm(kind + " access-list {name}\n", dice);
    for (auto rules = dice.below(6); rules > 0; --rules)
      text += Config::randomForm("{" + kind + " rule}\n", dice);
    text += Config::randomForm("interface {port}\n" + kind + " access-group {name} {direction}\n", dice);
  }
  for (auto bindings = dice.below(4); bindings > 0; --bindings)
    text += Config::randomForm("interface {port}\n{intf line}\n", dice);
  for (;;) {
    const auto result = Config::read({{"t", text}});
    if (result.model) return *result.model;
    // From the last one on, so that the numbers of the lines before it stay.
    for (auto mistake = result.mistakes.rbegin(); mistake != result.mistakes.rend(); ++mistake) {
      size_t at = 0;
      for (int line = 1; line < mistake->line; ++line) at = text.find('\n', at) + 1;
      text.erase(at, text.find('\n', at) + 1 - at);
    }
  }
}

/// The agent under test beside what its counters should be.
class World {
 public:
  World(const Config::Model& model, const char* other) {
    const auto refusal = core_.loadPlugin(std::string(VELO_BIN_DIR) + "/VeloAcl.so");
    Fuzz::require(!refusal, refusal.value_or(""));
    configure(model);
    Fuzz::require(!forwarder_.patchIs("eth1", other), "eth1 cannot be patched");
    recorder_ = std::make_unique<Agent::VerdictRecorder>(core_, forwarder_);
  }

  void configure(const Config::Model& model) {
    const auto wrong = Agent::putInForce(core_, {model, {}});
    Fuzz::require(!wrong, wrong.value_or(""));
    model_ = model;
    tasks_.settle();
    const auto missing = core_.inForce().unpublished();
    Fuzz::require(!missing, missing.value_or(""));
    forwarder_.portsOfConfigurationIs();
  }

  void receive(const std::string& name, const Bytes& frame, bool whole) {
    Agent::Port& port = forwarder_.portIs(name);
    forwarder_.packet().assign(frame, static_cast<uint32_t>(frame.size()), 1.0);
    recorder_->begin();
    const uint64_t copies = this->copies();
    const Agent::Verdict verdict = forwarder_.receive(port);
    const auto shown = [&] {
      return fmt::format("frame {:02x} on {}: {}, hits {}\n{}", fmt::join(frame, ""), name,
                         verdict.passed() ? "passed" : verdict.droppedBy->name().view(),
                         recorder_->fate().hits.size(), Config::textOf(model_));
    };
    for (const Agent::Hit& hit : recorder_->fate().hits) {
      Count& count = counts_[keyOf(hit)];
      ++count.packets;
      count.bytes += frame.size();
    }
    const std::string malformed = Fuzz::whyMalformed(frame);
    const bool takenForMalformed = !verdict.passed() && recorder_->fate().hits.empty();
    Fuzz::require(takenForMalformed == !malformed.empty(), [&] {
      return (malformed.empty() ? "not malformed" : "malformed: " + malformed) + ", " + shown();
    });
    Fuzz::require(!whole || malformed.empty(), [&] { return malformed + " from the start: " + shown(); });
    if (takenForMalformed) return Fuzz::require(this->copies() == copies, shown);
    auto judge = Fuzz::Judge::read(model_, frame);
    if (!judge) return Fuzz::require(!whole, [&] { return "the judge cannot read it: " + shown(); });
    const bool in = judge->pass(AclDirection::in, channelOf(name), name);
    const std::string egress = verdict.egress ? verdict.egress->id.name().str() : "";
    const bool out = !in || egress.empty() || judge->pass(AclDirection::out, channelOf(egress), egress);
    const auto both = [&] { return judge->str() + "expected, " + shown(); };
    Fuzz::require(verdict.passed() == (in && out), both);
    Fuzz::require(verdict.passed() || verdict.direction == (in ? AclDirection::out : AclDirection::in), both);
    Fuzz::require(this->copies() - copies == judge->copies(), both);
    Fuzz::require(std::equal(judge->hits().begin(), judge->hits().end(), recorder_->fate().hits.begin(),
                             recorder_->fate().hits.end(), isSame),
                  both);
  }

  void requireCounters() {
    for (const auto& collection : core_.inForce().counters()) {
      for (auto counter = collection->counterCollection().begin(); counter; counter.next()) {
        const auto expected = counts_.find(counter.key());
        const Count count = expected == counts_.end() ? Count() : expected->second;
        Fuzz::require(counter.value()->packets() == count.packets && counter.value()->bytes() == count.bytes,
                      [&] {
                        return fmt::format("{}: {} packets of {} octets, expected {} of {}", counter.key(),
                                           counter.value()->packets(), counter.value()->bytes(),
                                           count.packets, count.bytes);
                      });
        if (expected != counts_.end()) counts_.erase(expected);
      }
    }
    Fuzz::require(counts_.empty(), [&] { return fmt::format("no counter of {}", counts_.begin()->first); });
  }

 private:
  using Key = Velo::Counter::VeloDpAclCounterKey;
  struct Count {
    uint64_t packets = 0, bytes = 0;
  };

  static bool isSame(const Fuzz::Hit& expected, const Agent::Hit& hit) {
    return expected.direction == hit.direction && expected.type == hit.type &&
           expected.interface == hit.intf.name().view() && expected.list == hit.list.view() &&
           expected.sequence == hit.sequence;
  }

  std::string channelOf(const std::string& port) const {
    for (const auto& [name, members] : model_.portChannels) {
      if (std::find(members.begin(), members.end(), port) != members.end()) return name;
    }
    return {};
  }

  Key keyOf(const Agent::Hit& hit) const {
    Key key{hit.direction, hit.type, hit.list, {}};
    if (hit.sequence == 0) {
      const auto status = core_.inForce().status()->status(hit.type)->acl(hit.list);
      if (const auto* id = std::as_const(*status).implicitRuleId(Acl::ImplicitRuleType::drop))
        key.ruleId = *id;
      return key;
    }
    const auto rules = core_.inForce().list(hit.type, hit.list)->currCfg();
    Acl::withRuleKind(hit.type,
                      [&](auto kind) { key.ruleId = kind.rules(*rules).atSequence(hit.sequence)->key; });
    return key;
  }

  uint64_t copies() const {
    uint64_t all = 0;
    for (const auto& [id, port] : forwarder_.ports()) all += port->mirrored;
    return all;
  }

  Kiv::ManualClock clock_;
  Agent::TaskLoop tasks_{clock_};
  Agent::Core core_;
  Agent::Forwarder forwarder_{core_, Velo::MalformedPolicy::drop};
  std::unique_ptr<Agent::VerdictRecorder> recorder_;
  Config::Model model_;
  std::map<Key, Count> counts_;
};

}  // namespace

void Fuzz::run(Dice& dice) {
  World world(someModel(dice), dice.once(2) ? "eth4" : "po1");
  for (int frames = 0; frames < 60 && dice.more(); ++frames) {
    if (dice.once(24)) {
      world.configure(someModel(dice));
      continue;
    }
    constexpr const char* ports[] = {"eth1", "eth2", "eth3", "eth4"};
    const char* port = dice.of(ports);
    Bytes frame = TestSupport::randomFrame(dice);
    const bool whole = !dice.once(4);
    if (!whole) TestSupport::damage(frame, dice);
    world.receive(port, frame, whole);
  }
  world.requireCounters();
}
