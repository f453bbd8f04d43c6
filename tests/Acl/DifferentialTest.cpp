#include <Acl/Workshop.h>
#include <Classify/Find.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <chrono>
#include <csignal>
#include <cstdlib>
#include <optional>

#include "../support/Sanitizers.h"
#include "DifferentialHistory.h"

// The matchers against the oracle of DifferentialModel.h, over lists and packets of DifferentialGenerator.h.
// Every list has a seed. A failure prints it with the fewest changes that still show it. Environment:
//   VELO_SEED=n         only the list of that seed
//   VELO_SOAK=minutes   each test goes on for so long, with seeds that no run had before

namespace {

using namespace TestSupport;
using namespace TestSupport::Differential;

/// Pairs of a list and a packet in each of the nine tests.
constexpr uint64_t pairsOfATest = sanitizers ? 40'000 : 1'200'000;

/// The seed of the list at hand, for when the process does not get as far as a failure.
volatile uint64_t currentSeed = 0;

/// While it lives, a crash names the seed.
class SeedOnCrash {
 public:
  SeedOnCrash() {
    for (size_t i = 0; i < std::size(signals); ++i) before_[i] = std::signal(signals[i], &say);
  }
  ~SeedOnCrash() {
    for (size_t i = 0; i < std::size(signals); ++i) std::signal(signals[i], before_[i]);
  }

 private:
  static constexpr int signals[] = {SIGSEGV, SIGABRT, SIGBUS, SIGFPE};

  static void say(int signal) {
    char text[] = "\ncrashed at VELO_SEED=00000000000000000000\n";
    size_t at = sizeof text - 2;
    for (uint64_t left = currentSeed; left > 0; left /= 10) text[--at] = static_cast<char>('0' + left % 10);
    if (write(STDERR_FILENO, text, sizeof text - 1) < 0) _exit(1);
    std::signal(signal, SIG_DFL);
    std::raise(signal);
  }

  void (*before_[std::size(signals)])(int);
};

/// The lists of one test.
template <class Rule>
class Lists {
 public:
  explicit Lists(bool histories) : histories_(histories) {
    if (const char* minutes = std::getenv("VELO_SOAK")) {
      end_ = Clock::now() + std::chrono::seconds(static_cast<int64_t>(std::atof(minutes) * 60));
      seed_ = std::random_device{}() * uint64_t{1000000};
    }
    if (const char* seed = std::getenv("VELO_SEED")) only_ = std::strtoull(seed, nullptr, 10);
    fmt::print("first seed {}\n", only_.value_or(seed_));
  }

  void run() {
    if (only_) return list(*only_);
    for (; more() && !testing::Test::HasFatalFailure(); ++seed_) list(seed_);
    if (testing::Test::HasFatalFailure()) return;
    EXPECT_GT(hits_, pairs_ / 4) << "the generator has packets that meet rules";
    EXPECT_GT(pairs_ - hits_, pairs_ / 20) << "and packets that meet none";
    EXPECT_GT(compiled_, pairs_ / 4) << "packets are judged by compiled forms";
    fmt::print("{} pairs of list and packet, {} met a rule, {} by a compiled form\n", pairs_, hits_,
               compiled_);
  }

 private:
  using Clock = std::chrono::steady_clock;

  bool more() const { return end_ ? Clock::now() < *end_ : pairs_ < pairsOfATest; }

  void list(uint64_t seed) {
    currentSeed = seed;
    Dice dice(seed);
    constexpr Classify::Unit units[] = {Classify::Unit::portable, Classify::Unit::avx2,
                                        Classify::Unit::avx512};
    if (const auto* kernels = Classify::kernelsOf(dice.of(units))) Classify::kernels = kernels;
    History<Rule> history(dice);
    history.run(histories_);
    pairs_ += history.pairs();
    hits_ += history.hits();
    compiled_ += history.compiled();
    if (const auto failed = history.failed()) FAIL() << "VELO_SEED=" << seed << ", " << *failed;
  }

  const bool histories_;
  std::optional<Clock::time_point> end_;
  std::optional<uint64_t> only_;
  uint64_t seed_ = 1;
  uint64_t pairs_ = 0, hits_ = 0, compiled_ = 0;
};

template <class Rule>
class MatchDifferential : public testing::Test {
 protected:
  void TearDown() override {
    Acl::Workshop::singleton().threadIs(false);
    Classify::kernels = kernels_;
  }

 private:
  const Classify::Kernels* const kernels_ = Classify::kernels;
  const SeedOnCrash seedOnCrash_;
};
struct KindName {
  template <class Rule>
  static std::string GetName(int) {
    return std::is_same_v<Rule, Acl::IpRule> ? "ip" : std::is_same_v<Rule, Acl::Ip6Rule> ? "ipv6" : "mac";
  }
};
using Kinds = testing::Types<Acl::IpRule, Acl::Ip6Rule, Acl::MacRule>;
TYPED_TEST_SUITE(MatchDifferential, Kinds, KindName);

TYPED_TEST(MatchDifferential, AListAnswersLikeTheOracle) { Lists<TypeParam>(false).run(); }

TYPED_TEST(MatchDifferential, AListAnswersLikeTheOracleAfterAnyHistoryOfChanges) {
  Lists<TypeParam>(true).run();
}

// Here a failure may not show again, as it depends on when the thread is ready.
TYPED_TEST(MatchDifferential, AListAnswersLikeTheOracleWhileAThreadCompilesIt) {
  Acl::Workshop::singleton().threadIs(true);
  Lists<TypeParam>(true).run();
}

}  // namespace
