#include "AggregatorSupport.h"

#include <random>

// Random histories of the sources against a model that forgets everything and works the result out anew after
// every step.

namespace {

using namespace TestSupport;
using Acl::AclType;

constexpr const char* names[] = {"A", "B", "C"};
constexpr const char* inputs[] = {"p", "q", "r"};

/// What the target should be, from what the sources say now.
std::string expected(const Acl::Input::Config& cli, const Zeb::Dir& dir) {
  std::vector<const Acl::Config*> sources{&cli};
  for (auto at = dir.entry().begin(); at; at.next())
    sources.push_back(static_cast<const Acl::Config*>(at.value().get()));
  const auto merged = MemSlab::make<Acl::Config>();
  for (AclType type : {AclType::ip, AclType::ipv6, AclType::mac}) {
    for (const char* name : names) {
      for (const Acl::Config* source : sources) {
        const auto lists = source->config(type);
        const auto list = lists ? lists->acl(name) : nullptr;
        if (!list) continue;
        const auto copy = merged->configIs(type)->aclIs(name);
        if (const auto rules = list->currCfg()) {
          copy->currCfgIs(MemSlab::make<Acl::AclSubConfig>());
          for (const auto* rule : rules->ipRuleById().ordered())
            copy->currCfg()->ipRuleByIdIs(rule->key, rule->value);
        }
        break;
      }
    }
  }
  return shown(*merged);
}

class History {
 public:
  explicit History(uint32_t seed) : random_(seed) {
    for (const char* name : inputs) {
      all_.push_back(MemSlab::make<Acl::Input::Config>(Kelp::String(name)));
      if (below(2)) dir_->entryIs(all_.back());
    }
    all_.push_back(cli_);
    sm_ = Acl::AclConfigAggregatorSm::AclConfigAggregatorSmIs(dir_, cli_, target_);
    sm_->hasNotificationActiveIs(true);
  }

  void step() {
    const auto& source = all_[below(4)];
    const AclType type = static_cast<AclType>(below(3));
    const Kelp::String name(names[below(3)]);
    const auto lists = source->config(type);
    const auto list = lists ? lists->acl(name) : nullptr;
    const auto rules = list ? list->currCfg() : nullptr;
    const Kiv::UniqueId id(uint64_t{1} + below(6));
    switch (below(12)) {
      case 0: {
        const Kelp::String input(inputs[below(3)]);
        if (dir_->entry(input)) {
          dir_->entryDel(input);
        } else {
          dir_->entryIs(
              *std::find_if(all_.begin(), all_.end(), [&](const auto& s) { return s->name() == input; }));
        }
        break;
      }
      case 1: {
        const Kelp::String input(inputs[below(3)]);  // another entity of the same name
        auto at = std::find_if(all_.begin(), all_.end(), [&](const auto& s) { return s->name() == input; });
        *at = MemSlab::make<Acl::Input::Config>(input);
        listIs(**at, name, {{1, 1}}, type);
        dir_->entryIs(*at);
        break;
      }
      case 2:
        source->configDel(type);
        break;
      case 3:
        if (lists) lists->aclDel(name);
        break;
      case 4:
        if (list) list->currCfgDel();
        break;
      case 5:
        source->configIs(type)->aclIs(name);
        break;
      case 6:
      case 7:
        listIs(*source, name, {{id.value(), below(50)}, {9, below(50)}}, type);
        break;
      case 8:
        if (rules) rules->ipRuleByIdDel(id);
        break;
      default:
        if (rules) rules->ipRuleByIdIs(id, numbered(below(50)));
    }
  }

  std::string found() const { return shown(*target_); }
  std::string wanted() const { return expected(*cli_, *dir_); }

 private:
  uint32_t below(uint32_t bound) { return random_() % bound; }

  std::mt19937 random_;
  std::vector<Kelp::Ptr<Acl::Input::Config>> all_;
  const Kelp::Ptr<Zeb::Dir> dir_ = MemSlab::make<Zeb::Dir>();
  const Kelp::Ptr<Acl::Input::Config> cli_ = MemSlab::make<Acl::Input::Config>(Kelp::String("cli"));
  const Kelp::Ptr<Acl::Config> target_ = MemSlab::make<Acl::Config>();
  Kelp::Ptr<Acl::AclConfigAggregatorSm> sm_;
};

TEST(AclConfigAggregatorRandom, TheTargetIsAlwaysWhatTheSourcesAddUpTo) {
  size_t nonEmpty = 0;
  for (uint32_t seed = 1; seed <= 100; ++seed) {
    History history(seed);
    for (int step = 0; step < 150; ++step) {
      history.step();
      const std::string wanted = history.wanted();
      ASSERT_EQ(history.found(), wanted) << "seed " << seed << ", step " << step;
      nonEmpty += wanted.size() > 40;
    }
  }
  EXPECT_GT(nonEmpty, 5000u) << "the histories have something in them";
}

}  // namespace
