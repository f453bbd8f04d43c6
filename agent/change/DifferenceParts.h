#pragma once

#include <agent/core/Document.h>
#include <agent/core/Reserve.h>
#include <agent/core/Words.h>
#include <fmt/format.h>
#include <nlohmann/json.hpp>

#include <algorithm>
#include <array>
#include <deque>
#include <iterator>
#include <string>
#include <string_view>
#include <utility>

namespace Agent {

// What a difference is put together from, as text: its parts, and the line that sums them up.

/// Text in pieces: it does not take more memory than its length, and can be freed piece by piece.
class TextPieces {
 public:
  void add(std::string_view text) {
    if (all_.empty() || all_.back().size() >= pieceOctets) all_.emplace_back();
    all_.back() += text;
  }
  void add(TextPieces&& more) {
    std::move(more.all_.begin(), more.all_.end(), std::back_inserter(all_));
    more.all_.clear();
  }
  std::deque<std::string> take() { return std::move(all_); }

 private:
  std::deque<std::string> all_;
};

/// One part of the difference: its entries, by what became of them. They are kept as text. As JSON values a
/// large difference would take many times as much memory, and would allocate some more when it is freed (the
/// destructor of nlohmann-json 3.11 allocates for every array or object that is not empty, and it must not
/// fail).
class DifferencePart {
 public:
  /// What became of an entry, and the members that say so, in their order.
  enum What { added, removed, changed, respelled, renumbered };
  static constexpr std::string_view members[] = {"added", "removed", "changed", "respelled", "renumbered"};

  /// How many of these members a part has, the first ones: one of rules has all of them. What other sources
  /// bring into force is only added.
  static constexpr int usual = respelled, ofRules = renumbered + 1, ofUncovered = removed;

  explicit DifferencePart(int kinds = usual) : kinds_(kinds) {}

  void add(What what, const nlohmann::ordered_json& entry) { begin(what).add(lineOf(entry)); }
  /// Adds an entry that has one more member, another part.
  void add(What what, const nlohmann::ordered_json& entry, std::string_view member, DifferencePart&& value) {
    TextPieces& to = begin(what);
    to.add(openObject(entry) + lineOf(member) + ":");
    to.add(value.take());
    to.add("}");
  }
  // Counts without entries, for a summary.
  void count(What what, size_t more = 1) { counts_[what] += more; }
  void count(const DifferencePart& other) {
    for (size_t what = 0; what < counts_.size(); ++what) counts_[what] += other.counts_[what];
  }
  bool isEmpty() const {
    return std::all_of(counts_.begin(), counts_.end(), [](size_t count) { return count == 0; });
  }
  /// How many entries there are of each kind.
  const std::array<size_t, std::size(members)>& counts() const { return counts_; }
  TextPieces take() {
    TextPieces all;
    for (int what = 0; what < kinds_; ++what) {
      all.add(fmt::format("{}\"{}\":[", what == 0 ? "{" : ",", members[what]));
      all.add(std::move(entries_[what]));
      all.add("]");
    }
    all.add("}");
    return all;
  }

 private:
  TextPieces& begin(What what) {
    // Asked for each entry: less is allocated in between than the reserve has.
    Refusable::check();
    if (counts_[what]++ > 0) entries_[what].add(",");
    return entries_[what];
  }

  const int kinds_;
  TextPieces entries_[std::size(members)];
  std::array<size_t, std::size(members)> counts_{};
};

/// What a difference comes to in a line: "+1 list, 3 rules changed, 1 binding removed".
class DifferenceSummary {
 public:
  void add(std::string_view noun, const DifferencePart& part) {
    using enum DifferencePart::What;
    for (const DifferencePart::What what : {added, changed, removed, respelled, renumbered}) {
      const size_t count = part.counts()[what];
      if (count == 0) continue;
      const std::string counted = countText(count, noun);
      if (!text_.empty()) text_ += ", ";
      text_ += what == added ? "+" + counted : fmt::format("{} {}", counted, DifferencePart::members[what]);
    }
  }
  /// Of what other sources define and the change uncovers.
  void addUncovered(std::string_view noun, size_t count) {
    if (count == 0) return;
    if (!text_.empty()) text_ += ", ";
    text_ += fmt::format("{} of other sources {} into force", countText(count, noun),
                         count == 1 ? "comes" : "come");
  }
  const std::string& text() const { return text_; }

 private:
  std::string text_;
};

}  // namespace Agent
