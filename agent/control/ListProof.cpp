#include <Kiv/Clock.h>
#include <agent/change/Effective.h>
#include <agent/change/WarningCollector.h>
#include <agent/control/ListProof.h>
#include <agent/core/Words.h>
#include <agent/proof/Sayings.h>
#include <fmt/format.h>

#include <algorithm>

namespace Agent {

namespace {

/// A list in force, and where it stands.
struct Standing {
  const Config::ListKey* key;
  const Config::Model* model;

  const Config::List& list() const { return model->lists.at(*key); }
  Place placeOf(uint32_t rule) const {
    const Config::Notices& notices = model->notices;
    return rule == 0 ? notices.placeOf(notices.lists, *key)
                     : notices.placeOf(notices.rules, std::pair(*key, rule));
  }
};

std::vector<Standing> bySize(const Effective& effective) {
  std::vector<Standing> lists;
  for (const auto& [key, owner] : effective.lists) lists.push_back({&key, owner.model});
  std::stable_sort(lists.begin(), lists.end(), [](const Standing& a, const Standing& b) {
    return a.list().rules.size() < b.list().rules.size();
  });
  return lists;
}

}  // namespace

ListProof proveLists(const Layers& layers, const Proof::Limits& limits) {
  const Effective effective(layers);
  const Kelp::Duration begin = Kiv::steadyClock().now();
  ListProof proof;
  WarningCollector found;
  for (const Standing& at : bySize(effective)) {
    const double used = Kiv::steadyClock().now().seconds() - begin.seconds();
    const double left = std::max(0., limits.seconds.seconds() - used);
    const std::string title = listTitle(at.key->first, at.key->second);
    const auto said = Proof::sayingsOf(at.list(), {Kelp::Duration(left), limits.memory});
    for (const Proof::Saying& each : said.all)
      found.add({each.code, at.placeOf(each.sequence), title + " " + each.text, each.example});
    if (!said.cutOff.empty()) proof.unchecked.push_back(fmt::format("{}: {}", title, said.cutOff));
  }
  proof.warnings = found.take();
  return proof;
}

}  // namespace Agent
