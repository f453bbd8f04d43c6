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

/// Carries out a change of one source while packets flow. Packets never wait for much longer than the slice
/// of a task, and each of them is judged by the whole old configuration or by the whole new one.
///
/// A small change is written in one go. A large one takes three steps:
///
/// - Preparation, a slice at a time. Lists that packets do not ask under the old configuration are written.
///   For a list that packets keep asking, or that another source takes over, a second copy with the new rules
///   is made and compiled.
/// - The switch, in one go. The copies stand in for their lists when packets ask (see Acl::AclConfig), and
///   bindings and interfaces change.
/// - Rewriting, a slice at a time. The lists themselves are written. When they are compiled the copies go.
///
/// So whoever follows the lists sees single writes only.
///
/// After begin() there is no way back, because followers have seen the first writes, and nothing can fail.
/// Mistakes, and a lack of memory (SourceChange::memory(), held back in the loop's Reserve), must be found
/// before.
///
/// Part of Commit, which owns the models. The core outlives it.
class Changeover {
 public:
  /// How much is written in one go, by ListChange::writes().
  static constexpr size_t writesAtOnce = 160;

  enum class State { done, yields, waits };

  /// `switching` is called within the switch, for everything else that changes with it.
  Changeover(Core& core, Discard& discard, std::function<void()> switching)
      : core_(core), discard_(discard), switching_(std::move(switching)) {}
  Changeover(const Changeover&) = delete;
  Changeover& operator=(const Changeover&) = delete;

  /// The caller has made sure that nothing can fail, and memory is held back. Not while another change is
  /// being carried out.
  void begin(SourceChange change);
  /// Goes on until the slice of the task is used up (yields), lists have to be compiled first (waits), or the
  /// change is carried out (done).
  State run(const Kiv::Task& task);
  /// Whether a change is being carried out.
  bool underWay() const { return phase_ != Phase::done; }

 private:
  enum class Phase { atOnce, prepare, prepared, rewrite, rewritten, done };
  using Asked = ListChange::Asked;
  /// One list of the change, and how far it is.
  struct List {
    const ListChange* change;
    bool large = false;                                       ///< cannot be written in one go
    Kelp::Ptr<Acl::AclSubConfig> next{};                      ///< the copy with the new rules
    std::map<uint32_t, Config::Rule>::const_iterator from{};  ///< the first rule that is not in the copy yet
    std::vector<Kiv::UniqueId> ids{};                         ///< of the first of the rules that are written
    size_t gone = 0, written = 0;                             ///< how many of the changes are written
    bool begun = false;                                       ///< rewriting has begun
    bool taken = false;                                       ///< it is deleted in the source

    /// Whether it must change within the switch, because packets ask it before and after.
    bool inSwitch() const { return change->asked == Asked::always || change->other; }
    /// Whether a copy stands in for it from the switch on.
    bool standsIn() const { return large && inSwitch(); }
    bool allFound() const { return ids.size() == change->written.size(); }
    bool allWritten() const { return gone == change->gone.size() && written == change->written.size(); }
  };

  void findLarge();
  /// Does one piece of the work; false when it has to wait first.
  bool step();
  /// Does a piece of the work on the current list; true when the last list is done.
  bool forLists(bool (Changeover::*piece)(List& list));
  bool forAll(bool (Changeover::*holds)(const List& list) const) const;
  void switchOver();
  void finish();

  // Each does a piece of the work on a list; true when the list is done.
  bool prepare(List& list);
  bool copyRules(List& list);
  Kiv::UniqueId idInCopy(List& list, uint32_t sequence) const;
  void findId(List& list) const;
  bool rewrite(List& list);
  bool writeInPieces(List& list);

  bool isPrepared(const List& list) const;
  bool isRewritten(const List& list) const;
  bool isCompiled(const List& list) const;

  void standIn(List& list);
  void writeAll(List& list);
  void writeOne(List& list, ListRules& rules) const;
  void writeBindings();
  /// The merged list that packets ask, and its rules; null when there is none, or when another source's list
  /// is in force.
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
  size_t at_ = 0;  ///< index of the current list
};

}  // namespace Agent
