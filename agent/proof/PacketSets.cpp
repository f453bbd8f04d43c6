#include <Kelp/Assert.h>
#include <agent/proof/Nodes.h>
#include <agent/proof/PacketSets.h>
#include <fmt/format.h>

#include <algorithm>
#include <atomic>
#include <csetjmp>
#include <limits>
#include <vector>

// In C++ these mean a class of the library; the functions of the same names are used here.
#undef bdd_init
#undef bdd_makeset
#undef bdd_ithvar
#undef bdd_nithvar

namespace Proof {

namespace {

// What the library takes for a node, and for the caches that grow with the nodes.
constexpr size_t octetsOfNode = 20;
constexpr int nodesOfCacheEntry = 16;
constexpr int nodesOfSmallCacheEntry = 1 << 10;
constexpr size_t octetsOfCaches = 6 * 24 / nodesOfCacheEntry;
constexpr size_t octetsOfAll = octetsOfNode + octetsOfCaches;
constexpr int firstNodes = 1 << 16;
// It begins with the next prime number. Were that beyond the limit, it would be left half made, and then end
// by giving memory back a second time.
constexpr size_t nextPrime = 1 << 9;
constexpr size_t fewestNodes = 1 << 12;  // the library does not start with next to none

enum class Spent : int { none, time, memory, machine };

/// The library calls back in the middle of its work, and goes on when a hook returns: leaving it is a jump.
/// Between the jump and its target there are only frames of the library and of hooks.
struct State {
  std::jmp_buf back;
  const Kiv::Clock* clock = nullptr;
  Kelp::Duration deadline, seconds;
  size_t memory = 0;
  Spent spent = Spent::none;
  Watcher* watcher = nullptr;
  Kelp::Duration begin, nextTold;
  size_t done = 0, all = 0;
  bool told = false;
};
State state;
std::atomic<bool> owned = false;

bool isLate() { return state.clock->now() > state.deadline; }

constexpr double secondsUntilTold = 1, secondsBetweenTold = 0.2;

/// Not from within the library: who is told may throw.
void tellWatcher() {
  if (!state.watcher) return;
  const Kelp::Duration now = state.clock->now();
  if (now < state.nextTold) return;
  state.nextTold = now.later(Kelp::Duration(secondsBetweenTold));
  state.told = true;
  state.watcher->cameTo({now.seconds() - state.begin.seconds(),
                         static_cast<size_t>(bdd_getallocnum()) * octetsOfAll, state.done, state.all});
}

[[noreturn]] void leave(Spent spent) {
  state.spent = spent;
  std::longjmp(state.back, 1);
}

extern "C" void whenTheLibraryFails(int error) {
  if (error == BDD_MEMORY) leave(Spent::machine);
  if (error == BDD_NODENUM || error == BDD_NODES) leave(Spent::memory);
  Kelp::fatal(bdd_errstring(error), __FILE__, __LINE__);
}

extern "C" void whenGarbageIsCollected(int, bddGbcStat*) {
  if (isLate()) leave(Spent::time);
}

[[noreturn]] void tellSpent() {
  if (state.spent == Spent::machine) throw LimitReached("memory ran out");
  throw LimitReached(state.spent == Spent::time
                         ? fmt::format("it takes more than {} second{}", state.seconds.seconds(),
                                       state.seconds.seconds() == 1 ? "" : "s")
                         : fmt::format("it takes more than {} MiB of memory", state.memory >> 20));
}

/// Does some work of the library. What `work` has on the stack needs no destruction.
template <class Work>
int guarded(const Work& work) {
  tellWatcher();
  if (state.spent == Spent::none && isLate()) state.spent = Spent::time;
  if (state.spent != Spent::none || setjmp(state.back) != 0) tellSpent();
  return work();
}

int applied(int a, int b, int operation) {
  return guarded([a, b, operation] { return bdd_apply(a, b, operation); });
}

void start(int bits) {
  const size_t most = std::min<size_t>(state.memory / octetsOfAll, std::numeric_limits<int>::max() / 2);
  guarded([bits, most] {
    if (most < fewestNodes) leave(Spent::memory);
    bdd_error_hook(whenTheLibraryFails);
    if (bdd_init(std::min(firstNodes, static_cast<int>(most - nextPrime)), firstNodes / nodesOfCacheEntry) <
        0)
      leave(Spent::machine);
    bdd_error_hook(whenTheLibraryFails);
    bdd_gbc_hook(whenGarbageIsCollected);
    bdd_setcacheratio(nodesOfCacheEntry);
    bdd_setmaxincrease(std::numeric_limits<int>::max() / 4);
    bdd_setmaxnodenum(static_cast<int>(most));
    return bdd_setvarnum(bits);
  });
}

/// A table for which there was no memory is left in ruins, and the library would trip over it at its end.
void mend() {
  if (setjmp(state.back) == 0) bdd_setcacheratio(nodesOfSmallCacheEntry);
}

void stop() {
  if (bdd_isrunning()) {
    if (state.spent == Spent::machine) mend();
    bdd_done();
  }
  if (state.told) state.watcher->ended();
  state.spent = Spent::none;
  state.watcher = nullptr;
  state.told = false;
  owned = false;
}

}  // namespace

PacketSet::PacketSet(int root) : root_(bdd_addref(root)) {}
PacketSet::PacketSet(const PacketSet& other)
    : root_(other.root_ > fullSet ? bdd_addref(other.root_) : other.root_) {}
PacketSet::~PacketSet() {
  if (root_ <= fullSet) return;
  KELP_ASSERT(owned, "a set of packets outlives what it lies in");
  bdd_delref(root_);
}

PacketSet operator&(const PacketSet& a, const PacketSet& b) {
  return PacketSet(applied(a.root_, b.root_, bddop_and));
}
PacketSet operator|(const PacketSet& a, const PacketSet& b) {
  return PacketSet(applied(a.root_, b.root_, bddop_or));
}
PacketSet operator-(const PacketSet& a, const PacketSet& b) {
  return PacketSet(applied(a.root_, b.root_, bddop_diff));
}

PacketSet joined(std::vector<PacketSet> sets) {
  for (; sets.size() > 1; sets.resize((sets.size() + 1) / 2)) {
    for (size_t i = 0; 2 * i < sets.size(); ++i)
      sets[i] = 2 * i + 1 < sets.size() ? sets[2 * i] | sets[2 * i + 1] : sets[2 * i];
  }
  return sets.empty() ? PacketSet() : sets.front();
}

PacketSets::PacketSets(unsigned bits, const Limits& limits, const Kiv::Clock& clock) : bits_(bits) {
  KELP_ASSERT(!owned.exchange(true), "a second analysis at the same time");
  state.clock = &clock;
  state.seconds = limits.asked;
  state.begin = clock.now();
  state.deadline = state.begin.later(limits.seconds);
  state.memory = limits.memory;
  state.watcher = limits.watcher;
  state.nextTold = state.begin.later(Kelp::Duration(secondsUntilTold));
  state.done = state.all = 0;
  try {
    start(static_cast<int>(bits));
  } catch (...) {
    stop();
    throw;
  }
}

PacketSets::~PacketSets() {
  besides_.clear();
  stop();
}

PacketSet PacketSets::all() const { return PacketSet(fullSet); }

PacketSet PacketSets::bitIs(unsigned bit, bool value) const {
  KELP_ASSERT(bit < bits_, "a bit that packets do not have");
  const int variable = static_cast<int>(bit);
  return PacketSet(guarded([=] { return value ? bdd_ithvar(variable) : bdd_nithvar(variable); }));
}

const PacketSet& PacketSets::besides(BitSpan span) const {
  const auto known = besides_.find({span.first, span.count});
  if (known != besides_.end()) return known->second;
  std::vector<int> others;
  for (unsigned bit = 0; bit < bits_; ++bit) {
    if (bit - span.first >= span.count) others.push_back(static_cast<int>(bit));
  }
  PacketSet made(guarded([&others] { return bdd_makeset(others.data(), static_cast<int>(others.size())); }));
  return besides_.emplace(std::pair(span.first, span.count), std::move(made)).first->second;
}

PacketSet PacketSets::projected(const PacketSet& set, BitSpan span) const {
  const PacketSet& quantified = besides(span);
  return PacketSet(guarded([&] { return bdd_exist(set.root_, quantified.root_); }));
}

double PacketSets::sizeOf(const PacketSet& set) const { return bdd_satcount(set.root_); }

void PacketSets::cameTo(size_t done, size_t all) const {
  state.done = done;
  state.all = all;
}

size_t PacketSets::memory() const { return static_cast<size_t>(bdd_getallocnum()) * octetsOfAll; }

}  // namespace Proof
