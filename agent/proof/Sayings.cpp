#include <agent/proof/Example.h>
#include <agent/proof/Habits.h>
#include <agent/proof/PartlyTaken.h>
#include <agent/proof/RulesText.h>
#include <agent/proof/Sayings.h>
#include <fmt/format.h>

#include <algorithm>
#include <set>
#include <string_view>
#include <utility>

namespace Proof {

namespace {

std::string cutOffText(size_t left, size_t all, std::string_view why) {
  return fmt::format("{} of {} rules ({})", left, all, why);
}

bool asksForEstablished(const Config::Rule& rule) {
  return std::visit(
      [](const auto& one) {
        if constexpr (requires { one.filter.established; }) return one.filter.established;
        return false;
      },
      rule);
}

class Speaker {
 public:
  Speaker(const Config::List& list, const RuleSets& sets) : list_(list), sets_(sets) {}

  Sayings run(Say asked) {
    const ListFindings found = analyse(list_, sets_);
    for (const RuleFinding& each : found.rules) dead_.insert(each.sequence);
    more_ = found.cutOff.empty();
    for (const RuleFinding& each : found.rules) speakOf(each);
    if (found.passesAll) say("list-passes-all", 0, "passes everything", found.example);
    if (found.passesNothing) say("list-passes-nothing", 0, "passes nothing", found.example);
    unlessCutOff([this] { speakOfFragments(); });
    if (asked == Say::partsToo) unlessCutOff([this] { speakOfParts(); }, furtherParts);
    if (!found.cutOff.empty())
      said_.cutOff = cutOffText(list_.rules.size() - found.judged, list_.rules.size(), found.cutOff);
    std::stable_sort(said_.all.begin(), said_.all.end(), [](const Saying& a, const Saying& b) {
      return a.sequence != 0 && (b.sequence == 0 || a.sequence < b.sequence);
    });
    return std::move(said_);
  }

 private:
  void say(Agent::WarningCode code, uint32_t sequence, std::string text, const Packet& example,
           std::vector<uint32_t> by = {}) {
    said_.all.push_back({code, sequence, std::move(text), exampleText(list_.type, example), std::move(by)});
  }
  bool permits(uint32_t sequence) const {
    return Config::common(list_.rules.at(sequence)).action == Acl::Action::permit;
  }

  /// Works something out with the sets, if no limit has ended that; whatever was found before is told anyway.
  template <class Work>
  void unlessCutOff(
      const Work& work,
      std::string_view what = "whether rules ask for established in vain or later fragments slip by") {
    if (!more_) return;
    try {
      work();
    } catch (const LimitReached& limit) {
      more_ = false;
      said_.cutOff = fmt::format("{} ({})", what, limit.what());
    }
  }
  bool isPermittedAnyway(uint32_t rule) {
    bool so = false;
    if (permits(rule) && asksForEstablished(list_.rules.at(rule)))
      unlessCutOff([&] { so = isPermittedBefore(list_, sets_, rule); });
    return so;
  }

  void speakOf(const RuleFinding& finding) {
    const uint32_t rule = finding.sequence;
    switch (finding.oddity) {
      case Oddity::impossible:
        said_.all.push_back({"rule-never-matches",
                             rule,
                             fmt::format("rule {} never matches: no packet is as it asks", rule),
                             {},
                             {}});
        break;
      case Oddity::covered:
        if (isPermittedAnyway(rule)) {
          say("established-before-all-tcp", rule,
              fmt::format("rule {} asks for established, but {} already {} all such TCP", rule,
                          rulesText(finding.by), finding.by.size() == 1 ? "permits" : "permit"),
              finding.example, finding.by);
        } else {
          say("rule-never-matches", rule, covered(finding), finding.example, finding.by);
        }
        break;
      case Oddity::redundant:
        if (rule == list_.rules.rbegin()->first && !permits(rule)) break;
        say("rule-changes-nothing", rule,
            fmt::format("rule {} changes no verdict: without it its packets are {}, too", rule,
                        permits(rule) ? "permitted" : "dropped"),
            finding.example);
        break;
    }
  }

  std::string covered(const RuleFinding& finding) const {
    const bool own = permits(finding.sequence), one = finding.by.size() == 1;
    const bool mixed = std::any_of(finding.by.begin(), finding.by.end(), [&](uint32_t each) {
      return permits(each) != permits(finding.by.front());
    });
    const std::string by = rulesText(finding.by);
    if (mixed)
      return fmt::format("rule {} never matches: {} decide about all of it, not all as it would",
                         finding.sequence, by);
    const bool permit = permits(finding.by.front());
    const std::string_view what = permit ? one ? "permits" : "permit" : one ? "denies" : "deny";
    if (!finding.otherAction)
      return fmt::format("rule {} never matches: {} {} all of it", finding.sequence, by, what);
    return fmt::format("rule {} {}, but {} {} all of it", finding.sequence, own ? "permits" : "denies", by,
                       what);
  }

  void speakOfFragments() {
    forEachSlip(list_, sets_, dead_, [this](const Slip& slip) {
      say("fragments-slip-by", slip.denied,
          fmt::format("rule {} denies by port, but rule {} permits later fragments of such packets",
                      slip.denied, slip.passed),
          slip.example, {slip.passed});
    });
  }

  static std::string boxesText(const Boxes& boxes) {
    std::string text;
    for (const Box& each : boxes.all) text += (text.empty() ? "" : ", or ") + each.words;
    return text + (boxes.more ? ", or more" : "");
  }
  void speakOfParts() {
    constexpr size_t mostBoxes = 3;
    size_t told = 0;
    forEachPartlyTaken(list_, sets_, mostBoxes, [this, &told](const PartlyTaken& part) {
      if (told++ == mostParts) {
        said_.cutOff = fmt::format("{} (they are more than {})", furtherParts, mostParts);
        return false;
      }
      const std::string left = part.others == 0 ? boxesText(part.left)
                                                : "for example " + exampleText(list_.type, part.exampleLeft);
      std::string text =
          fmt::format("rule {} gets a part of what it asks for: left is {}; {} {} {}", part.sequence, left,
                      rulesText(part.by), part.by.size() == 1 ? "takes" : "take", boxesText(part.taken));
      if (part.others > 0) text += fmt::format(", and {} more rules before it may take some", part.others);
      say("rule-partly-taken", part.sequence, std::move(text), part.example, part.by);
      return true;
    });
  }

  static constexpr std::string_view furtherParts = "of which further rules earlier ones take a part";
  static constexpr size_t mostParts = 1000;

  const Config::List& list_;
  const RuleSets& sets_;
  std::set<uint32_t> dead_;  // rules that make no difference
  bool more_ = true;         // can be worked out with the sets
  Sayings said_;
};

}  // namespace

Sayings sayingsOf(const Config::List& list, const Limits& limits, Say say, const Kiv::Clock& clock) {
  try {
    const RuleSets sets(list.type, limits, clock);
    return Speaker(list, sets).run(say);
  } catch (const LimitReached& limit) {
    return {{}, cutOffText(list.rules.size(), list.rules.size(), limit.what())};
  }
}

}  // namespace Proof
