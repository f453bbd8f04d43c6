#pragma once

#include <Kelp/Duration.h>
#include <Kiv/Clock.h>
#include <agent/proof/Bits.h>

#include <cstddef>
#include <random>
#include <stdexcept>
#include <utility>

namespace Proof {

/// How much may be spent. What goes beyond it ends with LimitReached.
struct Limits {
  Kelp::Duration seconds{10};
  size_t memory = size_t{1} << 30;  ///< octets, of the tables of all sets
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
  /// How large the table is by now, in octets.
  size_t memory() const;

 private:
  const unsigned bits_;
};

}  // namespace Proof
