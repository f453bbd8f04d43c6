#pragma once

#include <Kiv/Task.h>
#include <agent/change/Discard.h>
#include <agent/change/ListRules.h>
#include <agent/change/SourceChange.h>
#include <agent/core/Core.h>

#include <cstddef>
#include <functional>
#include <map>
#include <vector>

namespace Agent {

/// Carries a change of one source out, so that packets never wait for much longer than a task's slice and are
/// still judged by all of the old configuration or all of the new one.
///
/// A small change is written in one go. Of a large one, lists that no packet asks under the old configuration
/// are written before, a slice at a time. Of lists that packets go on asking, or that pass to another source,
/// the new rules are made ready beside, compiled form and all. Then comes the switch, which is one go: the
/// new rules stand in for the lists before packets (see Acl::AclConfig), and bindings and interfaces change.
/// Behind it the lists themselves are written a slice at a time, and when they are compiled nothing stands in
/// for them any more. So whoever follows the lists sees single writes throughout.
///
/// begin() is the point of no return: from there on followers see writes that nobody takes back. Nothing
/// behind it can fail. What may be wrong with a change, and whether there is the memory for it
/// (SourceChange::memory(), held back in the loop's Reserve), is found out before.
///
/// Part of Commit, which owns the models. The core outlives it.
class Changeover {
 public:
  /// What fits into one go, by ListChange::writes().
  static constexpr size_t writesAtOnce = 160;

  enum class State { done, yields, waits };

  /// `switching` is called within the switch: for what else is to change with it.
  Changeover(Core& core, Discard& discard, std::function<void()> switching)
      : core_(core), discard_(discard), switching_(std::move(switching)) {}
  Changeover(const Changeover&) = delete;
  Changeover& operator=(const Changeover&) = delete;

  /// What can fail has been looked at, and memory is reserved. Not while another change is under way.
  void begin(SourceChange change);
  /// Goes on until the task's slice is used up, or until it waits for lists to be compiled.
  State run(const Kiv::Task& task);
  bool underWay() const { return phase_ != Phase::done; }

 private:
  enum class Phase { atOnce, prepare, prepared, rewrite, rewritten, done };
  using Asked = ListChange::Asked;
  /// One list on its way.
  struct List {
    const ListChange* change;
    bool large = false;                                       ///< does not fit into one go
    Kelp::Ptr<Acl::AclSubConfig> next{};                      ///< the new rules, made beside the list
    std::map<uint32_t, Config::Rule>::const_iterator from{};  ///< the first of them that is not made
    size_t gone = 0, written = 0;                             ///< changes that are written
    bool begun = false;
    bool taken = false;  ///< out of the source

    bool inSwitch() const { return change->asked == Asked::always || change->other; }
    bool standsIn() const { return large && inSwitch(); }
    bool allWritten() const { return gone == change->gone.size() && written == change->written.size(); }
  };

  void findLarge();
  /// One piece of the work; false when it has to wait.
  bool step();
  /// A piece of the work on the list that it has come to; true behind the last list.
  bool forLists(bool (Changeover::*piece)(List& list));
  bool forAll(bool (Changeover::*holds)(const List& list) const) const;
  void switchOver();
  void finish();

  // Pieces of the work on a list; true when that was the last one.
  bool prepare(List& list);
  bool copyRules(List& list);
  bool rewrite(List& list);
  bool writeInPieces(List& list);

  bool isPrepared(const List& list) const;
  bool isRewritten(const List& list) const;
  bool isCompiled(const List& list) const;

  void standIn(List& list);
  void writeAll(List& list);
  void writeOne(List& list, ListRules& rules) const;
  void writeBindings();
  /// The list that packets ask, and its rules; null when there is none, or when this one is not in force.
  Kelp::Ptr<Acl::AclConfig> merged(const List& list) const;
  Kelp::Ptr<Acl::AclSubConfig> mergedRules(const List& list) const;
  void upkeepIs(const List& list, bool on) const;
  bool takeOver(const List& list);

  Core& core_;
  Discard& discard_;
  const std::function<void()> switching_;
  Phase phase_ = Phase::done;
  SourceChange change_;
  Core::Source source_;
  std::vector<List> lists_;
  size_t at_ = 0;  ///< of the lists, the one that is being worked on
};

}  // namespace Agent
