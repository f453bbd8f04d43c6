#include <VeloAcl/VeloDpAclStatusSm/Factory.h>
#include <Zeb/System.h>
#include <benchmark/benchmark.h>
#include <fmt/format.h>

#include <time.h>

#include <algorithm>
#include <memory>
#include <random>

#include "support/Allocations.h"
#include "support/Ratios.h"

/// The status machine at scale: how long it takes to be ready, what a change and a poll cost, what a rule
/// weighs, and for how long it holds the event loop.
namespace {

using Machine = Velo::VeloAcl::VeloDpAclStatusSm;
using Acl::AclType;
using Kiv::UniqueId;

/// Processor time of this thread in seconds: what other work of the computer takes away is no run's fault.
double seconds() {
  timespec time;
  clock_gettime(CLOCK_THREAD_CPUTIME_ID, &time);
  return static_cast<double>(time.tv_sec) + 1e-9 * static_cast<double>(time.tv_nsec);
}

/// Processor time as the clock of the slices. It remembers of a run whether it scans the lists (task 1 does),
/// and for how long at most it was not asked: a task asks after every element, so that is the longest
/// element.
class WatchingClock final : public Kiv::Clock {
 public:
  void watch(const Kiv::TaskScheduler* scheduler) { scheduler_ = scheduler; }
  Kelp::Duration now() const override {
    const double time = seconds();
    longestGap_ = std::max(longestGap_, time - last_);
    last_ = time;
    const auto* running = scheduler_ ? scheduler_->runningTask() : nullptr;
    if (running != running_ && running) scansLists_ = running->name().view().ends_with("ScanTask1");
    running_ = running;
    return Kelp::Duration(time);
  }
  void startRun() {
    last_ = seconds();
    longestGap_ = 0;
    running_ = nullptr;
    scansLists_ = false;
  }
  double longestGap() const { return longestGap_; }
  bool scansLists() const { return scansLists_; }

 private:
  const Kiv::TaskScheduler* scheduler_ = nullptr;
  mutable double last_ = 0, longestGap_ = 0;
  mutable const Kiv::Task* running_ = nullptr;
  mutable bool scansLists_ = false;
};

/// The heap that is in use, the places that slabs keep for later left out.
int64_t bytesInUse() {
  int64_t bytes = Bench::allocations().liveBytes;
  MemSlab::forEachSlab([&](const MemSlab::Slab& slab) {
    bytes += static_cast<int64_t>(slab.liveCount() * slab.objectSize());
    bytes -= static_cast<int64_t>(slab.heldBytes());
  });
  return bytes;
}

class World {
 public:
  /// `watchesRuns`: takes the length of every task run, and slices from processor time for that; it costs
  /// more than the machine's own reading of the steady clock.
  World(size_t lists, size_t rulesPerList, bool watchesRuns = false)
      : rulesPerList_(rulesPerList), watchesRuns_(watchesRuns) {
    Zeb::System::clockIs(&clock);
    sliceClock.watch(scheduler.get());
    scheduler->sliceClockIs(watchesRuns ? static_cast<const Kiv::Clock&>(sliceClock) : Kiv::steadyClock());
    for (size_t l = 0; l < lists; ++l) {
      const auto rules = MemSlab::make<Acl::AclSubConfig>();
      for (size_t r = 0; r < rulesPerList; ++r)
        rules->ipRuleByIdIs(uid(l, r), rule(static_cast<uint32_t>(r)));
      config->configIs(AclType::ip)->aclIs(name(l))->currCfgIs(rules);
      sources.push_back(rules);
    }
  }
  ~World() {
    machine = nullptr;
    Zeb::System::clockIs(nullptr);
  }

  static Kelp::String name(size_t list) { return fmt::format("list{}", list); }
  static UniqueId uid(size_t list, size_t rule) { return UniqueId(1 + Kelp::mix64(list << 32 | rule) / 2); }
  static Acl::IpRule rule(uint32_t index) {
    Acl::IpRule rule;
    rule.sequence = 10 * (index + 1);
    rule.action = Acl::Action::deny;
    return rule;
  }
  static Kelp::Ptr<Machine::Counters> collection(const char* collectionName) {
    return MemSlab::make<Machine::Counters>(collectionName, CtrPool::FeatureId(1));
  }
  void countAll() {
    for (size_t l = 0; l < sources.size(); ++l) {
      for (size_t r = 0; r < rulesPerList_; ++r)
        in->counterCollectionIs({Acl::AclDirection::in, AclType::ip, name(l), uid(l, r)});
    }
  }

  void activate() {
    Rix::SmControl control;
    control.scheduler = scheduler;
    scheduler->turnBegin();
    const double begin = seconds();
    machine = Velo::VeloAcl::veloDpAclStatusSmFactory(config, intfConfig, in, macOut, ipOut, ip6Out, status,
                                                      control);
    machine->hasNotificationActiveIs(true);
    activation = seconds() - begin;
  }
  /// One run of one task; false when none is due.
  bool runOne() {
    if (!watchesRuns_) return scheduler->runOne();
    sliceClock.startRun();
    const double begin = seconds();
    if (!scheduler->runOne()) return false;
    const double took = seconds() - begin;
    // The second scan of the lists begins in whichever run ends the first pass of all scans.
    const bool hasLists = machine->initialScanDone() != wasInitialScanDone_ || sliceClock.scansLists();
    wasInitialScanDone_ = machine->initialScanDone();
    double& record = hasLists ? longestWithLists : longest;
    record = std::max(record, took);
    overrun = std::max(overrun, took - Kiv::TaskScheduler::defaultSlice.seconds() - sliceClock.longestGap());
    return true;
  }
  void runAll() {
    while (runOne()) {
    }
  }
  void untilReady() {
    runAll();
    if (!machine->ready()) Kelp::fatal("the machine does not get ready", __FILE__, __LINE__);
  }

  /// In seconds; `overrun` by how much a run exceeded its slice and its longest element.
  double activation = 0, longest = 0, longestWithLists = 0, overrun = 0;
  Kiv::ManualClock clock{Kelp::Duration(1000)};
  WatchingClock sliceClock;
  Kelp::Ptr<Kiv::TaskScheduler> scheduler = MemSlab::make<Kiv::TaskScheduler>(clock);
  Kelp::Ptr<Acl::Config> config = MemSlab::make<Acl::Config>("config");
  Kelp::Ptr<Acl::IntfConfig> intfConfig = MemSlab::make<Acl::IntfConfig>("intfConfig");
  Kelp::Ptr<Acl::StatusDp> status = MemSlab::make<Acl::StatusDp>("status");
  Kelp::Ptr<Machine::Counters> in = collection("in"), macOut = collection("macOut"),
                               ipOut = collection("ipOut"), ip6Out = collection("ip6Out");
  Kelp::Ptr<Machine> machine;
  std::vector<Kelp::Ptr<Acl::AclSubConfig>> sources;

 private:
  const size_t rulesPerList_;
  const bool watchesRuns_;
  bool wasInitialScanDone_ = false;
};

/// From activation to ready; with it the heap that status and machine take.
void startUp(benchmark::State& state) {
  const auto lists = static_cast<size_t>(state.range(0)), rules = static_cast<size_t>(state.range(1));
  const auto total = static_cast<double>(lists * rules);
  double bytes = 0, taken = 0;
  for (auto _ : state) {
    World world(lists, rules);
    const int64_t before = bytesInUse();
    const double begin = seconds();
    world.activate();
    world.untilReady();
    const double took = seconds() - begin;
    state.SetIterationTime(took);
    taken += took;
    bytes = static_cast<double>(bytesInUse() - before);
  }
  state.counters["ns_per_rule"] = taken / static_cast<double>(state.iterations()) / total * 1e9;
  state.counters["bytes_per_rule"] = bytes / total;
}
BENCHMARK(startUp)
    ->Args({1, 1000})
    ->Args({1, 100000})
    ->Args({100, 1000})
    ->UseManualTime()
    ->Repetitions(5)
    ->ReportAggregatesOnly()
    ->Unit(benchmark::kMillisecond);

/// The longest task run of a start and of a poll of all counters, against a slice of 1 ms. Apart: the longest
/// of the runs that scan lists, a whole list being one element there, and the activation itself. Behind them
/// by how much a run at worst exceeded its slice and its own longest element together.
void longestRun(benchmark::State& state) {
  const auto lists = static_cast<size_t>(state.range(0)), rules = static_cast<size_t>(state.range(1));
  double longest = 0, withLists = 0, activation = 0, overrun = 0;
  for (auto _ : state) {
    World world(lists, rules, true);
    world.countAll();
    world.activate();
    world.untilReady();
    world.clock.advance(Kelp::Duration(1.5));
    world.runAll();
    longest = world.longest;
    withLists = world.longestWithLists;
    activation = world.activation;
    overrun = world.overrun;
  }
  state.counters["longest_ms"] = longest * 1e3;
  state.counters["longest_with_lists_ms"] = withLists * 1e3;
  state.counters["activation_ms"] = activation * 1e3;
  state.counters["beyond_one_element_us"] = std::max(0.0, overrun) * 1e6;
}
BENCHMARK(longestRun)
    ->Args({1, 1000})
    ->Args({1, 100000})
    ->Args({100, 1000})
    ->Iterations(1)
    ->Repetitions(5)
    ->ReportAggregatesOnly()
    ->Unit(benchmark::kMillisecond);

/// Rules taken out and put in again, in all lists. Any rule of them all, each change finding its rule and all
/// that is beside it cold in a large configuration; or always the same few, so that what grows with the
/// configuration is what the change itself costs.
enum class Which { any, sameFew };

void changeRules(benchmark::State& state, Which which, bool watched) {
  const auto lists = static_cast<size_t>(state.range(0)), rules = static_cast<size_t>(state.range(1));
  World world(lists, rules);
  if (watched) {
    world.activate();
    world.untilReady();
  }
  std::mt19937_64 dice(7);
  std::vector<std::pair<size_t, size_t>> places(which == Which::any ? 1 << 16 : 64);
  for (auto& [list, rule] : places) list = dice() % lists, rule = dice() % rules;
  size_t next = 0;
  for (auto _ : state) {
    const auto [list, index] = places[next++ % places.size()];
    const UniqueId uid = World::uid(list, index);
    world.sources[list]->ipRuleByIdDel(uid);
    world.sources[list]->ipRuleByIdIs(uid, World::rule(static_cast<uint32_t>(index)));
  }
  state.SetItemsProcessed(state.iterations() * 2);
}
void sizes(benchmark::internal::Benchmark* b) {
  b->Args({1, 1000})->Args({1, 100000})->Args({100, 1000})->Repetitions(5)->ReportAggregatesOnly();
}
void ruleChange(benchmark::State& state) { changeRules(state, Which::sameFew, true); }
BENCHMARK(ruleChange)->Apply(sizes);
void ruleChangeCold(benchmark::State& state) { changeRules(state, Which::any, true); }
BENCHMARK(ruleChangeCold)->Apply(sizes);
/// Without a machine: what the configuration alone costs.
void ruleChangeUnwatched(benchmark::State& state) { changeRules(state, Which::sameFew, false); }
BENCHMARK(ruleChangeUnwatched)->Apply(sizes);
void ruleChangeColdUnwatched(benchmark::State& state) { changeRules(state, Which::any, false); }
BENCHMARK(ruleChangeColdUnwatched)->Apply(sizes);

/// One pass of a poll over a counter for every rule, in as many task runs as it takes.
void poll(benchmark::State& state) {
  const auto lists = static_cast<size_t>(state.range(0)), rules = static_cast<size_t>(state.range(1));
  World world(lists, rules);
  world.countAll();
  world.activate();
  world.untilReady();
  world.runAll();
  for (auto _ : state) {
    world.clock.advance(Kelp::Duration(1.5));
    world.runAll();
  }
  state.SetItemsProcessed(state.iterations() * static_cast<int64_t>(lists * rules));
}
BENCHMARK(poll)
    ->Args({1, 100000})
    ->Args({100, 1000})
    ->Repetitions(5)
    ->ReportAggregatesOnly()
    ->Unit(benchmark::kMillisecond);

const bool declared = [] {
  Bench::ratio("start of one list, a rule of 100,000 against one of 1,000", "startUp/1/100000",
               "startUp/1/1000", 1.5, "ns_per_rule");
  Bench::ratio("start of 100 lists of 1,000 against one, a rule", "startUp/100/1000", "startUp/1/1000", 1.5,
               "ns_per_rule");
  Bench::ratio("bytes a rule, of 100,000 against 1,000", "startUp/1/100000", "startUp/1/1000", 1.5,
               "bytes_per_rule");
  Bench::ratio("a rule change in one list of 100,000 against 1,000", "ruleChange/1/100000",
               "ruleChange/1/1000", 1.5);
  Bench::ratio("a rule change in 100 lists of 1,000 against one", "ruleChange/100/1000", "ruleChange/1/1000",
               1.5);
  Bench::ratio("the same of any rule, cold, in one list of 100,000 against 1,000", "ruleChangeCold/1/100000",
               "ruleChangeCold/1/1000", 1.5);
  return true;
}();

}  // namespace
