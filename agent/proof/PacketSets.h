#pragma once

#include <Kelp/Duration.h>
#include <Kiv/Clock.h>
#include <agent/proof/Bits.h>
#include <agent/proof/Runs.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <map>
#include <random>
#include <stdexcept>
#include <utility>
#include <vector>

namespace Proof {

/// How far long work has come.
struct Progress {
  double seconds = 0;        ///< since the sets were made
  size_t memory = 0;         ///< octets, of the tables
  size_t done = 0, all = 0;  ///< of what is worked at, such as rules; 0: not known
};
/// Is told of it, not more often than people can read, when work takes more than a second.
class Watcher {
 public:
  virtual ~Watcher() = default;
  virtual void cameTo(const Progress& progress) = 0;
  /// The sets are gone; only after cameTo().
  virtual void ended() = 0;
};

/// How much may be spent. What goes beyond it ends with LimitReached.
struct Limits {
  Kelp::Duration seconds{10};
  size_t memory = size_t{1} << 30;  ///< octets, of the tables of all sets
  Kelp::Duration asked = seconds;   ///< what a sentence about the limit tells
  Watcher* watcher = nullptr;       ///< outlives the work; null: nobody looks

  /// For the next piece of one question that has been worked at since `begin`.
  Limits leftSince(Kelp::Duration begin, Kelp::Duration now) const {
    return {Kelp::Duration(std::max(0., seconds.seconds() - (now.seconds() - begin.seconds()))), memory,
            asked, watcher};
  }
};

/// A limit ended the work: its text says which one. No set of that PacketSets can be worked with after it.
class LimitReached : public std::runtime_error {
  using std::runtime_error::runtime_error;
};

/// A set of assignments of bits, as a decision diagram: equal sets are equal values. Made by PacketSets,
/// which outlives it. The operations throw LimitReached.
class PacketSet {
 public:
  /// The empty set; it needs no PacketSets.
  PacketSet() = default;
  PacketSet(const PacketSet& other);
  PacketSet(PacketSet&& other) noexcept : root_(std::exchange(other.root_, 0)) {}
  PacketSet& operator=(PacketSet other) noexcept {
    std::swap(root_, other.root_);
    return *this;
  }
  ~PacketSet();

  bool isEmpty() const { return root_ == 0; }
  bool operator==(const PacketSet&) const = default;

  friend PacketSet operator&(const PacketSet& a, const PacketSet& b);
  friend PacketSet operator|(const PacketSet& a, const PacketSet& b);
  /// What is in `a` and not in `b`.
  friend PacketSet operator-(const PacketSet& a, const PacketSet& b);

 private:
  friend class PacketSets;
  explicit PacketSet(int root);  // takes a reference

  int root_ = 0;
};

/// What is in any of these sets. They are joined in pairs: each takes part in few unions of large sets.
PacketSet joined(std::vector<PacketSet> sets);

/// Some bits one after the other; as a number the first is the highest.
struct BitSpan {
  unsigned first = 0, count = 0;
};

/// What all sets lie in. The library below has one state for the whole process: there is one PacketSets at a
/// time, which is used by one thread.
class PacketSets {
 public:
  /// Of so many bits. The time begins to count. Throws LimitReached when there is no memory for the
  /// beginning.
  PacketSets(unsigned bits, const Limits& limits, const Kiv::Clock& clock = Kiv::steadyClock());
  ~PacketSets();
  PacketSets(const PacketSets&) = delete;
  PacketSets& operator=(const PacketSets&) = delete;

  /// Everything.
  PacketSet all() const;
  /// Everything in which one bit has this value.
  PacketSet bitIs(unsigned bit, bool value) const;
  bool contains(const PacketSet& set, const Bits& bits) const;
  /// One assignment of a set that is not empty: of the bits that need not be set, none is.
  Bits oneOf(const PacketSet& set) const;
  /// Any one of them.
  Bits anyOf(const PacketSet& set, std::mt19937_64& random) const;
  /// The set is not empty.
  Hull hullOf(const PacketSet& set) const;
  /// What some bits are in assignments of a set, whatever the others are.
  PacketSet projected(const PacketSet& set, BitSpan span) const;
  /// The values of some bits, at most 16, in a set that says nothing of others: in their order, and no two
  /// runs touch.
  Runs runsOf(const PacketSet& set, BitSpan span) const;
  /// How many of some bits, from the first on, have to be as in an assignment so that nothing of a set is
  /// like that. The set says nothing of other bits, and does not have the assignment.
  unsigned bitsToAvoid(const PacketSet& set, const Bits& bits, BitSpan span) const;
  /// A larger part around an assignment, of which only a little is in the set.
  struct Holed {
    unsigned bits = 0;  ///< how many of the span, from the first on, are as in the assignment
    /// All that is in the set of what is so: each asks for these bits, and for others of the span.
    std::vector<Cube> holes{};
  };
  /// Fewer bits are asked for than bitsToAvoid() says where every hole saves another part of the same kind at
  /// least; of at most so many holes.
  Holed holedAround(const PacketSet& set, const Bits& bits, BitSpan span, size_t mostHoles) const;
  /// How many assignments a set has, more or less.
  double sizeOf(const PacketSet& set) const;
  /// What a watcher is told next.
  void cameTo(size_t done, size_t all) const;
  /// How large the table is by now, in octets.
  size_t memory() const;

 private:
  /// All bits but these, as the library names variables.
  const PacketSet& besides(BitSpan span) const;

  const unsigned bits_;
  mutable std::map<std::pair<unsigned, unsigned>, PacketSet> besides_;  // those that were asked for
};

}  // namespace Proof
