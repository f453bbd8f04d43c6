#pragma once

#include "DifferentialGenerator.h"
#include "DifferentialSubject.h"

#include <optional>

namespace TestSupport::Differential {

/// Whether these changes still make a packet's answer wrong; it is asked after each of them, too.
template <class Rule>
bool showsIt(const std::vector<Change<Rule>>& changes, const Fields& packet) {
  Subject<Rule> subject;
  for (const auto& change : changes) {
    subject.apply(change);
    subject.ask(packet);
  }
  return subject.ask(packet) == Subject<Rule>::Outcome::wrong;
}

/// Leaves out changes for as long as the failure stays: first many at once, in the end each one alone.
template <class Rule>
std::vector<Change<Rule>> fewest(std::vector<Change<Rule>> changes, const Fields& packet) {
  int tries = 5000;
  for (size_t part = std::max<size_t>(1, changes.size() / 2);; part = std::max<size_t>(1, part / 2)) {
    bool smaller = false;
    for (size_t at = 0; at < changes.size() && tries > 0; --tries) {
      auto fewer = changes;
      const auto first = fewer.begin() + static_cast<std::ptrdiff_t>(at);
      fewer.erase(first, first + static_cast<std::ptrdiff_t>(std::min(part, changes.size() - at)));
      if (showsIt(fewer, packet)) {
        changes = std::move(fewer);
        smaller = true;
      } else {
        at += part;
      }
    }
    if (tries <= 0 || (part == 1 && !smaller)) return changes;
  }
}

/// What there is to be told of a packet that these changes make a wrong answer for.
template <class Rule>
std::string failure(const std::vector<Change<Rule>>& changes, const Fields& packet) {
  std::string text = fmt::format("{} changes, packet {}\n", changes.size(), packet.str());
  if (!showsIt(changes, packet)) return text + "it does not show when only this packet is asked";
  const auto few = fewest(changes, packet);
  Subject<Rule> subject;
  for (const auto& change : few) {
    subject.apply(change);
    subject.ask(packet);
    text += "  " + change.str() + "\n";
  }
  return text + subject.verdicts(packet);
}

/// One list from its first rules to its last change, as the dice fall, with packets before and behind each
/// change.
template <class Rule>
class History {
 public:
  explicit History(Dice& dice) : dice_(dice), generator_(dice) {}

  /// `changes`: the list goes on to change once it is in force. Ends at the first wrong answer.
  void run(bool changes) {
    const bool early = dice_.once(4);  // in force before it has rules
    if (early) change({Changed::inForce});
    for (size_t i = 0; i < generator_.size(); ++i) {
      change({Changed::put, generator_.id(), generator_.rule()});
    }
    if (!early) change({Changed::inForce});
    packets(changes ? 300 : 600);
    if (!changes) return;
    for (auto rounds = 1 + dice_.below(12); rounds > 0 && !wrong_; --rounds) {
      constexpr size_t most[] = {1, 1, 1, 2, 2, 4, 4, 8, 20, 200};
      for (auto count = 1 + dice_.below(dice_.of(most)); count > 0; --count) someChange();
      packets(200);
    }
  }

  /// What went wrong, with the fewest changes that still show it; nothing when all was right.
  std::optional<std::string> failed() const {
    return wrong_ ? std::optional(failure(changes_, *wrong_)) : std::nullopt;
  }
  uint64_t pairs() const { return pairs_; }
  uint64_t hits() const { return hits_; }
  /// Of the pairs: judged by a compiled form.
  uint64_t compiled() const { return compiled_; }

 private:
  using Changed = Change<Rule>;

  void someChange() {
    const auto& known = subject_.known();
    const auto drawn = dice_.below(44);
    if (drawn >= 42 && !known.empty()) return hideAndShow(drawn == 42);
    if (drawn >= 40) return change({dice_.once(3) ? Changed::unkept : Changed::kept});
    if (drawn == 0) return change({Changed::renewed});
    if (drawn == 1) return change({dice_.once(2) ? Changed::outOfForce : Changed::inForce});
    if (drawn < 6) return change({Changed::tasks});
    if (drawn < 18 || known.empty()) {
      return change({Changed::put, generator_.id(), generator_.rule()});
    }
    auto one = known.lower_bound(generator_.id());
    if (one == known.end()) one = known.begin();
    if (drawn < 30) return change({Changed::del, one->first});
    // A rule of the same id: all new, new but for its place, in another place, or equal.
    Rule rule = drawn < 36 ? generator_.rule() : one->second;
    if (drawn >= 33 && drawn < 36) rule.sequence = one->second.sequence;
    if (drawn >= 36 && drawn < 39) rule.sequence = generator_.sequence();
    change({Changed::put, one->first, rule});
  }

  /// A rule in front that hides all others comes, or the rule in front, whatever it hides, goes.
  void hideAndShow(bool hide) {
    Rule rule;
    rule.sequence = 1;
    if (hide) return change({Changed::put, generator_.id(), rule});
    const auto& known = subject_.known();
    const auto front = std::min_element(known.begin(), known.end(), [](const auto& a, const auto& b) {
      return a.second.sequence < b.second.sequence;
    });
    change({Changed::del, front->first});
  }

  void change(Changed made) {
    subject_.apply(made);
    changes_.push_back(std::move(made));
  }

  void packets(int count) {
    using Outcome = typename Subject<Rule>::Outcome;
    std::vector<Fields> burst;
    for (int i = 0; i < count && !wrong_; ++i, ++pairs_) {
      // In between, so that packets meet the list before and after its form is made.
      if (i % 64 == 0) {
        change({i == 64 ? Changed::made : Changed::tasks});
        askTogether(burst);
        burst.clear();
      }
      compiled_ += subject_.compiled();
      const Fields packet = generator_.packet();
      const Outcome outcome = subject_.ask(packet);
      hits_ += outcome == Outcome::hit;
      if (outcome == Outcome::wrong) wrong_ = packet;
      burst.push_back(packet);
    }
    askTogether(burst);
  }

  /// The same packets once more, in bursts.
  void askTogether(const std::vector<Fields>& packets) {
    for (size_t at = 0; at < packets.size() && !wrong_;) {
      std::vector<Fields> burst;  // may have some twice, and be longer than what is looked up in one go
      for (auto count = 1 + dice_.below(2 * Classify::burstMost); count > 0; --count) {
        burst.push_back(packets[at++ % packets.size()]);
      }
      const size_t wrong = subject_.firstWrongOf(burst);
      if (wrong < burst.size()) wrong_ = burst[wrong];
    }
  }

  Dice& dice_;
  Generator<Rule> generator_;
  Subject<Rule> subject_;
  std::vector<Changed> changes_;
  std::optional<Fields> wrong_;
  uint64_t pairs_ = 0, hits_ = 0, compiled_ = 0;
};

}  // namespace TestSupport::Differential
